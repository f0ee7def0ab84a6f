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
import mailbox
import os
import pathlib
import signal
import ssl
import subprocess
import warnings

from aiosmtpd.smtp import SMTP, AuthResult

REFUSALS = {"CONNECT": "554 Not you", "STARTTLS": "454 TLS not available", "AUTH": "535 Login refused",
            "MAIL": "550 Sender refused", "RCPT": "550 Recipient refused", "DATA": "451 Try again later"}
LOST = "lost"

# To a server that counts from CRLF to CRLF an attachment is one line: its base64 ends lines in LF.
SIZE_LIMIT = SMTP.line_length_limit = 1 << 30


class Server(SMTP):
    """Gives the replies of --refuse in place of its own."""

    async def push(self, status):
        text = status.decode() if isinstance(status, bytes) else status
        refusals, greets = self.event_handler.refusals, not self.session.host_name
        reply = refusals.get("CONNECT") if greets and text.startswith("220") else None
        if (reply or text) == LOST:
            self.transport.abort()
        else:
            await super().push(reply or status)

    async def smtp_STARTTLS(self, arg):
        if reply := self.event_handler.refusals.get("STARTTLS"):
            await self.push(reply)
        else:
            await super().smtp_STARTTLS(arg)


class Handler:
    def __init__(self, options):
        self.options = options
        self.refusals = {stage: reply or REFUSALS[stage] for stage, _, reply in
                         (it.partition("=") for it in options.refuse)}
        # A server that comes back goes on behind what it has kept before.
        self.count = len(list(options.mailbox.glob("*.eml")))

    async def handle_MAIL(self, server, session, envelope, address, mail_options):
        if reply := self.refusals.get("MAIL"):
            return reply
        envelope.mail_from = address
        return "250 OK"

    async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
        if reply := self.refusals.get("RCPT"):
            return reply
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        if reply := self.refusals.get("DATA"):
            return reply
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
        if self.options.mbox:
            mbox = mailbox.mbox(self.options.mbox)
            mbox.add(envelope.original_content.replace(b"\r\n", b"\n"))
            mbox.close()
        return "250 Kept"

    def authenticate(self, server, session, envelope, mechanism, auth_data):
        if reply := self.refusals.get("AUTH"):
            return AuthResult(success=False, handled=False, message=reply)
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
    parser.add_argument("--mbox", type=pathlib.Path, help="also a file that mail readers open")
    parser.add_argument("--auth", metavar="USER:PASSWORD", help="take mail with this login only")
    parser.add_argument("--tls", choices=["smtps", "starttls"], help="from the first byte, or offered")
    parser.add_argument("--refuse", metavar="STAGE[=REPLY]", action="append", default=[],
                        help=f"at {', '.join(REFUSALS)}, answer so, as \"RCPT=450 Later\"; {LOST} breaks "
                        "the connection. DATA is the whole message; RCPT alone refuses for good, DATA for now")
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
        lambda: Server(handler, hostname="localhost", data_size_limit=SIZE_LIMIT,
                     tls_context=context if options.tls == "starttls" else None,
                     authenticator=handler.authenticate, auth_required=options.auth is not None,
                     auth_require_tls=False,
                     auth_exclude_mechanism=() if options.auth else ("LOGIN", "PLAIN")),
        "127.0.0.1", options.port, reuse_port=True, ssl=context if options.tls == "smtps" else None)
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()


asyncio.run(serve())
