"""notify.xml and its changes: what is read, written, kept, refused; and documents that are none."""
import json
import pathlib
import shutil
import subprocess

import road
from road import DELIVERED, UNKNOWN, RoadTest, events, notify_document, profile, smtp_server

LOADED = "Loaded configuration from disk successfully"
NOT_LOADED = ("Either no configuration or an improper configuration was found, "
              "continuing with empty configuration.")
UPDATED = "Updated configuration successfully"
FILES = sorted((pathlib.Path(__file__).parents[1] / "tools" / "configurations").glob("*.xml"))

# None is a document of the host's, each for a reason of its own. None may hurt or take long.
GOOD = notify_document([], [profile(2)], delta=1)
BAD = [
    b"", b"\0", b"\xef\xbb\xbf", b"<!--" + b"-" * 100_000, GOOD[:len(GOOD) // 2], GOOD[:-2],
    b"<a>" + b"&#x" * 5_000, b"<a>" * 100_000, b"<tDVR>" + b"x" * (17 << 20), b'<tDVR Delta="1"/>',
    b'<tDVR Delta="1"><a ' + b" ".join(b'a%d=""' % it for it in range(100_000)) + b"/></tDVR>",
    GOOD.replace(b' Delta="1"', b""), notify_document([], [], delta=1, module=1),
    b'<tDVR Delta="1"><Notify ID="786432"><Servers/></Notify></tDVR>']


class ConfigurationTest(RoadTest):
    def setUp(self):
        super().setUp()
        self.file = self.folder / "notify.xml"

    def test_start_without_a_file_and_with_folder_and_file_exchanged(self):
        for exchanged in (False, True):
            if exchanged:
                self.file.unlink()
                self.file.mkdir()
                (self.folder / "data").touch()
            timeline = self.run_host("wait 0.1")
            self.assertEqual(timeline.levels(NOT_LOADED), [road.WARNING])
            self.assertEqual([it["profiles"] for it in timeline.of_kind("config")], [[]])
            self.assertEqual(exchanged, any(
                it.startswith("Exception while clearing data subdirectory: ")
                for it in timeline.log(road.INFORMATION)))
            self.assertTrue(self.file.is_file())

    def test_what_the_file_says_is_kept_as_check_says_and_the_same_ever_after(self):
        def check():
            return json.loads(subprocess.run([road.COMMAND, "check", self.file, "--json"],
                                             stdout=subprocess.PIPE).stdout)

        own = self.top / "own.xml"
        own.write_bytes(notify_document(
            [smtp_server(25, 'A & "B"', tls=2, login=("u", "p&#x41;<>'\"")), 465],
            [profile(7, "First\nline", cc=["c@d.e"], bcc=["f@g.h"], ThrottleSeconds=60, EventEdge=2,
                     subject=" {date} ", body="  two\r\n\r\n\tlines \udcfc\r\n"),
             profile(2, body="")]))
        for path in (own, *FILES):
            with self.subTest(path.name):
                shutil.copy(path, self.file)
                self.file.chmod(0o600)
                report = check()
                timeline = self.run_host("wait 0.05")
                is_loaded = report["outcome"] == "loaded"
                self.assertEqual(timeline.levels(LOADED), [road.INFORMATION] * is_loaded)
                self.assertEqual(timeline.levels(NOT_LOADED), [road.WARNING] * (not is_loaded))
                if not is_loaded:
                    rejected = self.folder / "notify.xml.rejected"
                    self.assertEqual(rejected.read_bytes(), path.read_bytes())
                # Nothing is wrong with what the plug-in wrote, and it says the same.
                written, again = self.file.read_bytes(), check()
                self.assertEqual(again["kept"], report["kept"])
                self.assertNotIn("error", [it["severity"] for it in again["findings"]])
                if path == own:
                    self.run_host("wait 0.05")
                    self.assertEqual(self.file.read_bytes(), written)

    def test_a_change_is_used_written_and_published_and_a_bad_document_is_not(self):
        first, second = self.start_server(), self.start_server()
        self.configure([first.port], profile(1, "Old"))
        change = notify_document([second.port], [profile(1, "New"), profile(2, "Newer")], delta=1)
        timeline = self.run_host(
            *[(kind, document) for document in BAD for kind in ("update", "system", "event")],
            *events(1), "wait delivered 1", ("update", change), *events(2), "wait delivered 2",
            options=["--settle", 0])
        self.assertEqual(timeline.levels(UPDATED), [road.INFORMATION])
        self.assertEqual([it["profiles"] for it in timeline.of_kind("config")], [
            [{"id": 1, "description": "Old"}],
            [{"id": 1, "description": "New"}, {"id": 2, "description": "Newer"}]])
        self.assertEqual(timeline.statuses(), [
            (1, DELIVERED), (1, UNKNOWN), (2, UNKNOWN), (2, DELIVERED)])
        # It is what the next start finds.
        self.assertEqual(self.run_host(*events(2)).statuses(), [(2, DELIVERED)])
        self.assertEqual((len(first.received()), len(second.received())), (1, 2))
        self.assertEqual(self.spool(), [])
