#!/usr/bin/python3
"""A stand-in for the host's web server, which tells what systems it knows to who asks as it should.

The first line on standard output is the port it listens on, on loopback.
"""
import argparse
import http.server
import json


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        is_known = self.requestline == "GET /login.web?output=json HTTP/1.0"
        self.send_response(200 if is_known else 404)
        self.end_headers()
        # Around what is asked for stand things that are not: other keys, other objects.
        listed = [{"name": f'System "{serial}"', "serial": serial, "id": identifier,
                   "licence": {"id": "of the licence", "serial": "of the licence"},
                   **({"model": model[0]} if model else {})}
                  for serial, identifier, *model in options.system]
        self.wfile.write(json.dumps({"version": 3, "list": listed, "user": None}, indent=1).encode())

    def log_message(self, *_):
        pass


parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
parser.add_argument("--system", nargs="+", action="append", default=[], metavar=("SERIAL", "ID [MODEL]"),
                    help="list a system; one with a model takes the newer kind of link")
options = parser.parse_args()
server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print(server.server_address[1], flush=True)
server.serve_forever()
