"""`notifypi preview` against the plug-in: the same facts make the same bytes."""
import json
import os
import pty
import subprocess

import road
from road import RoadTest, event_document, profile

TEMPLATES = [
    profile(1, sender="NVR <nvr@example.com>", to=["Guard <guard@example.com>", "b@example.com"],
            cc=["c@example.com"], bcc=["Hidden <hidden@example.com>"],
            subject="{event type} at {source} {serial}{serial} {weblink}",
            body="{event state} of {event type} at {source}\r\n{system name}|{licensed mac}|"
                 "{serial}|{serial}\n{weblink} {foo} T\udcfcr {bar\r\n"),
    profile(2, subject="{date} {foo} {event type}",
            body='{time} { date format="%A %d.%m."} {date format="%Q"} {source} {weblink}{weblink}'
                 ' {foo {serial}} {date format="{source}"} {'),
    profile(3, subject="No placeholder\r\nX-Header: none", body=""),
]

# Event document and what the preview is told of it. The source text is the plug-in's own.
EVENTS = [
    ({}, ["--source", "Video Input 2-1"]),
    ({"event_type": 6, "source": 0x10500, "alarm": 0},
     ["--type", "button", "--state", "end", "--source", "Button 5"]),
    ({"event_type": 8}, ["--type", "Storage"]),
    ({"event_type": 23, "source": 0x10300}, ["--type", "23", "--source", "Device Fan 3"]),
    ({"event_type": 99}, ["--type", "99", "--source", "Unknown"]),
    ({"event_type": 0}, ["--type", "0", "--source", "Unknown"]),
    ({"message": "Testing Profile", "event_type": 8}, ["--test"]),
]


class PreviewTest(RoadTest):
    def setUp(self):
        super().setUp()
        # Keeps what is sent, with its attachments.
        self.replace_curl(f"cp -r data/. {self.top}/spooled")
        (self.top / "spooled").mkdir()

    def spooled(self):
        [message] = (self.top / "spooled").glob("notify-mail-*")
        content = message.read_bytes()
        message.unlink()
        return content

    def preview(self, *arguments, status=0, **options):
        run = subprocess.run([road.COMMAND, "preview", self.folder / "notify.xml", *arguments],
                             capture_output=True, check=False, timeout=road.RUN_LIMIT, **options)
        self.assertEqual(run.returncode, status, (arguments, run.stdout, run.stderr))
        return run

    def previewed(self, *arguments):
        """The message that --eml writes. Findings do not matter."""
        path = self.top / "preview.eml"
        run = subprocess.run([road.COMMAND, "preview", self.folder / "notify.xml", *arguments,
                              "--time", str(road.EVENT_TIME), "--milliseconds", "250",
                              "--serial", "A-1001", "--system", "Main building", "--mac", "",
                              "--eml", path], capture_output=True, check=False)
        self.assertIn(run.returncode, (0, 1), run.stderr)
        self.assertEqual(run.stderr, b"")
        return path.read_bytes()

    def test_messages_are_those_that_the_plug_in_spools(self):
        self.configure([self.closed_port()], [it.replace('EventEdge="0"', 'EventEdge="2"')
                                              for it in TEMPLATES])
        for number in range(1, len(TEMPLATES) + 1):
            for event, options in EVENTS:
                with self.subTest(profile=number, event=event):
                    self.run_host(("event", event_document(number, **event)))
                    self.assertEqual(self.previewed("--profile", str(number), *options),
                                     self.spooled())

    def test_a_message_with_a_movie_and_a_failed_one(self):
        self.configure([self.closed_port()],
                       [profile(body="{date}").replace('attach="0"', 'attach="1"')])
        (self.folder / "data/Video Input 3-1.mov").mkdir(parents=True)
        second = road.element("EventSource", {"ID": 66305, "Type": 2})
        event = event_document().replace(b"</Profile>", road.to_bytes(second + "</Profile>"))
        self.run_host("camera 66049 h264", "camera 66305 h264", "wait 4", ("event", event),
                      "wait idle")
        spooled = self.spooled()
        [note] = [line[2:] for line in spooled.splitlines() if line.startswith(b"- ")]
        self.assertTrue(note.startswith(b"Failed to prepare video attachment for source"), note)
        movie = self.top / "spooled/Video Input 2-1.mov"
        self.assertGreater(movie.stat().st_size, 1000)
        self.assertEqual(self.previewed("--attach", movie, "--failed-attachment", note), spooled)

    def test_the_message_alone_on_standard_output(self):
        self.configure([25], [profile(subject="{foo}")])
        run = self.preview("--eml", status=1)
        self.assertEqual(run.stdout, b"From: nvr@example.com\r\nTo: guard@example.com\r\n"
                                     b"Subject: {foo}\r\n\r\nLook.\r\n")
        self.assertIn(b"= subject 1:1 {foo} stays: no placeholder\n", run.stderr)

    def test_for_machines(self):
        self.configure([25], [profile(subject="{event type} {foo}", bcc=["X <x@example.com>"])])
        found = json.loads(self.preview("--json", status=1).stdout)
        self.assertEqual((found["subject"], found["bcc"], found["findings"]),
                         ("Video Motion {foo}", ["x@example.com"], 1))
        self.assertEqual([(it["fate"], it["token"], it["column"]) for it in found["tokens"]],
                         [("replaced", "{event type}", 1), ("left", "{foo}", 14)])

    def test_exit_status_and_what_is_said(self):
        profiles = [profile(1), profile(7, description="Ya\x1brd", to=["nobody"])]
        self.configure([25], profiles)
        cases = [
            (["--profile", "1"], 0, b"    Subject: Alarm\n\n    Look.\n"),
            (["--profile", "7"], 1, b'! to "nobody" is no address: the message cannot be sent\n'),
            ([], 2, b'which profile? there are\n  1  "Gate"\n  7  "Ya\\x1brd"\n'),
            (["--profile", "3"], 2, b'no profile 3, there are\n  1  "Gate"\n  7  "Ya\\x1brd"\n'),
            (["--profile", "1", "--type", "Vdeo"], 2, b'no event type "Vdeo"'),
            (["--profile", "1", "--time", "2026-02-30 12:00:00"], 2, b"is no time"),
            (["--profile", "1", "--part", "3", "--parts", "2"], 2, b"only 2 parts"),
            (["--profile", "1", "--attach", "missing.mov"], 2, b"missing.mov"),
            (["--profile", "1", "--eml", "/missing/folder"], 2, b"cannot be written"),
        ]
        for arguments, status, said in cases:
            with self.subTest(arguments):
                run = self.preview(*arguments, status=status)
                self.assertIn(said, run.stderr if status == 2 else run.stdout)
        for content, said in ((b"<tDVR", b"cannot read this"), (None, b"no such file")):
            path = self.folder / "notify.xml"
            path.write_bytes(content) if content else path.unlink()
            self.assertIn(said, self.preview(status=2).stderr)

    def test_colour_is_for_terminals_that_want_it(self):
        self.configure([25], [profile(subject="{serial}")])
        for terminal, variables, coloured in (
                (True, {"TERM": "xterm"}, True), (True, {"TERM": "dumb"}, False),
                (True, {"TERM": "xterm", "NO_COLOR": "1"}, False), (False, {"TERM": "xterm"}, False)):
            with self.subTest(terminal=terminal, variables=variables):
                environment = {"PATH": os.environ["PATH"], **variables}
                if terminal:
                    ours, theirs = pty.openpty()
                    subprocess.run([road.COMMAND, "preview", self.folder / "notify.xml"],
                                   stdout=theirs, env=environment, check=True)
                    os.close(theirs)
                    printed = os.read(ours, 65536)
                    os.close(ours)
                else:
                    printed = self.preview(env=environment).stdout
                self.assertIn(b"A-1001", printed)
                self.assertEqual(b"\x1b[32mA-1001\x1b[0m" in printed, coloured)
                self.assertEqual(b"\x1b" in printed, coloured)


if __name__ == "__main__":
    road.main()
