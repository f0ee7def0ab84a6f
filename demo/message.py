"""The demo's mail: every byte of it is either expected or part of an attachment."""
import base64
import os
import re
import time

BOUNDARY = b"b1914efc629febb89915e8a6f83ba6eb"

# As notify.xml and event.xml ask for it.
HEAD = """From: nvr@example.com
To: guard@example.com
Cc: office@example.com
Subject: Video Motion at Gate
Content-Type: multipart/mixed; boundary="{boundary}"

--{boundary}
Content-Type: text/plain

Video Motion at Gate,
{time}.

Recorded by Main building, serial number A-1001.

{link}
"""

# The search for the video of the event, in the web client's older form.
SEARCH = ('{{"searchServerId":"7","searchCameraIds":[66049,66305,66561],"searchStart":{start}000,'
          '"searchEnd":{end}000,"mode":"search","quality":7,"size":100}}')

PART_HEAD = """
--{boundary}
Content-Type: {type}
Content-Transfer-Encoding: base64
Content-Disposition: attachment; filename="{name}"

"""

END = """
--{boundary}--
"""


class WrongMessage(Exception):
    """The message is not the one that profile and event ask for."""


def crlf(text, **values):
    return text.format(boundary=BOUNDARY.decode(), **values).replace("\n", "\r\n").encode()


class Reader:
    def __init__(self, content):
        self._rest = content

    def expect(self, wanted):
        if not self._rest.startswith(wanted):
            same = len(os.path.commonprefix([wanted, self._rest]))
            raise WrongMessage(f"behind {wanted[:same][-40:]!r}, expected {wanted[same:][:60]!r}, "
                               f"found {self._rest[same:][:60]!r}")
        self._rest = self._rest[len(wanted):]

    def take_base64(self):
        """Lines of 76 characters, ended by LF, and one shorter one at the end."""
        end = self._rest.find(b"\r\n")
        text, self._rest = self._rest[:end], self._rest[end:]
        if not re.fullmatch(rb"([A-Za-z0-9+/=]{76}\n)*[A-Za-z0-9+/=]{0,76}\n?", text):
            raise WrongMessage("an attachment is no base64 in lines of 76 characters")
        return base64.b64decode(text.replace(b"\n", b""), validate=True)

    def expect_end(self):
        if self._rest:
            raise WrongMessage(f"more follows: {self._rest[:80]!r}")


def link_for(event_time, web_port):
    """From the pre-trigger seconds of system.xml before the event to MaxVideoSeconds after it."""
    search = SEARCH.format(start=event_time - 5, end=event_time + 10).encode()
    return f"http://127.0.0.1:{web_port}/advanced.web?s=7;#" + base64.b64encode(search).decode()


def read_message(content, event_time, web_port, attachments):
    """The contents of the attachments, whose names are given in order."""
    reader = Reader(content)
    stamp = time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(event_time))
    reader.expect(crlf(HEAD, time=stamp, link=link_for(event_time, web_port)))
    contents = []
    for name in attachments:
        kind = "video/quicktime" if name.endswith(".mov") else "image/jpeg"
        reader.expect(crlf(PART_HEAD, type=kind, name=name))
        contents.append(reader.take_base64())
    reader.expect(crlf(END))
    reader.expect_end()
    return contents
