"""The whole road for tests: the real plug-in in the simulated host, the real curl, a real server.

    road.py MODULE[.CLASS[.TEST]]    runs them, with what NOTIFYPI_COMMAND, NOTIFYPI_PLUGIN and
                                     NOTIFYPI_SPEED_PLUGIN name in the environment

Texts are str; bytes that are no UTF-8 are written as surrogates ("\\udce4" is the byte 0xE4).
"""
import json
import os
import pathlib
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import types
import unittest

COMMAND, PLUGIN, SPEED_PLUGIN = (os.environ.get("NOTIFYPI_" + name, "")
                                 for name in ("COMMAND", "PLUGIN", "SPEED_PLUGIN"))
CURL = shutil.which("curl")
DEMO = pathlib.Path(__file__).parents[2] / "demo"  # whose servers take the mail
PYTHON = ["/usr/bin/python3", "-B"]  # the one that has the distribution's modules

RUN_LIMIT = 240  # seconds, far more than any run needs, so that a loaded machine does not fail tests
EVENT_TIME = 1_500_000_000
ATTEMPT = "Profile Description: {}. Notification attempt return code= {}"

INFORMATION, WARNING, ERROR = 25, 50, 75
DELIVERED, FAILED = 0, 1


def to_bytes(text):
    return text.encode("utf-8", "surrogateescape")


def escape(text):
    """Text as it stands in XML."""
    return "".join(f"&#x{ord(c):02X};" if c in '&<>"' or c < " " else c for c in str(text))


def element(name, attributes=None, content=""):
    words = "".join(f' {key}="{escape(value)}"' for key, value in (attributes or {}).items())
    return f"<{name}{words}>{content}</{name}>"


def smtp_server(port, description="Mail server", address="127.0.0.1", tls=0, login=None):
    """A server of the configuration. tls: 0 none, 1 from the first byte, 2 STARTTLS."""
    return element("smtp", {"description": description, "address": address, "port": port, "UseSSL": tls},
                   element("Authentication", dict(zip(("username", "password"), login))) if login else "")


def profile(number=1, description="Gate", sender="nvr@example.com", to=("guard@example.com",), cc=(), bcc=(),
            body="Look.\r\n", **attributes):
    words = {"ID": number, "attach": 0, "description": description, "ThrottleSeconds": 0, "from": sender,
             "subject": "Alarm", "MaxVideoSeconds": 0, "EventEdge": 0, **attributes}
    return element("smtp", words, "".join(
        element(kind, None, escape(text))
        for kind, texts in (("to", to), ("cc", cc), ("bcc", bcc), ("body", [body])) for text in texts))


def notify_document(servers, profiles, delta=0, web="", delivery=None, **settings):
    """notify.xml (delta 0), or a change of it (delta 1). Servers are elements, or ports of plain servers."""
    servers = [smtp_server(it) if isinstance(it, int) else it for it in servers]
    notify = element("Notify", {"ID": 786432, **settings}, "".join([
        element("Web", {"address": web}), element("Delivery", delivery) if delivery else "",
        element("Servers", None, "".join(servers)), element("Profiles", {"autoincrement": 1}, "".join(profiles))]))
    return to_bytes("<?xml ?>\n" + element("tDVR", {"Delta": delta}, notify) + "\n")


def event_document(number=1, event_type=2, sources=(66049,), system="Main building", **attributes):
    words = {"ID": number, "Alarm": 1, "Action": 7, "Time": EVENT_TIME, "Milliseconds": 250}
    entry = element("Profile", {**words, **attributes}, "".join(
        element("EventSource", {"ID": source, "Type": event_type}) for source in sources))
    server = element("Server", {"Serial": "A-1001", "Description": system})
    return to_bytes(f'<tDVR><Servers>{server}</Servers><Notify ID="786432"><Profiles>{entry}</Profiles></Notify></tDVR>')


def events(*numbers):
    """Steps of a run: an event for each of these profiles."""
    return [("event", event_document(number)) for number in numbers]


def make_video(path, *encoder, pixels="yuv420p", rate=5):
    """Five minutes of a test picture, small and quickly fed, with a key frame each second."""
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"testsrc2=size=160x120:rate={rate}:duration=300",
                    "-g", str(rate), "-c:v", *encoder, "-pix_fmt", pixels, path], check=True)
    return path


def mails_in(mailbox):
    """What a mail server has kept, in order: content, mail_from, rcpt_tos, tls and user."""
    return [types.SimpleNamespace(content=path.with_suffix(".eml").read_bytes(),
                                  **json.loads(path.read_text(encoding="utf-8")))
            for path in sorted(mailbox.glob("*.json"))]


class HostRun:
    """A running host. What happens, in order, as its JSON lines tell it, can be read meanwhile."""

    def __init__(self, test, *arguments):
        self._errors = test.new_path("errors")
        with self._errors.open("wb") as file:
            self._process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=file)
        test.addCleanup(self._process.communicate)
        test.addCleanup(self._process.kill)
        self.happenings = []

    def read_until(self, times=1, **beginnings):
        """Reads on until so many more happenings have fields that begin so."""
        for line in self._process.stdout:
            self.happenings.append(json.loads(line))
            times -= all(str(self.happenings[-1].get(field)).startswith(beginning)
                         for field, beginning in beginnings.items())
            if times == 0:
                return
        raise AssertionError("the host ended before", beginnings, self.happenings[-20:])

    def finish(self, is_stopped=False):
        """Waits for the end, or ends the run as Ctrl-C does; the host must have found no fault."""
        if is_stopped:
            self._process.send_signal(signal.SIGINT)
        self.happenings += map(json.loads, self._process.stdout)
        status, errors = self._process.wait(), self._errors.read_text(errors="replace")
        if self.of_kind("fault") or errors or status != 0:
            raise AssertionError(f"exit status {status}, {self.of_kind('fault')}\n{errors[:4000]}",
                                 [str(it)[:300] for it in self.happenings[-8:]])
        return self

    def of_kind(self, kind):
        return [it for it in self.happenings if it["kind"] == kind]

    def log(self, *levels):
        return [it["text"] for it in self.of_kind("log") if not levels or it["level"] in levels]

    def levels(self, text):
        """The levels of the log lines with exactly this text."""
        return [it["level"] for it in self.of_kind("log") if it["text"] == text]

    def statuses(self):
        return [(it["profile"], it["status"]) for it in self.of_kind("status")]

    def transfers(self):
        """Arguments of every run of curl but the one that asks for its version."""
        return [it["arguments"] for it in self.of_kind("launch") if len(it["arguments"]) > 2]


class RoadTest(unittest.TestCase):
    maxDiff = 4000

    def setUp(self):
        top = tempfile.TemporaryDirectory(prefix="notifypi-", ignore_cleanup_errors=True)
        self.top = pathlib.Path(self.enterContext(top))
        self.folder = self.top / "host"  # as a host has it: ./curl, notify.xml, data
        self.folder.mkdir()
        (self.folder / "curl").symlink_to(CURL)
        self._count = 0

    def new_path(self, name):
        self._count += 1
        return self.top / f"{self._count}-{name}"

    def start(self, program, *options):
        """Starts a server beside this file; the free port that it prints."""
        process = subprocess.Popen([*PYTHON, DEMO / program, *options], stdout=subprocess.PIPE)
        self.addCleanup(process.communicate)
        self.addCleanup(process.terminate)
        return int(process.stdout.readline())

    def start_server(self, *options):
        """A mail server: its port, and received()."""
        mailbox = self.new_path("mailbox")
        return types.SimpleNamespace(port=self.start("smtp_server.py", "--mailbox", mailbox, *options),
                                     received=lambda: mails_in(mailbox))

    def closed_port(self):
        """A port that refuses until the test ends, or until a server is told to take it."""
        taken = self.enterContext(socket.socket())
        taken.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]

    def configure(self, servers, *profiles, **settings):
        (self.folder / "notify.xml").write_bytes(notify_document(servers, profiles or [profile()], **settings))

    def replace_curl(self, script):
        """./curl becomes a shell script; asked for its version, it answers as the real one does."""
        path = self.folder / "curl"
        path.unlink()
        path.write_text(f'#!/bin/sh\n[ "$1" = -V ] && exec {CURL} -V\n{script}\n')
        path.chmod(0o755)

    def start_host(self, *steps, options=(), wrapper=(), plugin=PLUGIN):
        """Steps: lines of a scenario, or pairs of a document's kind and its bytes."""
        scenario = self.new_path("steps")
        with scenario.open("w") as file:
            for step in steps:
                if not isinstance(step, str):
                    path = self.new_path("document.xml")
                    path.write_bytes(step[1])
                    step = f"{step[0]} {path.name}"
                file.write(step + "\n")
        return HostRun(self, *wrapper, COMMAND, "host", "--plugin", plugin, "--directory", self.folder,
                       "--in-place", "--json", "--timeout", str(RUN_LIMIT), "--script", scenario, *map(str, options))

    def run_host(self, *steps, **options):
        return self.start_host(*steps, **options).finish()

    def spool(self):
        """Names of the files left in the data folder."""
        return sorted(path.name for path in self.folder.glob("data/*"))


class SpeedTest(RoadTest):
    """Time passes many times faster for the plug-in; its mail server, on self.port, may be taken away by steps."""

    def setUp(self):
        super().setUp()
        self.port, self.mailbox = self.closed_port(), self.top / "mailbox"

    def start_host(self, *steps, speed=300, options=(), **others):
        server = [*PYTHON, DEMO / "smtp_server.py", "--port", self.port, "--mailbox", self.mailbox]
        return super().start_host(*steps, plugin=SPEED_PLUGIN, **others, options=[
            "--speed", speed, "--mail-server", "exec " + shlex.join(map(str, server)), *options])

    def received(self):
        return mails_in(self.mailbox)


if __name__ == "__main__":
    outcome = unittest.main(module=None, exit=False, verbosity=2).result
    # For ctest, all skipped is neither good nor bad.
    sys.exit(1 if not outcome.wasSuccessful() else 77 if outcome.testsRun == len(outcome.skipped) > 0 else 0)
