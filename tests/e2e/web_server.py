#!/usr/bin/python3
"""A stand-in for the host's web server: tells which systems it knows, or misbehaves on demand.

The first line on standard output is the port it listens on, on loopback. Every request is appended
to the log file as one JSON string, before it is answered. SIGTERM ends it.
"""
import argparse
import json
import pathlib
import socketserver
import sys


def login_answer(systems):
    """The answer of a web server that knows these systems: serial, id and, if it has one, model."""
    listed = []
    for serial, identifier, *model in systems:
        # Around what is asked for stand things that are not: other keys, other objects.
        entry = {"name": f'System "{serial}"', "serial": serial, "id": identifier,
                 "licence": {"id": "of the licence", "serial": "of the licence"}}
        if model:
            entry["model"] = model[0]
        listed.append(entry)
    return json.dumps({"version": 3, "list": listed, "user": None}, indent=1).encode()


class Handler(socketserver.StreamRequestHandler):
    def handle(self):
        options = self.server.options
        request = b""
        while not request.endswith(b"\r\n\r\n"):
            line = self.rfile.readline()
            if not line:
                return
            request += line
        if options.log:
            with options.log.open("a", encoding="utf-8") as log:
                log.write(json.dumps(request.decode(errors="replace")) + "\n")
        if options.stall:
            self.rfile.read()  # until the client gives up
            return
        body = b"<html>Welcome" if options.garbage else login_answer(options.system)
        head = (f"HTTP/1.0 {options.status} Scripted\r\nContent-Type: application/json\r\n"
                f"Content-Length: {len(body)}\r\n\r\n")
        self.wfile.write(head.encode() + body)


class Server(socketserver.ThreadingTCPServer):
    daemon_threads = True

    def __init__(self, options):
        self.options = options
        super().__init__(("127.0.0.1", options.port), Handler)

    def handle_error(self, request, client_address):
        if not isinstance(sys.exc_info()[1], ConnectionError):  # clients may go at any time
            super().handle_error(request, client_address)


def read_options():
    parser = argparse.ArgumentParser(
        description="A stand-in for the host's web server, for tests and the demo.")
    parser.add_argument("--port", type=int, default=0, help="port on loopback (default: a free one)")
    parser.add_argument("--log", type=pathlib.Path, help="file for the requests")
    parser.add_argument("--system", nargs="+", action="append", default=[],
                        metavar=("SERIAL", "ID [MODEL]"),
                        help="list a system; one with a model takes the newer kind of link")
    parser.add_argument("--status", type=int, default=200, metavar="CODE", help="answer with it")
    kind = parser.add_mutually_exclusive_group()
    kind.add_argument("--garbage", action="store_true", help="answer something else than a list")
    kind.add_argument("--stall", action="store_true", help="take requests and answer nothing")
    options = parser.parse_args()
    if not all(len(system) in (2, 3) for system in options.system):
        parser.error("--system takes SERIAL ID [MODEL]")
    return options


def main():
    with Server(read_options()) as server:
        print(server.server_address[1], flush=True)
        server.serve_forever()


if __name__ == "__main__":
    main()
