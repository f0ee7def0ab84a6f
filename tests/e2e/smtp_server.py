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
import sys
import warnings

from aiosmtpd.smtp import SMTP, AuthResult

# Far above any message of ours: the base64 lines of a message end in bare LF, so to a server that
# counts from CRLF to CRLF a whole attachment is one line.
SIZE_LIMIT = 1 << 30


class Server(SMTP):
    line_length_limit = SIZE_LIMIT


class Mailbox:
    """The folder of received messages, numbered in the order of their arrival."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        # A server that comes back goes on behind what it has kept before.
        self.count = len(list(self.folder.glob("*.eml")))

    def keep(self, content, envelope_facts):
        self.count += 1
        stem = self.folder / f"{self.count:04d}"
        stem.with_suffix(".eml").write_bytes(content)
        unfinished = stem.with_suffix(".json.part")
        unfinished.write_text(json.dumps(envelope_facts, indent=2) + "\n", encoding="utf-8")
        unfinished.rename(stem.with_suffix(".json"))


class Handler:
    """Answers of one server: what the script on the command line refuses, and else the mailbox."""

    def __init__(self, options, mailbox):
        self.options = options
        self.mailbox = mailbox
        self.refused_recipients = dict(options.refuse_rcpt)
        self.failures_left = options.fail_first

    async def handle_MAIL(self, server, session, envelope, address, mail_options):
        if self.options.refuse_mail:
            return f"{self.options.refuse_mail} Sender refused"
        envelope.mail_from = address
        envelope.mail_options.extend(mail_options)
        return "250 OK"

    async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
        if address in self.refused_recipients:
            return f"{self.refused_recipients[address]} Recipient refused"
        envelope.rcpt_tos.append(address)
        envelope.rcpt_options.extend(rcpt_options)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        if self.options.refuse_data:
            return f"{self.options.refuse_data} Message refused"
        if self.failures_left > 0:
            self.failures_left -= 1
            return "451 Try again later"
        facts = {
            "mail_from": envelope.mail_from,
            "rcpt_tos": envelope.rcpt_tos,
            "tls": self.options.smtps or session.ssl is not None,
            "user": session.auth_data.login.decode(errors="replace") if session.authenticated else None,
        }
        self.mailbox.keep(envelope.original_content, facts)
        return "250 Kept"

    def authenticate(self, server, session, envelope, mechanism, auth_data):
        expected = self.options.auth
        given = (auth_data.login, auth_data.password)
        return AuthResult(success=given == expected, handled=False, auth_data=auth_data)


def tls_context(folder):
    """A context over certificate.pem and key.pem of the folder, made there when they are missing."""
    folder = pathlib.Path(folder)
    certificate, key = folder / "certificate.pem", folder / "key.pem"
    if not certificate.exists() or not key.exists():
        folder.mkdir(parents=True, exist_ok=True)
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
             "-subj", "/CN=localhost", "-keyout", key, "-out", certificate],
            check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    return context


def user_and_password(text):
    user, colon, password = text.partition(":")
    if not user or not colon:
        raise argparse.ArgumentTypeError(f"{text!r} is not USER:PASSWORD")
    return os.fsencode(user), os.fsencode(password)


def reply_code(text):
    if not (text.isdigit() and len(text) == 3 and text[0] in "45"):
        raise argparse.ArgumentTypeError(f"{text!r} is not a reply code from 400 to 599")
    return int(text)


def refused_recipient(text):
    address, equals, code = text.partition("=")
    return address, reply_code(code) if equals else 550


def read_options():
    parser = argparse.ArgumentParser(
        description="SMTP server for tests and the demo: keeps messages, refuses on demand.")
    parser.add_argument("--port", type=int, default=0, help="port on loopback (default: a free one)")
    parser.add_argument("--mailbox", required=True, metavar="DIR", help="folder for the messages")
    parser.add_argument("--auth", type=user_and_password, metavar="USER:PASSWORD",
                        help="offer AUTH and accept this login only")
    parser.add_argument("--require-auth", action="store_true", help="refuse mail without a login")
    tls = parser.add_mutually_exclusive_group()
    tls.add_argument("--smtps", action="store_true", help="TLS from the first byte")
    tls.add_argument("--starttls", action="store_true", help="offer STARTTLS")
    parser.add_argument("--certificate", metavar="DIR",
                        help="folder of certificate.pem and key.pem, made there when missing "
                             "(default: the folder certificate in the mailbox)")
    parser.add_argument("--refuse-rcpt", type=refused_recipient, action="append", default=[],
                        metavar="ADDRESS[=CODE]", help="refuse a recipient (550)")
    parser.add_argument("--refuse-mail", type=reply_code, metavar="CODE", help="refuse MAIL FROM")
    parser.add_argument("--refuse-data", type=reply_code, metavar="CODE",
                        help="refuse every message after its final dot")
    parser.add_argument("--fail-first", type=int, default=0, metavar="N",
                        help="answer 451 to the first N messages, after their final dot")
    options = parser.parse_args()
    if options.require_auth and not options.auth:
        parser.error("--require-auth needs --auth")
    return options


async def serve(options):
    # The library warns of logins without TLS and of its own past; both are meant here.
    warnings.simplefilter("ignore")
    logging.getLogger("mail.log").setLevel(logging.ERROR)
    handler = Handler(options, Mailbox(options.mailbox))
    context = None
    if options.smtps or options.starttls:
        context = tls_context(options.certificate or os.path.join(options.mailbox, "certificate"))
    loop = asyncio.get_running_loop()

    def connection():
        return Server(
            handler,
            loop=loop,
            hostname="localhost",
            data_size_limit=SIZE_LIMIT,
            tls_context=context if options.starttls else None,
            authenticator=handler.authenticate,
            auth_required=options.require_auth,
            # Plain logins are part of what is tested, and nothing leaves this machine.
            auth_require_tls=False,
            auth_exclude_mechanism=() if options.auth else ("LOGIN", "PLAIN"),
        )

    stop = asyncio.Event()
    for number in (signal.SIGTERM, signal.SIGINT):
        loop.add_signal_handler(number, stop.set)
    server = await loop.create_server(connection, "127.0.0.1", options.port,
                                      ssl=context if options.smtps else None)
    print(server.sockets[0].getsockname()[1], flush=True)
    await stop.wait()
    server.close()


if __name__ == "__main__":
    sys.exit(asyncio.run(serve(read_options())))
