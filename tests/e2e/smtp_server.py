#!/usr/bin/python3
"""An SMTP server on loopback that keeps what it receives, byte for byte, and refuses on demand.

The first line on standard output is the port it listens on. Every accepted message is written to
the mailbox folder, before the client is told so, as 0001.eml (the bytes between DATA and the final
dot, transparency dots removed, nothing else touched) and then 0001.json (envelope, TLS, user): who
sees the .json can read the .eml. SIGTERM and SIGINT end it.

It wants the distribution's python3-aiosmtpd, hence the full path of the interpreter above.
"""
import argparse
import asyncio
import json
import logging
import os
import pathlib
import signal
import ssl
import subprocess
import warnings

from aiosmtpd.smtp import SMTP, AuthResult

# Far above any message of ours: the base64 lines of a message end in bare LF, so to a server that
# counts from CRLF to CRLF a whole attachment is one line.
SIZE_LIMIT = 1 << 30


class Server(SMTP):
    line_length_limit = SIZE_LIMIT


class Handler:
    """What one server answers."""

    def __init__(self, options):
        self.options = options
        # A server that comes back goes on behind what it has kept before.
        self.count = len(list(options.mailbox.glob("*.eml")))

    async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
        if self.options.refuse == "RCPT":
            return "550 Recipient refused"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        if self.options.refuse == "DATA":
            return "451 Try again later"
        self.count += 1
        stem = self.options.mailbox / f"{self.count:04d}"
        stem.with_suffix(".eml").write_bytes(envelope.original_content)
        unfinished = stem.with_suffix(".json.part")
        unfinished.write_text(json.dumps({
            "mail_from": envelope.mail_from,
            "rcpt_tos": envelope.rcpt_tos,
            "tls": self.options.tls == "smtps" or session.ssl is not None,
            "user": session.auth_data.login.decode(errors="replace") if session.authenticated else None,
        }, indent=2) + "\n", encoding="utf-8")
        unfinished.rename(stem.with_suffix(".json"))
        return "250 Kept"

    def authenticate(self, server, session, envelope, mechanism, auth_data):
        given = auth_data.login + b":" + auth_data.password
        return AuthResult(success=given == os.fsencode(self.options.auth), handled=False,
                          auth_data=auth_data)


def tls_context(folder):
    """With a certificate of its own, which nobody has signed."""
    certificate, key = folder / "certificate.pem", folder / "key.pem"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
         "-nodes", "-days", "2", "-subj", "/CN=localhost", "-keyout", key, "-out", certificate],
        check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    return context


def read_options():
    parser = argparse.ArgumentParser(
        description="SMTP server for tests and the demo: keeps messages, refuses on demand.")
    parser.add_argument("--port", type=int, default=0, help="port on loopback (default: a free one)")
    parser.add_argument("--mailbox", type=pathlib.Path, required=True, metavar="DIR",
                        help="folder for the messages")
    parser.add_argument("--auth", metavar="USER:PASSWORD", help="take mail with this login only")
    parser.add_argument("--tls", choices=["smtps", "starttls"],
                        help="TLS from the first byte, or offered")
    parser.add_argument("--refuse", choices=["RCPT", "DATA"],
                        help="refuse every recipient for good, or every message for now")
    return parser.parse_args()


async def serve(options):
    # The library warns of logins without TLS and of its own past; both are meant here.
    warnings.simplefilter("ignore")
    logging.getLogger("mail.log").setLevel(logging.ERROR)
    options.mailbox.mkdir(parents=True, exist_ok=True)
    handler = Handler(options)
    context = tls_context(options.mailbox) if options.tls else None
    loop = asyncio.get_running_loop()

    def connection():
        return Server(
            handler, loop=loop, hostname="localhost", data_size_limit=SIZE_LIMIT,
            tls_context=context if options.tls == "starttls" else None,
            authenticator=handler.authenticate, auth_required=options.auth is not None,
            # Plain logins are part of what is tested, and nothing leaves this machine.
            auth_require_tls=False,
            auth_exclude_mechanism=() if options.auth else ("LOGIN", "PLAIN"))

    stop = asyncio.Event()
    for number in (signal.SIGTERM, signal.SIGINT):
        loop.add_signal_handler(number, stop.set)
    # The port may be held for this server by who told it.
    server = await loop.create_server(connection, "127.0.0.1", options.port, reuse_port=True,
                                      ssl=context if options.tls == "smtps" else None)
    print(server.sockets[0].getsockname()[1], flush=True)
    await stop.wait()
    server.close()


if __name__ == "__main__":
    asyncio.run(serve(read_options()))
