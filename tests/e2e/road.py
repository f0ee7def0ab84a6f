"""The whole road for tests: the real plug-in in the simulated host, the real curl, a real server.

RoadTest is the base class. Each test has a working folder as a host has it (./curl, notify.xml,
data), servers of its own on free loopback ports, and runs of the host from Load to Unload.
The environment says what is tested: NOTIFYPI_COMMAND, NOTIFYPI_PLUGIN, NOTIFYPI_SPEED_PLUGIN.

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

# For a run, in seconds. Far more than any needs, so that a loaded machine does not fail tests.
RUN_LIMIT = 240

# What ctest shows as skipped.
ALL_SKIPPED = 77

EVENT_TIME = 1_500_000_000

ATTEMPT = "Profile Description: {}. Notification attempt return code= {}"
NOT_PREPARED = "Failed to prepare email notification file. (Profile Description: {})"

INFORMATION, WARNING, ERROR = 25, 50, 75
DELIVERED, FAILED, UNKNOWN = 0, 1, -1


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
    user = login and element("Authentication", {"username": login[0], "password": login[1]})
    return element("smtp", {"description": description, "address": address, "port": port,
                            "UseSSL": tls}, user or "")


def profile(number=1, description="Gate", sender="nvr@example.com", to=("guard@example.com",),
            cc=(), bcc=(), body="Look.\r\n", **attributes):
    words = {"ID": number, "attach": 0, "description": description, "ThrottleSeconds": 0,
             "from": sender, "subject": "Alarm", "MaxVideoSeconds": 0, "EventEdge": 0, **attributes}
    return element("smtp", words, "".join(
        element(kind, None, escape(address))
        for kind, addresses in (("to", to), ("cc", cc), ("bcc", bcc)) for address in addresses
    ) + element("body", None, escape(body)))


def notify_document(servers, profiles, delta=0, module=786432, web="", **settings):
    """As notify.xml holds it (delta 0), or as the host sends a change of it (delta 1). Servers are
    elements, or ports of plain servers."""
    servers = [smtp_server(it) if isinstance(it, int) else it for it in servers]
    content = (element("Web", {"address": web}) + element("Servers", None, "".join(servers)) +
               element("Profiles", {"autoincrement": 1}, "".join(profiles)))
    notify = element("Notify", {"ID": module, **settings}, content)
    return to_bytes("<?xml ?>\n" + element("tDVR", {"Delta": delta}, notify) + "\n")


def event_document(number=1, event_type=2, sources=(66049,), system="Main building", **attributes):
    words = {"ID": number, "Alarm": 1, "Action": 7, "Time": EVENT_TIME, "Milliseconds": 250}
    entry = element("Profile", {**words, **attributes}, "".join(
        element("EventSource", {"ID": source, "Type": event_type}) for source in sources))
    server = element("Server", {"Serial": "A-1001", "Description": system})
    return to_bytes(element("tDVR", None, element("Servers", None, server) + element(
        "Notify", {"ID": 786432}, element("Profiles", None, entry))))


def events(*numbers):
    """Steps of a run: an event for each of these profiles."""
    return [("event", event_document(number)) for number in numbers]


def make_video(path, *encoder, pixels="yuv420p", rate=5):
    """Five minutes of a test picture, small and quickly fed, with a key frame each second."""
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                    f"testsrc2=size=160x120:rate={rate}:duration=300", "-g", str(rate), "-c:v",
                    *encoder, "-pix_fmt", pixels, path], check=True)
    return path


class Server:
    """A server beside this file, on the free port that it prints, until close()."""

    def __init__(self, name, *options):
        self._process = subprocess.Popen(
            ["/usr/bin/python3", "-B", pathlib.Path(__file__).with_name(name), *options],
            stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        line = self._process.stdout.readline()
        self.port = int(line or 0)
        if not line:
            self.close()
            raise RuntimeError(f"{name} did not start")

    def close(self):
        self._process.terminate()
        self._process.communicate()


def mails_in(mailbox):
    """What a mail server has kept, in order: content, mail_from, rcpt_tos, tls and user."""
    return [types.SimpleNamespace(content=path.with_suffix(".eml").read_bytes(),
                                  **json.loads(path.read_text(encoding="utf-8")))
            for path in sorted(mailbox.glob("*.json"))]


def subjects(mails):
    return [mail.content.split(b"\nSubject: ")[1].split(b"\r\n")[0].decode() for mail in mails]


class MailServer(Server):
    def __init__(self, mailbox, *options):
        super().__init__("smtp_server.py", "--mailbox", mailbox, *options)
        self._mailbox = mailbox

    def received(self):
        return mails_in(self._mailbox)


class HostRun:
    """A running host. Its happenings, in order, as its JSON lines tell them, can be read meanwhile."""

    def __init__(self, arguments):
        # A file, since nobody reads it before the end and a pipe might fill up.
        self._errors = tempfile.TemporaryFile()
        self._process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL,
                                         stdout=subprocess.PIPE, stderr=self._errors)
        self.happenings = []

    def read_until(self, wanted):
        """Reads on until a happening is wanted; an error when the host ends before."""
        for line in self._process.stdout:
            self.happenings.append(json.loads(line))
            if wanted(self.happenings[-1]):
                return
        raise AssertionError("the host ended before what was waited for", self.happenings[-20:])

    def stop(self):
        """Ends the run as Ctrl-C does."""
        self._process.send_signal(signal.SIGINT)
        return self.finish()

    def finish(self):
        """Waits for the end, and requires that the host found no fault."""
        self.happenings += map(json.loads, self._process.stdout)
        self._process.wait()
        self._errors.seek(0)
        errors = self._errors.read().decode(errors="replace")
        if self.of_kind("fault") or errors or self._process.returncode != 0:
            last = "\n".join(str(it)[:300] for it in self.happenings[-8:])
            raise AssertionError(f"exit status {self._process.returncode}, {self.of_kind('fault')}"
                                 f"\n{errors[:4000]}\nlast that happened:\n{last}")
        return self

    def kill(self):
        if self._process.poll() is None:
            self._process.kill()
        self._process.communicate()
        self._errors.close()

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
        launches = [it["arguments"] for it in self.of_kind("launch")]
        return [arguments for arguments in launches if arguments != ["./curl", "-V"]]


class RoadTest(unittest.TestCase):
    maxDiff = 4000

    def setUp(self):
        self.top = pathlib.Path(tempfile.mkdtemp(prefix="notifypi-e2e-"))
        self.addCleanup(shutil.rmtree, self.top, ignore_errors=True)
        self.folder = self.top / "host"
        self.folder.mkdir()
        (self.folder / "curl").symlink_to(CURL)
        self._count = 0

    def new_path(self, name):
        self._count += 1
        return self.top / f"{self._count}-{name}"

    def start_server(self, *options):
        server = MailServer(self.new_path("mailbox"), *options)
        self.addCleanup(server.close)
        return server

    def closed_port(self):
        """A port that refuses connections and is nobody's until the test ends, but a server's that
        is told to take it."""
        taken = socket.socket()
        self.addCleanup(taken.close)
        taken.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]

    def configure(self, servers, *profiles, **settings):
        (self.folder / "notify.xml").write_bytes(
            notify_document(servers, profiles or [profile()], **settings))

    def replace_curl(self, script, version=f"{CURL} -V"):
        """./curl becomes a shell script; asked for its version, it answers as the real one does."""
        path = self.folder / "curl"
        path.unlink()
        path.write_text(f'#!/bin/sh\n[ "$1" = -V ] && exec {version}\n{script}\n')
        path.chmod(0o755)

    def start_host(self, *steps, options=(), wrapper=(), plugin=PLUGIN):
        """Steps are lines of a scenario, or pairs of a document's kind and its bytes. The wrapper
        is what the command runs under."""
        lines = []
        for step in steps:
            if not isinstance(step, str):
                path = self.new_path("document.xml")
                path.write_bytes(step[1])
                step = f"{step[0]} {path.name}"
            lines.append(step)
        scenario = self.new_path("steps")
        scenario.write_text("\n".join(lines) + "\n")
        run = HostRun([*wrapper, COMMAND, "host", "--plugin", plugin, "--directory", self.folder,
                       "--json", "--timeout", str(RUN_LIMIT), "--script", scenario,
                       *map(str, options)])
        self.addCleanup(run.kill)
        return run

    def run_host(self, *steps, **options):
        return self.start_host(*steps, **options).finish()

    def spool(self):
        """Names of the files left in the data folder."""
        return sorted(path.name for path in self.folder.glob("data/*"))


class SpeedTest(RoadTest):
    """The plug-in's time passes many times faster than the world's, in a build that lets it; the
    host has a mail server on self.port, which the steps may take away."""

    SPEED = 300

    def setUp(self):
        super().setUp()
        if not SPEED_PLUGIN:
            self.skipTest("there is no plug-in whose clocks can be driven")
        self.port = self.closed_port()
        self.mailbox = self.top / "mailbox"

    def start_host(self, *steps, speed=SPEED, options=(), **others):
        program = pathlib.Path(__file__).with_name("smtp_server.py")
        server = shlex.join(["/usr/bin/python3", "-B", str(program), "--port", str(self.port),
                             "--mailbox", str(self.mailbox)])
        return super().start_host(*steps, plugin=SPEED_PLUGIN, options=[
            "--speed", speed, "--mail-server", "exec " + server, *options], **others)

    def received(self):
        return mails_in(self.mailbox)


def main():
    """Runs the tests of the calling module; for ctest, all skipped is neither good nor bad."""
    outcome = unittest.main(module="__main__", exit=False, verbosity=2).result
    if not outcome.wasSuccessful():
        sys.exit(1)
    sys.exit(ALL_SKIPPED if outcome.testsRun and len(outcome.skipped) == outcome.testsRun else 0)
