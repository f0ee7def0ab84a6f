"""Why a mail failed, on the screen of `notifypi test` and `notifypi host`: real curl, real server. No
command changes a file of the user."""
import base64
import re
import subprocess

import road
from road import profile, smtp_server

# What fails; the server's options, None for no server; how it is configured; a script that is ./curl,
# None for none; the cause.
SHORT = f'exec {road.CURL} "$@" --connect-timeout 1'
CASES = [
    ("wrong password", ["--auth", "u:p"], {"login": ("u", "x")}, "", "refuses the user name or"),
    ("wrong port", None, {}, "", "nobody listens at this port"),
    ("TLS where there is none", [], {"tls": 1}, "", "does not speak TLS from the first byte"),
    ("STARTTLS where there is none", [], {"tls": 2}, "", "does not offer STARTTLS"),
    ("no TLS where it is wanted", ["--tls", "smtps"], {}, SHORT, "does not greet, as one does that"),
    ("unreachable", None, {"address": "255.255.255.255"}, "", "cannot be reached from here"),
    ("unknown name", None, {"address": "no.such.invalid"}, SHORT, "Nobody knows a host of this name"),
    ("530", ["--refuse", "MAIL=530 5.7.0 Authentication required"], {}, "", "no mail without login"),
    ("530 TLS", ["--refuse", "MAIL=530 Must issue a STARTTLS command"], {}, "", "by TLS only"),
    ("550", ["--refuse", "RCPT"], {}, "", "refuses a recipient, and with it the mail for all"),
    ("450", ["--refuse", "RCPT=450 4.2.0 Greylisted"], {}, "", "refuses a recipient for now"),
    ("552", ["--refuse", "DATA=552 5.3.4 Too big"], {}, "", "larger than the server or the mailbox"),
    ("421", ["--refuse", "CONNECT=421 Busy"], {}, "", "too busy, or about to stop"),
    ("454", ["--auth", "u:p", "--refuse", "AUTH=454 4.7.0 Later"], {"login": ("u", "p")}, "",
     "cannot check logins just now"),
    ("454 TLS", ["--tls", "starttls", "--refuse", "STARTTLS"], {"tls": 2}, "", "cannot do TLS just now"),
    ("broken off", ["--refuse", "DATA=lost"], {}, "", "connection broke while a reply was due"),
    ("curl missing", [], {}, None, 'no program "curl" in the working folder'),
    ("curl without smtp", [], {}, f'exec {road.CURL} "$@" --proto =http', "cannot send mail"),
    ("curl killed", [], {}, "kill -9 $$", "A signal ended curl"),
]


class FailuresTest(road.RoadTest):
    def run_command(self, *arguments, limit=""):
        done = subprocess.run(["/bin/sh", "-c", f'{limit} exec "$@"', "sh", road.COMMAND, *arguments],
                              cwd=self.folder, capture_output=True, text=True, check=False)
        return done.returncode, done.stdout + done.stderr

    def files(self):
        return {str(it): ((stat := it.lstat()).st_mode, stat.st_mtime_ns, it.is_file() and it.read_bytes())
                for it in self.folder.rglob("*")}

    def assert_explained(self, cause, *arguments, status=1, limit=""):
        """On both screens, in one sentence with its cure behind it; and nothing has changed."""
        before = self.files()
        for command in (["test", "notify.xml", *arguments],
                        ["host", "--event", "event.xml", "--expect-delivery", *arguments],
                        ["host", "--event", "event.xml", "--expect-delivery", "--watch", *arguments]):
            code, text = self.run_command(*command, limit=limit)
            self.assertEqual((code, text.count(cause)), (status, 1), text)
            self.assertRegex(text.split(cause)[1], r"^[^.]*\.(\n  cure    | )[A-Z][^\n]*\n", text)
        self.assertEqual(self.files(), before)

    def test_disk_full_and_no_frames(self):
        (self.folder / "event.xml").write_bytes(road.event_document())
        self.configure([self.start_server().port], profile(body='{date format="%c%c%c"}' * 400))
        self.assert_explained("could not be written down", limit="trap '' XFSZ; ulimit -f 32;")
        self.configure([self.start_server().port], profile(attach=1), EmailSizeLimitMB=0)
        self.assert_explained("No picture of the event's camera has come", "--camera", "66049 jpeg",
                              status=0)

    def test_shows_each_stage_and_hides_the_login(self):
        (self.folder / "event.xml").write_bytes(road.event_document())
        server = self.start_server("--tls", "starttls", "--auth", "nvr:secret")
        self.configure([smtp_server(9, "Down"), smtp_server(server.port, "Up", tls=2,
                                                            login=("nvr", "secret"))])
        code, text = self.run_command("test", "notify.xml", "--server", "Up", "--verbose")
        self.assertEqual(re.findall(r"^  ok      ([\w-]+)", text, re.M), [
            "name", "connection", "greeting", "TLS", "login", "sender", "recipients", "message"])
        status, records = self.run_command("host", "--event", "event.xml", "--bytes", "--expect-delivery")
        self.assertEqual((code, status, len(server.received())), (0, 0, 2), text)
        self.assertIn("> [hidden]", text)
        for word in "secret", base64.b64encode(b"\0nvr\0secret").decode():
            self.assertNotIn(word, text + records)
        self.assertNotIn("Down", text)

    def test_no_command_changes_a_file(self):
        (self.folder / "event.xml").write_bytes(road.event_document())
        (self.folder / "data").mkdir()
        (self.folder / "data/notify-mail-1-1-0-0").write_text("of a server that is running")
        (self.folder / "notify.xml").write_text(
            '<tDVR><!-- mine --><Notify ID="786432"><Servers/><Profiles><smtp ID="three"/></Profiles>'
            "</Notify></tDVR>")
        before = self.files()
        for command, status in (("host --settle 0.1 --event event.xml", 0), ("host --settle 0.1 --event event.xml --watch", 0),
                                ("host --settle 0.1 --event event.xml --bytes --speed 9", 0), ("check notify.xml", 1),
                                ("test notify.xml", 2), ("preview notify.xml", 2)):
            self.assertEqual(self.run_command(*command.split(), limit="")[0], status, command)
            self.assertEqual(self.files(), before, command)

    def test_each_failure_has_one_cause_and_one_cure(self):
        (self.folder / "event.xml").write_bytes(road.event_document())
        for name, options, server, curl, cause in CASES:
            with self.subTest(name):
                port = self.closed_port() if options is None else self.start_server(*options).port
                self.configure([smtp_server(port, **server)])
                (self.folder / "curl").unlink(missing_ok=True)
                if curl is not None:
                    (self.folder / "curl").symlink_to(road.CURL)
                if curl:
                    self.replace_curl(curl)
                self.assert_explained(cause)
