"""Mails are what profile and event ask for, byte for byte, and what `notifypi preview` shows."""
import base64
import email
import email.policy
import json
import re
import subprocess

import road
from road import DELIVERED, EVENT_TIME, RoadTest, event_document, profile

# Would be header lines, words of a shell, options of curl, printf directives, markup.
LINE_BREAKS = "one\r\nBcc: evil@example.com\n\nX-Evil: 1\rlast"
NAME = LINE_BREAKS.replace("\r", " ").replace("\n", " ")
SHELL = "$(touch injected) `touch injected`; touch injected & \\\" ' %s%n%99999d <a/> &#x41; ]]>"
WORDS = ["--output=injected@example.com", "`touch${IFS}injected`@example.com", "%s%n@example.com"]

BODY = ("a\n.\nb\r\n..\r\n.\r\nMAIL FROM:<e@example.com>\r\n  two blanks  \r\n\tab\r\r\n\r\n" +
        "y" * 150_000 + "\r\n<b>&amp; \"'</b> ]]> <!-- -->\r\nTür – 門 T\udcfcr \udcff\udc80\r\n")

TEMPLATE = ('{time} { date format="%A %d.%m."} {date format="%Q"} {weblink}{weblink} {serial}{serial} {source} '
            '{licensed mac} {foo {serial}} {date format="{source}"} {event state} {event type} {\r\n')

# Profile; event; what the preview is told of it, which shows no line end behind the last line; and
# the mail: recipients, subject, body, and what the header shows between From and Subject.
CASES = {
    "an event": (
        {"sender": "NVR <nvr@example.com>", "to": ["Guard <guard@example.com>"],
         "subject": "{event type} at {source}", "EventEdge": 2,
         "body": '{event state} of {event type}\r\n{date format="%Y"} by {system name}, {serial}\r\n'},
        {"Alarm": 0}, ["--state", "end", "--source", "Video Input 2-1"],
        (["guard@example.com"], "Video Motion at Video Input 2-1",
         "End of Video Motion\r\n2017 by Main building, A-1001\r\n")),
    "a test message": (
        {"subject": "{event type} {source}", "EventEdge": 1}, {"Message": "Testing Profile"},
        ["--test"], (["guard@example.com"], "[Test Event Type] [Test Event Source]",
                     "Testing Profile\r\nLook.\r\n")),
    "a body": ({"body": BODY}, {}, [], (["guard@example.com"], "Alarm", BODY)),
    # To end the message with a line of one dot, curl sends CRLF unless the file ends in it.
    "no line end": ({"body": "last\n"}, {}, None, (["guard@example.com"], "Alarm", "last\n\r\n")),
    "texts": (
        {"subject": LINE_BREAKS + SHELL + "{system name}", "body": "{system name}\r\n",
         "description": SHELL}, {"system": LINE_BREAKS}, ["--system", LINE_BREAKS],
        (["guard@example.com"],  # of a name each control character becomes a blank
         "one Bcc: evil@example.com X-Evil: 1 last" + SHELL + NAME, NAME + "\r\n")),
    "addresses": (
        {"sender": "-K@example.com", "to": WORDS + [
            "Evil\r\nBcc: x <a@example.com>", '"b" <b@example.com> --output injected',
            "c@example.com;touch injected"]}, {}, [],
        ([*WORDS, "a@example.com", "b@example.com", "c@example.com"], "Alarm", "Look.\r\n")),
    "recipients": (  # all in the envelope, and Bcc only there
        {"to": ["a@example.com", "Second <b@example.com>"], "cc": ["c@example.com"],
         "bcc": ["hidden@example.com", "Secret <d@example.com>"]}, {}, [],
        ([f"{it}@example.com" for it in ("a", "b", "c", "hidden", "d")], "Alarm", "Look.\r\n",
         "To: a@example.com", "To: b@example.com", "Cc: c@example.com")),
    "dates and kinds": (  # what these become is told by the preview
        {"subject": "{date} {foo}", "body": TEMPLATE}, {"event_type": 23, "sources": [0x10300]},
        ["--type", "23", "--source", "Device Fan 3"], None),
}

# A web link's cameras and seconds around the event; those with action 7 are shown from before it.
CAMERAS, BEFORE, AFTER = (66049, 0x0FFFFFFF), 5, 30
SYSTEM = f'<tDVR Delta="0"><Events><Event ID="7" PreAlarm="{BEFORE}"/></Events></tDVR>'.encode()


class DeliveryTest(RoadTest):
    def preview(self, number, options):
        path = self.new_path("preview.eml")
        run = subprocess.run(
            [road.COMMAND, "preview", self.folder / "notify.xml", "--profile", str(number), "--time", str(EVENT_TIME),
             "--milliseconds", "250", "--serial", "A-1001", "--mac", "",
             *(options if "--system" in options else ["--system", "Main building", *options]), "--eml", path],
            capture_output=True, check=False)
        self.assertIn(run.returncode, (0, 1), run.stderr)  # findings do not matter
        return path.read_bytes()

    def test_mails_are_those_that_profile_and_event_ask_for(self):
        server = self.start_server()
        self.configure([server.port], *[profile(number, **{"description": name, **asked})
                                        for number, (name, (asked, *_)) in enumerate(CASES.items(), 1)])
        timeline = self.run_host(*[("event", event_document(number, **event))
                                   for number, (_, event, *_) in enumerate(CASES.values(), 1)])
        self.assertEqual(timeline.statuses(), [(it + 1, DELIVERED) for it in range(len(CASES))])
        self.assertEqual(self.spool() + [*self.folder.glob("*inj*")], [])
        for number, (name, (asked, _, options, wanted)) in enumerate(CASES.items(), 1):
            with self.subTest(name):
                mail = server.received()[number - 1]
                sender = "-K@example.com" if "-K" in asked.get("sender", "") else "nvr@example.com"
                if wanted:
                    recipients, subject, body, *shown = wanted
                    self.assertEqual((mail.mail_from, mail.rcpt_tos), (sender, recipients))
                    lines = [f"From: {sender}", *(shown or [f"To: {it}" for it in recipients]), f"Subject: {subject}"]
                    self.assertEqual(mail.content, road.to_bytes("\r\n".join(lines) + "\r\n\r\n" + body))
                if options is not None:
                    self.assertEqual(self.preview(number, options), mail.content)
                self.assertEqual(timeline.levels(road.ATTEMPT.format(asked.get("description", name), 0)),
                                 [road.INFORMATION])

    def test_with_standard_delivery_a_reader_of_today_sees_the_same(self):
        cases = {name: case for name, case in CASES.items() if case[3] and name != "no line end"}
        server = self.start_server()
        self.configure([server.port], *[profile(number, **case[0], attach=1)
                                        for number, case in enumerate(cases.values(), 1)],
                       delivery={"Standard": 1, "HelloName": "nvr.example.com"})
        self.run_host(*[("event", event_document(number, **case[1]))
                        for number, case in enumerate(cases.values(), 1)])
        no_video = ('\n- Failed to prepare video attachment for source: ""Video Input 2-1"", '
                    "there is no video of it\n")
        for mail, (name, (_, event, _, (recipients, subject, body, *_))) in zip(
                server.received(), cases.items(), strict=True):
            with self.subTest(name):
                message = email.message_from_bytes(mail.content, policy=email.policy.default)
                self.assertEqual((mail.rcpt_tos, message["Subject"]), (recipients, subject))
                self.assertNotRegex(mail.content, rb"(?<!\r)\n|\r(?!\n)|[^\r\n]{999}|[\x80-\xff]")
                text = message.get_body(("plain",)).get_content()
                body = road.to_bytes(body).decode("cp1252") if "\udcfc" in body else body
                ended = body + no_video if "Message" not in event else body
                self.assertEqual(*(re.sub("\r\n|\r|\n", "\n", it).rstrip("\n") for it in (text, ended)))

    def test_a_link_asks_for_cameras_and_window(self):
        server = self.start_server()
        web = "127.0.0.1:" + str(self.start("web_server.py", "--system", "B-2", "1", "M",
                                            "--system", "A-1001", 'id "7"&é'))
        self.configure([server.port], profile(body="{weblink}", MaxVideoSeconds=AFTER), web="HTTPS://" + web)
        run = self.run_host(("system", SYSTEM), ("event", event_document(sources=CAMERAS)),
                            ("event", event_document(Message="Testing Profile")))
        self.assertEqual(run.statuses(), [(1, DELIVERED)] * 2)
        mail, test = server.received()
        self.assertIn(b"[Connected to Web Server]", test.content)
        address, link = mail.content.split(b"\r\n\r\n")[1].decode().split("#")
        self.assertEqual(address, f"http://{web}/advanced.web?s=id%20%227%22&%c3%a9;")
        self.assertEqual(json.loads(base64.b64decode(link.strip(), validate=True)), {
            "searchServerId": 'id "7"&é', "searchCameraIds": list(CAMERAS), "searchStart": (EVENT_TIME - BEFORE) * 1000,
            "searchEnd": (EVENT_TIME + AFTER) * 1000, "mode": "search", "quality": 7, "size": 100})
