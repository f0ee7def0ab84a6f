"""notify.xml and its changes: what is read, written, kept, refused; and documents that are none."""
import random

import road
from road import (
    DELIVERED, RoadTest, element, event_document, notify_document, profile, smtp_server)

LOADED = "Loaded configuration from disk successfully"
NOT_LOADED = ("Either no configuration or an improper configuration was found, "
              "continuing with empty configuration.")
UPDATED = "Updated configuration successfully"

EMPTY = (
    b'<?xml ?>\n<tDVR Delta="0">\n    <Notify ID="786432" SupportsThrottleSeconds="1" '
    b'SupportsAttach="1" SupportsVideoAttach="1" SupportsStatus="1" SupportsEventEdge="1" '
    b'TemplateSupportLevel="3" IsSupported="1" SSL="2" MaxRetrySeconds="172800" '
    b'MaxRetryQueue="100" EmailSizeLimitMB="10">\n        <Web address="" />\n'
    b'        <Servers />\n        <Profiles autoincrement="1" />\n    </Notify>\n</tDVR>\n')


class NotifyXmlTest(RoadTest):
    def setUp(self):
        super().setUp()
        self.file = self.folder / "notify.xml"

    def kept(self):
        path = self.folder / "notify.xml.rejected"
        return path.read_bytes() if path.exists() else None

    def test_start_without_a_file(self):
        timeline = self.run_host("wait 0.1")
        self.assertEqual(timeline.levels(NOT_LOADED), [road.WARNING])
        self.assertEqual(timeline.levels(LOADED), [])
        self.assertEqual(self.file.read_bytes(), EMPTY)
        self.assertIsNone(self.kept())
        self.assertEqual(
            [(it["name"], it["version"]) for it in timeline.of_kind("module")],
            [("NotifyPI", "19.03.10.153605")])
        self.assertEqual([it["profiles"] for it in timeline.of_kind("config")], [[]])

    def test_a_good_file_says_the_same_ever_after(self):
        self.configure(
            [smtp_server(25, "A & \"B\"", tls=2, login=("u", "p&#x41;<>'\"")), smtp_server(465)],
            [profile(7, "First\nline", cc=["c@d.e"], bcc=["f@g.h"], throttle=60, edge=2,
                     subject=" {date} ", body="  two\r\n\r\n\tlines \udcfc\r\n"),
             profile(2, body="")])
        timeline = self.run_host("wait 0.1")
        self.assertEqual(timeline.levels(LOADED), [road.INFORMATION])
        self.assertEqual([(it["servers"], [p["id"] for p in it["profiles"]])
                          for it in timeline.of_kind("config")], [(2, [2, 7])])
        written = self.file.read_bytes()
        self.assertEqual(written.count(b"<smtp "), 4)
        self.run_host("wait 0.1")
        self.assertEqual(self.file.read_bytes(), written)
        self.assertIsNone(self.kept())

    def test_rejected_files_are_kept(self):
        good = notify_document([], [profile()])
        rejected = {
            "not XML": b"servers=1\n",
            "truncated": good[:len(good) // 2],
            "of another module": notify_document([], [profile()], module=786433),
            "without servers": b'<tDVR><Notify ID="786432"><Profiles/></Notify></tDVR>',
            "binary": bytes(range(256)) * 16,
            "nested": b"<a>" * 100_000,
            "empty": b"",
        }
        for name, content in rejected.items():
            with self.subTest(name):
                self.file.write_bytes(content)
                timeline = self.run_host("wait 0.05")
                self.assertEqual(timeline.levels(NOT_LOADED), [road.WARNING])
                self.assertEqual(self.kept(), content)
                self.assertEqual(self.file.read_bytes(), EMPTY)

    def test_a_folder_in_its_place(self):
        self.file.mkdir()
        (self.file / "file").touch()
        timeline = self.run_host("wait 0.1")
        self.assertEqual(timeline.levels(NOT_LOADED), [road.WARNING])

    def test_change_by_the_host_is_used_written_and_published(self):
        first, second = self.start_server(), self.start_server()
        self.configure([first.port], [profile(1, "Old")])
        change = notify_document([smtp_server(second.port)],
                                 [profile(1, "New"), profile(2, "Newer")], delta=1)
        timeline = self.run_host(
            ("event", event_document(1)), "wait idle", ("update", change),
            ("event", event_document(2)))
        self.assertEqual(timeline.levels(UPDATED), [road.INFORMATION])
        self.assertEqual((len(first.received()), len(second.received())), (1, 1))
        self.assertEqual([it["profiles"] for it in timeline.of_kind("config")], [
            [{"id": 1, "description": "Old"}],
            [{"id": 1, "description": "New"}, {"id": 2, "description": "Newer"}]])
        self.assertEqual(timeline.statuses(), [
            (1, DELIVERED), (1, road.UNKNOWN), (2, road.UNKNOWN), (2, DELIVERED)])
        # It is what the next start finds.
        timeline = self.run_host(("event", event_document(2)))
        self.assertEqual(timeline.statuses(), [(2, DELIVERED)])
        self.assertEqual(len(second.received()), 2)

    def test_rejected_changes_change_nothing(self):
        server = self.start_server()
        self.configure([server.port])
        no_delta = notify_document([], []).replace(b' Delta="0"', b"")
        self.run_host("wait 0.1")
        before = self.file.read_bytes()
        timeline = self.run_host(
            ("update", no_delta), ("update", notify_document([], [], delta=0)),
            ("update", notify_document([], [], delta=1, module=1)),
            ("update", b'<tDVR Delta="1"/>'),
            ("update", b'<tDVR Delta="1"><Notify ID="786432"><Servers/></Notify></tDVR>'),
            ("event", event_document()))
        self.assertEqual(timeline.levels(UPDATED), [])
        self.assertEqual(len(timeline.of_kind("config")), 1)  # the one of the start
        self.assertEqual(self.file.read_bytes(), before)
        self.assertEqual(timeline.statuses(), [(1, DELIVERED)])


class BadDocumentTest(RoadTest):
    """Each comes as a change, as a system document and as an event; then a good event passes."""

    def setUp(self):
        super().setUp()
        self.server = self.start_server()
        self.configure([self.server.port])

    def check(self, *documents, limit=road.RUN_LIMIT):
        self.run_host("wait 0.05")  # brings the file into the form that is kept
        before = (self.folder / "notify.xml").read_bytes()
        steps = []
        for document in documents:
            steps += [("update", document), ("system", document), ("event", document),
                      ("event", event_document())]
        timeline = self.run_host(*steps, limit=limit)
        self.assertEqual(timeline.statuses(), [(1, DELIVERED)] * len(documents))
        self.assertEqual(len(self.server.received()), len(documents))
        self.assertEqual((self.folder / "notify.xml").read_bytes(), before)
        self.assertEqual(self.spool(), [])

    def test_empty_and_blank(self):
        self.check(b"", b"\0", b" \r\n\t", b"\xef\xbb\xbf", b"<", b"</", b"<?", b"<!")

    def test_truncated(self):
        change = notify_document([], [profile(2)], delta=1)
        self.check(*[document[:cut] for document in (change, event_document())
                     for cut in (1, len(document) // 3, len(document) // 2, len(document) - 2)])

    def test_noise(self):
        noise = random.Random(1)
        damaged = bytearray(notify_document([], [profile(2)], delta=1))
        damaged[::7] = noise.randbytes(len(damaged[::7]))
        self.check(noise.randbytes(100_000), bytes(range(256)) * 64, bytes(damaged),
                   b"<" * 10_000, b"<a>" + b"&" * 10_000, b"<a>" + b"&#x" * 5_000)

    def test_endless_markup(self):
        self.check(b"<!--" + b"-" * 100_000, b"<tDVR>" + b"x" * 100_000,
                   b'<tDVR a="' + b"x" * 100_000, b"<a><![CDATA[" + b"]" * 100_000)

    def test_element_with_very_many_attributes(self):
        # Four megabytes. What compares every attribute with every other is at it for minutes.
        attributes = b" ".join(b'a%d=""' % number for number in range(400_000))
        self.check(b'<tDVR Delta="1"><a ' + attributes + b"/></tDVR>", limit=20)

    def test_nested(self):
        deep = 100_000
        self.check(
            b"<a>" * deep + b"</a>" * deep, b"<a>" * deep,
            b'<tDVR Delta="1">' + b"<Notify>" * deep + b"</Notify>" * deep + b"</tDVR>",
            b'<tDVR Delta="1">' + b"<a>" * 300 + b"</a>" * 300 + b"</tDVR>")

    def test_50_megabytes(self):
        size = 50 << 20
        entry = b'<Profile ID="99"/>'
        self.check(b"<tDVR>" + b"x" * size,
                   b'<tDVR><Notify ID="1"><Profiles>' + entry * (size // len(entry)))

    def test_events_with_odd_values(self):
        good = event_document()
        changes = [(b' Alarm="1"', b""), (b' Action="7"', b""), (b' ID="1"', b""),
                   (b' ID="1"', b' ID="99999999999999"'), (b' ID="1"', b' ID="one"'),
                   (b'"786432"', b'"786433"')]
        for change in changes:
            self.assertIn(change[0], good)
        server = element("Servers", None, element("Server", {"Serial": "s" * 200_000}))
        self.check(*[good.replace(*change) for change in changes],
                   road.to_bytes(element("tDVR", None, server)))


if __name__ == "__main__":
    road.main()
