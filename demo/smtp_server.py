#!/usr/bin/python3
"""An SMTP server on loopback that keeps what it receives, byte for byte, and refuses on demand.

It prints the port it listens on. Every accepted message is written to the mailbox folder, before the
client is told so, as 0001.eml (what stood between DATA and the final dot, transparency dots removed)
and then 0001.json (envelope, TLS, user). The interpreter is the one that has python3-aiosmtpd.
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

# To a server that counts from CRLF to CRLF an attachment is one line: its base64 ends lines in LF.
SIZE_LIMIT = SMTP.line_length_limit = 1 << 30


class Handler:
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
        unfinished = stem.with_suffix(".part")
        unfinished.write_text(json.dumps({
            "mail_from": envelope.mail_from, "rcpt_tos": envelope.rcpt_tos,
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
    pem = folder / "own.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-subj", "/CN=localhost",
                    "-keyout", pem, "-out", pem.with_suffix(".crt")], check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(pem.with_suffix(".crt"), pem)
    return context


async def serve():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--port", type=int, default=0, help="port on loopback (default: a free one)")
    parser.add_argument("--mailbox", type=pathlib.Path, required=True, help="folder for the messages")
    parser.add_argument("--auth", metavar="USER:PASSWORD", help="take mail with this login only")
    parser.add_argument("--tls", choices=["smtps", "starttls"], help="from the first byte, or offered")
    parser.add_argument("--refuse", choices=["RCPT", "DATA"],
                        help="refuse every recipient for good, or every message for now")
    options = parser.parse_args()
    # The library warns of logins without TLS and of its own past; both are meant here.
    warnings.simplefilter("ignore")
    logging.getLogger("mail.log").setLevel(logging.ERROR)
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    options.mailbox.mkdir(parents=True, exist_ok=True)
    handler = Handler(options)
    context = tls_context(options.mailbox) if options.tls else None
    # The port may be held for this server by who told it.
    server = await asyncio.get_running_loop().create_server(
        lambda: SMTP(handler, hostname="localhost", data_size_limit=SIZE_LIMIT,
                     tls_context=context if options.tls == "starttls" else None,
                     authenticator=handler.authenticate, auth_required=options.auth is not None,
                     auth_require_tls=False,
                     auth_exclude_mechanism=() if options.auth else ("LOGIN", "PLAIN")),
        "127.0.0.1", options.port, reuse_port=True, ssl=context if options.tls == "smtps" else None)
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()


asyncio.run(serve())
