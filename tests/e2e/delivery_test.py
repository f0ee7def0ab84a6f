"""Events that become mails: what arrives is what profile and event ask for, byte for byte."""
import road
from road import DELIVERED, RoadTest, event_document, profile


class DeliveryTest(RoadTest):
    def setUp(self):
        super().setUp()
        self.server = self.start_server()

    def deliver(self, *profiles, events=None):
        """One run; returns its timeline and the mails."""
        self.configure([self.server.port], profiles)
        events = events or [event_document()]
        timeline = self.run_host(*[("event", event) for event in events])
        self.assertEqual(self.spool(), [])
        return timeline, self.server.received()

    def test_event_becomes_a_mail(self):
        timeline, mails = self.deliver(profile(
            sender="NVR <nvr@example.com>", to=["Guard <guard@example.com>"],
            subject="{event type} at {source}",
            body='{event state} of {event type}\r\n'
                 '{date format="%Y"} by {system name}, {serial}\r\n'))
        self.assertEqual([mail.content for mail in mails], [
            b"From: nvr@example.com\r\n"
            b"To: guard@example.com\r\n"
            b"Subject: Video Motion at Video Input 2-1\r\n"
            b"\r\n"
            b"Start of Video Motion\r\n"
            b"2017 by Main building, A-1001\r\n"])
        self.assertEqual(mails[0].sender, "nvr@example.com")
        self.assertEqual(mails[0].recipients, ["guard@example.com"])
        self.assertFalse(mails[0].tls)
        self.assertEqual(timeline.statuses(), [(1, DELIVERED)])
        self.assertEqual(timeline.levels(road.ATTEMPT.format("Gate", 0)), [road.INFORMATION])
        self.assertEqual(timeline.levels(
            "Profile Gate: PreTrigger(0), MaxDuration(0), MaxSizeMB(10), "
            "event source (Video Input 2-1), event state (Start)"), [road.INFORMATION])

    def test_every_recipient_is_in_the_envelope_and_bcc_only_there(self):
        _, [mail] = self.deliver(profile(
            to=["a@example.com", "Second <b@example.com>"], cc=["c@example.com", "d@example.com"],
            bcc=["hidden@example.com", "Secret <secret@example.com>"]))
        self.assertEqual(mail.recipients, [
            "a@example.com", "b@example.com", "c@example.com", "d@example.com",
            "hidden@example.com", "secret@example.com"])
        self.assertEqual(mail.content, (
            b"From: nvr@example.com\r\nTo: a@example.com\r\nTo: b@example.com\r\n"
            b"Cc: c@example.com\r\nCc: d@example.com\r\nSubject: Alarm\r\n\r\nLook.\r\n"))

    # The file is uploaded as it is. To end the message with a line of one dot, curl sends CRLF
    # before the dot unless the file ends in CRLF; that line end is part of what the server keeps.
    def test_body_arrives_byte_for_byte(self):
        bodies = {
            "empty": ("", ""),
            "no final line end": ("last", "last\r\n"),
            "final bare LF": ("last\n", "last\n\r\n"),
            "final bare CR": ("last\r", "last\r\r\n"),
            "dots": (".one\r\n..two\r\n.\r\nend\r\n", None),
            "dots behind bare LF": ("a\n.\nb\n..\nc\r\n", None),
            "end of data and commands": (
                "x\r\n.\r\nMAIL FROM:<e@example.com>\r\nRCPT TO:<e@example.com>\r\nDATA\r\n", None),
            "bare LF and bare CR": ("a\nb\rc\n\nd\r\n", None),
            "blank lines and blanks": ("\r\n\r\n  two blanks  \r\n\ttab\r\n\r\n", None),
            "long line": ("y" * 150_000 + "\r\n", None),
            "utf-8": ("Tür geöffnet – 門\r\n", None),
            "other 8-bit bytes": ("T\udcfcr \udcff\udc80\r\n", None),
            "markup": ("<b>&amp; \"'</b> ]]> <!-- -->\r\n", None),
        }
        profiles = [profile(number, description=name, body=body)
                    for number, (name, (body, _)) in enumerate(bodies.items(), 1)]
        events = [event_document(number) for number in range(1, len(bodies) + 1)]
        timeline, mails = self.deliver(*profiles, events=events)
        self.assertEqual(len(mails), len(bodies), timeline.log())
        for (name, (body, arrives)), mail in zip(bodies.items(), mails):
            with self.subTest(name):
                header, _, content = mail.content.partition(b"\r\n\r\n")
                self.assertEqual(header.count(b"\r\n"), 2)
                self.assertEqual(content, road.to_bytes(body if arrives is None else arrives))

    def test_test_notification(self):
        _, [mail] = self.deliver(
            profile(subject="{event type} {source}", body="Body.\r\n", edge=1),
            events=[event_document(message="Testing Profile")])
        self.assertEqual(mail.content, (
            b"From: nvr@example.com\r\nTo: guard@example.com\r\n"
            b"Subject: [Test Event Type] [Test Event Source]\r\n\r\n"
            b"Testing Profile\r\nBody.\r\n"))

    def test_only_due_events_of_known_profiles_are_sent(self):
        timeline, mails = self.deliver(
            profile(1, subject="start"), profile(2, subject="end", edge=1),
            profile(3, subject="both", edge=2),
            events=[event_document(number, alarm) for number in (1, 2, 3) for alarm in (1, 0)] +
                   [event_document(99), event_document(2, message="Testing Profile ")])
        subjects = [mail.content.split(b"\r\n")[2] for mail in mails]
        self.assertEqual(subjects, [b"Subject: start", b"Subject: end", b"Subject: both",
                                    b"Subject: both"])
        self.assertIn("Received a notification request for an unknown profile 99. "
                      "Request will be ignored", timeline.log(road.INFORMATION))

    def test_throttle_holds_back_what_comes_too_soon(self):
        self.configure([self.server.port], [profile(1, subject="hour", throttle=3600),
                                            profile(2, subject="second", throttle=1)])
        events = [("event", event_document(number)) for number in (1, 2)]
        timeline = self.run_host(*events, *events, "wait idle", "wait 1.1", *events)
        subjects = [mail.content.split(b"\r\n")[2] for mail in self.server.received()]
        self.assertEqual(subjects, [b"Subject: hour", b"Subject: second", b"Subject: second"])
        self.assertEqual(timeline.statuses(), [(1, DELIVERED), (2, DELIVERED), (2, DELIVERED)])


if __name__ == "__main__":
    road.main()
