"""notify.xml: what is read, written, kept, refused."""
import json
import pathlib
import shutil
import subprocess

import road
from road import RoadTest, notify_document, profile, smtp_server

LOADED = "Loaded configuration from disk successfully"
NOT_LOADED = "Either no configuration or an improper configuration was found, continuing with empty configuration."
# What check finds of the reading; all else is about the use of what was read.
NOT_TAKEN = """empty-address half-credentials missing-attribute missing-element no-text not-a-number number other-module
    profile-replaced profiles-replaced rejected-file repeated-element several-elements stray-text unknown-attribute
    unknown-element""".split()
FILES = sorted((pathlib.Path(__file__).parents[1] / "tools" / "configurations").glob("*.xml"))


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
            self.assertEqual(exchanged, any(it.startswith("Exception while clearing data subdirectory: ")
                                            for it in timeline.log(road.INFORMATION)))
            self.assertTrue(self.file.is_file())

    def test_what_the_file_says_is_kept_as_check_says_and_the_same_ever_after(self):
        def check():
            return json.loads(subprocess.run([road.COMMAND, "check", self.file, "--json"], capture_output=True).stdout)

        own = self.top / "own.xml"
        own.write_bytes(notify_document([smtp_server(25, 'A & "B"', tls=2, login=("u", "p&#x41;<>'\"")), 465], [
            profile(7, "First\nline", cc=["c@d.e"], bcc=["f@g.h"], ThrottleSeconds=60, EventEdge=2, subject=" {date} ",
                    body="  two\r\n\r\n\tlines \udcfc\r\n"), profile(2, body="")]))
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
                self.assertFalse([it for it in again["findings"] if it["code"] in NOT_TAKEN])
                if path == own:
                    self.run_host("wait 0.05")
                    self.assertEqual(self.file.read_bytes(), written)
