#!/usr/bin/python3
"""An SMTP server on loopback that writes down the subject of each message it takes.

    mail_sink.py PORT FILE

A line goes to the end of the file before the client is told that the message was taken. The first
line on standard output says that it accepts mail. SIGTERM ends it at once.

It wants the distribution's python3-aiosmtpd, hence the full path of the interpreter above.
"""
import asyncio
import logging
import signal
import sys
import warnings

from aiosmtpd.smtp import SMTP

SIZE_LIMIT = 1 << 26
SUBJECT = b"\nSubject: "


class Sink(SMTP):
    # Base64 lines end in bare LF, so to this server an attachment is one line.
    line_length_limit = SIZE_LIMIT


class Handler:
    def __init__(self, file):
        self.file = file

    async def handle_DATA(self, server, session, envelope):
        content = envelope.original_content
        begin = content.index(SUBJECT) + len(SUBJECT)
        self.file.write(content[begin:content.index(b"\r\n", begin)] + b"\n")
        return "250 Taken"


async def serve(port, file):
    # The library warns of its own past.
    warnings.simplefilter("ignore")
    logging.getLogger("mail.log").setLevel(logging.ERROR)
    loop = asyncio.get_running_loop()
    stop = asyncio.Event()
    loop.add_signal_handler(signal.SIGTERM, stop.set)
    server = await loop.create_server(
        lambda: Sink(Handler(file), loop=loop, hostname="localhost", data_size_limit=SIZE_LIMIT),
        "127.0.0.1", port, reuse_address=True)
    print("up", flush=True)
    await stop.wait()
    server.close()


def main():
    port, path = int(sys.argv[1]), sys.argv[2]
    with open(path, "ab", buffering=0) as file:
        asyncio.run(serve(port, file))
    return 0


if __name__ == "__main__":
    sys.exit(main())
