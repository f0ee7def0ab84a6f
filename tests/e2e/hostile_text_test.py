"""Texts of configuration and events that try to become something else: a header line, an option of
curl, a word of a shell, a printf directive. They arrive as text, or not at all."""
import road
from road import DELIVERED, FAILED, RoadTest, event_document, profile, smtp_server

LINE_BREAKS = "one\r\nBcc: evil@example.com\nX-Evil: 1\rlast"
CONTROLS = "".join(chr(c) for c in range(1, 0x20)) + "\x7f"
SHELL = "$(touch injected) `touch injected`; touch injected | touch injected & \\\" ' %s%n%99999d"
MARKUP = "<smtp/> &amp; &#x41; &lt; \" ' ]]> --> {nothing} {"


class HostileTextTest(RoadTest):
    def setUp(self):
        super().setUp()
        self.server = self.start_server()

    def send(self, *profiles, servers=None, event=None):
        self.configure(servers or [self.server.port], profiles)
        timeline = self.run_host(("event", event or event_document()))
        self.assert_nothing_injected()
        return timeline

    def transfer_arguments(self, recipients=("guard@example.com",), sender="nvr@example.com"):
        """The one form that a transfer may have."""
        arguments = ["./curl", "--mail-from", sender]
        for recipient in recipients:
            arguments += ["--mail-rcpt", recipient]
        return arguments + [
            "--insecure", "--connect-timeout", "60", "--config", "-",
            "-T", f"./data/notify-mail-1-{road.EVENT_TIME}-250-0",
            f"smtp://127.0.0.1:{self.server.port}"]

    def test_subject_stays_one_line(self):
        subjects = {
            "line breaks": (LINE_BREAKS, "one Bcc: evil@example.com X-Evil: 1 last"),
            "ends the header": ("x\r\n\r\nbody", "x body"),
            "shell": (SHELL, SHELL),
            "markup": (MARKUP, MARKUP),
            "utf-8": ("Tür – 門 🚪", "Tür – 門 🚪"),
            "other 8-bit bytes": ("T\udcfcr \udcff", "T\udcfcr \udcff"),
            "leading blanks": ("  x  ", "  x  "),
        }
        for name, (subject, arrives) in subjects.items():
            with self.subTest(name):
                before = len(self.server.received())
                timeline = self.send(profile(subject=subject, body="B\r\n"))
                mail = self.server.received()[before]
                header, _, body = mail.content.partition(b"\r\n\r\n")
                self.assertEqual(body, b"B\r\n")
                lines = header.split(b"\r\n")
                self.assertEqual(lines[:2], [b"From: nvr@example.com", b"To: guard@example.com"])
                self.assertEqual(len(lines), 3)
                self.assertEqual(lines[2], road.to_bytes("Subject: " + arrives))
                self.assertEqual(mail.recipients, ["guard@example.com"])
                self.assertEqual(timeline.transfers(), [self.transfer_arguments()])

    def test_texts_of_events_cannot_add_lines(self):
        event = event_document().replace(
            b'Description="Main building"',
            b'Description="A&#13;&#10;Bcc: evil@example.com&#10;&#10;B {serial}"')
        self.send(profile(subject="{system name}", body="{system name}\r\n"), event=event)
        [mail] = self.server.received()
        header, _, body = mail.content.partition(b"\r\n\r\n")
        self.assertEqual(header.count(b"\r\n"), 2, header)
        self.assertEqual(mail.recipients, ["guard@example.com"])
        self.assertIn(b"Bcc: evil@example.com", body)  # where it is but text

    def test_addresses(self):
        # What the address filter lets through is a single word, whatever it looks like.
        words = ["-oinjected@example.com", "--output=injected@example.com", "@example.com",
                 "`touch${IFS}injected`@example.com", "a|touch${IFS}injected&@example.com",
                 "$HOME/../*?@example.com", "%s%n%d@example.com"]
        filtered = ["Evil\r\nBcc: x <a@example.com>", "a@example.com\r\nDATA\r\n",
                    '"a" <b@example.com> --output injected', "c@example.com;touch injected"]
        bare = ["a@example.com", "a@example.com", "b@example.com", "c@example.com"]
        for sender, to, recipients in (
                ("nvr@example.com", filtered, bare),
                ("-K@example.com", words[:2] + words[3:], words[:2] + words[3:])):
            with self.subTest(sender):
                before = len(self.server.received())
                timeline = self.send(profile(sender=sender, to=to))
                self.assertEqual(timeline.transfers(),
                                 [self.transfer_arguments(recipients, sender)])
                mail = self.server.received()[before]
                self.assertEqual(mail.recipients, recipients)
                self.assertEqual(mail.content, road.to_bytes(
                    f"From: {sender}\r\n" + "".join(f"To: {it}\r\n" for it in recipients) +
                    "Subject: Alarm\r\n\r\nLook.\r\n"))

    def test_without_a_valid_address_nothing_is_sent(self):
        for sender, to in (("nvr", ["a@example.com"]), ("nvr@example.com", ["@example.com"]),
                           ("nvr@example.com", ["a@example.com", "\"@\""])):
            with self.subTest(sender=sender, to=to):
                timeline = self.send(profile(sender=sender, to=to))
                self.assertEqual(timeline.transfers(), [])
                self.assertEqual(timeline.levels("Failed to prepare email notification file. "
                                                 "(Profile Description: Gate)"), [road.ERROR])
                self.assertEqual(timeline.statuses(), [(1, FAILED)])
                self.assertEqual(self.spool(), [])

    def test_descriptions_are_only_told(self):
        for description in (LINE_BREAKS, SHELL, MARKUP, CONTROLS, "T\udcfcr", "x" * 5000):
            with self.subTest(description[:20]):
                before = len(self.server.received())
                timeline = self.send(
                    profile(description=description),
                    servers=[smtp_server(self.server.port, description=description)])
                self.assertEqual(timeline.transfers(), [self.transfer_arguments()])
                self.assertEqual(timeline.statuses(), [(1, DELIVERED)])
                self.assertEqual(len(self.server.received()), before + 1)
                told = f"Profile Description: {description}. Notification attempt return code= 0"
                told = road.to_bytes(told)[:511].decode("utf-8", "replace")
                self.assertIn(told, timeline.log(road.INFORMATION))

    def test_addresses_of_servers(self):
        # None of these is the name of a server. What matters is that each stays one word of curl's.
        for address in ("127.0.0.1 -o injected", "127.0.0.1\n-o injected", "--output",
                        "a@127.0.0.1", f"127.0.0.1:{self.server.port}/x?", "", "..", "[::1",
                        "$(touch injected)", "file:///etc/passwd#", "{a,b}[1-9]", "x" * 3000):
            with self.subTest(address[:30]):
                timeline = self.send(profile(), servers=[
                    smtp_server(self.server.port, address=address)])
                [arguments] = timeline.transfers()
                self.assertEqual(arguments[:-1], self.transfer_arguments()[:-1])
                self.assertRegex(arguments[-1],
                                 r"^smtp://([A-Za-z0-9._~-]|%[0-9a-f]{2})*:\d+$")
                self.assertEqual(timeline.statuses(), [(1, FAILED)])
                self.assertEqual(self.server.received(), [])


class HostileLoginTest(RoadTest):
    def test_logins_reach_the_server_as_they_are(self):
        passwords = {
            "quotes and backslashes": '"pa\\"ss\\\\" \\n \\',
            "options": 'x"\noutput = "injected"\nurl = "smtp://127.0.0.1:1"\n# ',
            "line breaks": "a\r\nb\nc\rd",
            "tab and blanks": " a\tb  ",
            "colons": ":a::b:",
            "utf-8": "pässwörd門",
            "other 8-bit bytes": "p\udce4ss",
            "shell": SHELL,
            "markup": MARKUP,
            "reference": "&#x41;&#65;&amp;",
            "long": "p" * 200,
        }
        for name, password in passwords.items():
            with self.subTest(name):
                server = self.start_server("--auth", "n\"v\\r:" + password, "--require-auth")
                self.configure([smtp_server(server.port, login=('n"v\\r', password))])
                # Twice: what the first run wrote to notify.xml is what the second one reads.
                for count in (1, 2):
                    timeline = self.run_host(("event", event_document()))
                    self.assertEqual(len(server.received()), count, timeline.log())
                self.assert_nothing_injected()


if __name__ == "__main__":
    road.main()
