#!/usr/bin/python3
"""A stand-in for the host's web server, which tells what systems it knows.

The first line on standard output is the port it listens on, on loopback. Every request is appended
to the log file as one JSON string, before it is answered. SIGTERM ends it.
"""
import argparse
import json
import pathlib
import socketserver


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
        # Around what is asked for stand things that are not: other keys, other objects.
        listed = [{"name": f'System "{serial}"', "serial": serial, "id": identifier,
                   "licence": {"id": "of the licence", "serial": "of the licence"},
                   **({"model": model[0]} if model else {})}
                  for serial, identifier, *model in options.system]
        body = json.dumps({"version": 3, "list": listed, "user": None}, indent=1).encode()
        self.wfile.write(b"HTTP/1.0 200 OK\r\nContent-Type: application/json\r\n"
                         b"Content-Length: %d\r\n\r\n" % len(body) + body)


class Server(socketserver.ThreadingTCPServer):
    daemon_threads = True
    options = None


def main():
    parser = argparse.ArgumentParser(
        description="A stand-in for the host's web server, for tests and the demo.")
    parser.add_argument("--port", type=int, default=0, help="port on loopback (default: a free one)")
    parser.add_argument("--log", type=pathlib.Path, help="file for the requests")
    parser.add_argument("--system", nargs="+", action="append", default=[],
                        metavar=("SERIAL", "ID [MODEL]"),
                        help="list a system; one with a model takes the newer kind of link")
    parser.add_argument("--stall", action="store_true", help="take requests and answer nothing")
    Server.options = parser.parse_args()
    with Server(("127.0.0.1", Server.options.port), Handler) as server:
        print(server.server_address[1], flush=True)
        server.serve_forever()


if __name__ == "__main__":
    main()
