"""The whole road for tests: the real plug-in in the simulated host, the real curl, a real server.

RoadTest is the base class. Each test has a working folder as a host has it (./curl, notify.xml,
data), mail servers of its own on free loopback ports, and runs of the host from Load to Unload.
The environment says what is tested: NOTIFYPI_COMMAND and NOTIFYPI_PLUGIN.

Texts are str; bytes that are no UTF-8 are written as surrogates ("\\udce4" is the byte 0xE4).
"""
import dataclasses
import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import unittest

COMMAND = os.environ.get("NOTIFYPI_COMMAND", "")
PLUGIN = os.environ.get("NOTIFYPI_PLUGIN", "")
CURL = shutil.which("curl")

# For a run, in seconds. Far more than any needs, so that a loaded machine does not fail tests.
RUN_LIMIT = 90

# What ctest shows as skipped.
ALL_SKIPPED = 77

EVENT_TIME = 1_500_000_000

WILL_NOT_BE_RETRIED = (
    "Failed to send notification using profile {}.  This message will NOT be retried due to "
    "failure return codes 67 or 26 or due to failures to prepare or initiate email operation")
WILL_BE_RETRIED = "Failed to send notification using profile {}.  This message will be retried"
ATTEMPT = "Profile Description: {}. Notification attempt return code= {}"
NOT_EXECUTED = (
    "Failed to execute curl smtp operation using server {}. (Profile Description: {})")

INFORMATION, WARNING, ERROR = 25, 50, 75
DELIVERED, FAILED, UNKNOWN = 0, 1, -1


def to_bytes(text):
    return text.encode("utf-8", "surrogateescape")


def escape(text):
    """Text as it stands in XML, control characters and quotes as references."""
    named = {"&": "&amp;", "<": "&lt;", ">": "&gt;", '"': "&quot;"}
    return "".join(
        named.get(c) or (f"&#x{ord(c):02X};" if ord(c) < 0x20 else c) for c in text)


def element(name, attributes=None, content=""):
    words = "".join(f' {key}="{escape(str(value))}"' for key, value in (attributes or {}).items())
    return f"<{name}{words}>{content}</{name}>"


def smtp_server(port, description="Mail server", address="127.0.0.1", tls=0, login=None):
    """A server of the configuration. tls: 0 none, 1 from the first byte, 2 STARTTLS."""
    attributes = {"description": description, "address": address, "port": port, "UseSSL": tls}
    content = ""
    if login:
        content = element("Authentication", {"username": login[0], "password": login[1]})
    return element("smtp", attributes, content)


def profile(number=1, description="Gate", sender="nvr@example.com", to=("guard@example.com",),
            cc=(), bcc=(), subject="Alarm", body="Look.\r\n", throttle=0, edge=0):
    attributes = {
        "ID": number, "attach": 0, "description": description, "ThrottleSeconds": throttle,
        "from": sender, "subject": subject, "MaxVideoSeconds": 0, "EventEdge": edge}
    content = "".join(element(kind, None, escape(address))
                      for kind, addresses in (("to", to), ("cc", cc), ("bcc", bcc))
                      for address in addresses)
    return element("smtp", attributes, content + element("body", None, escape(body)))


def notify_document(servers, profiles, delta=0, module=786432):
    """As notify.xml holds it (delta 0), or as the host sends a change of it (delta 1)."""
    content = (element("Web", {"address": ""}) + element("Servers", None, "".join(servers)) +
               element("Profiles", {"autoincrement": 1}, "".join(profiles)))
    root = element("tDVR", {"Delta": delta}, element("Notify", {"ID": module}, content))
    return to_bytes("<?xml ?>\n" + root + "\n")


def event_document(number=1, alarm=1, event_type=2, source=66049, message=None, time=EVENT_TIME):
    attributes = {"ID": number, "Alarm": alarm, "Action": 7, "Time": time, "Milliseconds": 250}
    if message is not None:
        attributes["Message"] = message
    entry = element("Profile", attributes,
                    element("EventSource", {"ID": source, "Type": event_type}))
    host = element("Servers", None,
                   element("Server", {"Serial": "A-1001", "Description": "Main building"}))
    notify = element("Notify", {"ID": 786432}, element("Profiles", None, entry))
    return to_bytes(element("tDVR", None, host + notify))


@dataclasses.dataclass
class Mail:
    """A message as a server received it."""
    content: bytes
    sender: str
    recipients: list
    tls: bool
    user: str


class ServerProcess:
    """A server beside this file, on the free port that it prints, until close()."""

    def __init__(self, name, *options):
        self._process = subprocess.Popen(
            ["/usr/bin/python3", "-B", pathlib.Path(__file__).with_name(name), *options],
            stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        line = self._process.stdout.readline()
        if not line:
            self.close()
            raise RuntimeError(f"{name} did not start")
        self.port = int(line)

    def close(self):
        self._process.terminate()
        self._process.wait()
        self._process.stdout.close()


class MailServer(ServerProcess):
    """smtp_server.py."""

    def __init__(self, folder, options):
        self.mailbox = folder
        super().__init__("smtp_server.py", "--mailbox", folder, *options)

    def received(self):
        mails = []
        for path in sorted(self.mailbox.glob("*.json")):
            facts = json.loads(path.read_text(encoding="utf-8"))
            mails.append(Mail(path.with_suffix(".eml").read_bytes(), facts["mail_from"],
                              facts["rcpt_tos"], facts["tls"], facts["user"]))
        return mails


class Timeline:
    """What happened in a run of the host, in order, as its JSON lines tell it."""

    def __init__(self, lines):
        self.happenings = [json.loads(line) for line in lines]

    def of_kind(self, kind):
        return [it for it in self.happenings if it["kind"] == kind]

    def log(self, level=None):
        return [it["text"] for it in self.of_kind("log") if level in (None, it["level"])]

    def levels(self, text):
        """The levels of the log lines with exactly this text."""
        return [it["level"] for it in self.of_kind("log") if it["text"] == text]

    def statuses(self):
        return [(it["profile"], it["status"]) for it in self.of_kind("status")]

    def transfers(self):
        """Arguments of every run of curl but the one that asks for its version."""
        launches = [it["arguments"] for it in self.of_kind("launch")]
        return [arguments for arguments in launches if arguments != ["./curl", "-V"]]

    def faults(self):
        return [it["text"] for it in self.of_kind("fault")]


class HostRun:
    """A running host; its happenings can be read while it runs."""

    def __init__(self, arguments):
        # A file, since nobody reads it before the end and a pipe might fill up.
        self._errors = tempfile.TemporaryFile()
        self._process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL,
                                         stdout=subprocess.PIPE, stderr=self._errors)
        self._lines = []

    def read_until(self, wanted):
        """Reads happenings until one is wanted; False when the host ends before."""
        for line in self._process.stdout:
            self._lines.append(line)
            if wanted(json.loads(line)):
                return True
        return False

    def signal(self, number):
        self._process.send_signal(number)

    def finish(self):
        """Waits for the end. Returns timeline, exit status and what came on standard error."""
        output, _ = self._process.communicate(timeout=2 * RUN_LIMIT)
        self._lines += output.splitlines()
        self._errors.seek(0)
        errors = self._errors.read().decode(errors="replace")
        return Timeline(self._lines), self._process.returncode, errors

    def kill(self):
        if self._process.poll() is None:
            self._process.kill()
        self._process.communicate()
        self._errors.close()


class RoadTest(unittest.TestCase):
    maxDiff = 4000

    def setUp(self):
        self.top = pathlib.Path(tempfile.mkdtemp(prefix="notifypi-e2e-"))
        self.addCleanup(shutil.rmtree, self.top, ignore_errors=True)
        self.folder = self.top / "host"
        self.folder.mkdir()
        (self.folder / "curl").symlink_to(CURL)
        self._servers = 0
        self._runs = 0

    # --- the stage ----------------------------------------------------------------------------

    def start_server(self, *options):
        self._servers += 1
        server = MailServer(self.top / f"mailbox{self._servers}", options)
        self.addCleanup(server.close)
        return server

    def closed_port(self):
        """A port that refuses connections, and is nobody else's until the test ends."""
        taken = socket.socket()
        self.addCleanup(taken.close)
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]

    def configure(self, servers, profiles=None):
        """Writes notify.xml. Servers are elements, or ports of plain servers."""
        servers = [smtp_server(it) if isinstance(it, int) else it for it in servers]
        document = notify_document(servers, profiles or [profile()])
        (self.folder / "notify.xml").write_bytes(document)

    def replace_curl(self, script, version=f"{CURL} -V"):
        """./curl becomes a shell script; asked for its version, it answers as the real one does."""
        path = self.folder / "curl"
        path.unlink()
        path.write_text(f'#!/bin/sh\n[ "$1" = -V ] && exec {version}\n{script}\n')
        path.chmod(0o755)

    # --- the play -----------------------------------------------------------------------------

    def start_host(self, *steps, settle=0.3, limit=RUN_LIMIT, options=(), wrapper=(),
                   plugin=PLUGIN):
        """Steps are lines of a scenario, or pairs of a document's kind and its bytes.

        Events that ask for no mail are waited for settle seconds; a run that is not done within
        limit seconds is at fault. The wrapper is what the command runs under."""
        self._runs += 1
        lines = []
        for number, step in enumerate(steps):
            if not isinstance(step, str):
                kind, document = step
                path = self.top / f"run{self._runs}-step{number}.xml"
                path.write_bytes(document)
                step = f"{kind} {path.name}"
            lines.append(step)
        scenario = self.top / f"run{self._runs}.steps"
        scenario.write_text("\n".join(lines) + "\n")
        run = HostRun([*wrapper, COMMAND, "host", "--plugin", plugin, "--directory", self.folder,
                       "--json", "--timeout", str(limit), "--settle", str(settle),
                       "--script", scenario, *options])
        self.addCleanup(run.kill)
        return run

    def finish_host(self, run):
        timeline, status, errors = run.finish()
        if timeline.faults() or errors or status != 0:
            last = "\n".join(str(it)[:300] for it in timeline.happenings[-5:])
            self.fail(f"exit status {status}, faults {timeline.faults()}; on standard error:\n"
                      f"{errors[:4000]}\nlast in the timeline:\n{last}")
        return timeline

    def run_host(self, *steps, **options):
        return self.finish_host(self.start_host(*steps, **options))

    # --- the review ---------------------------------------------------------------------------

    def spool(self):
        """Names of the files left in the data folder."""
        data = self.folder / "data"
        return sorted(path.name for path in data.iterdir()) if data.exists() else []

    def assert_nothing_injected(self):
        """The working folder holds what the plug-in and the test put there, nothing else."""
        known = {"curl", "notify.xml", "notify.xml.rejected", "data", "notifylog.txt"}
        self.assertEqual({path.name for path in self.folder.iterdir()} - known, set())


def main():
    """Runs the tests of the calling module; for ctest, all skipped is neither good nor bad."""
    outcome = unittest.main(module="__main__", exit=False, verbosity=2).result
    if not outcome.wasSuccessful():
        sys.exit(1)
    sys.exit(ALL_SKIPPED if outcome.testsRun and len(outcome.skipped) == outcome.testsRun else 0)
