"""`notifypi check` says what the plug-in does: both read the same files, and keep the same of them."""
import json
import os
import pathlib
import shutil
import subprocess
import xml.etree.ElementTree as ElementTree

import road
from configuration_test import LOADED, NOT_LOADED
from road import RoadTest

FILES = pathlib.Path(__file__).resolve().parents[1] / "tools" / "configurations"


def check(*arguments):
    return subprocess.run([road.COMMAND, "check", *arguments], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=road.RUN_LIMIT)


def texts(element, name):
    return [it.text or "" for it in element.findall(name)]


def numbers(element, *names):
    return {name: int(element.get(name)) for name in names}


def read_server(element):
    login = element.find("Authentication")
    login = {} if login is None else login.attrib
    return {"description": element.get("description"), "address": element.get("address"),
            **numbers(element, "port", "UseSSL"), "username": login.get("username", ""),
            "hasPassword": login.get("password", "") != ""}


def read_profile(element):
    kept = {"ID": int(element.get("ID")), "attach": element.get("attach") == "1"}
    kept.update({name: element.get(name) for name in ("description", "from", "subject")})
    kept.update(numbers(element, "ThrottleSeconds", "MaxVideoSeconds", "EventEdge"))
    kept.update({name: texts(element, name) for name in ("to", "cc", "bcc")})
    kept["body"] = texts(element, "body")[0]
    return kept


def read_saved(path):
    """What the plug-in kept, from the file that it writes at its start."""
    content = path.read_bytes().removeprefix(b"<?xml ?>")  # which is no XML declaration to others
    notify = ElementTree.fromstring(content).find("Notify")
    profiles = notify.find("Profiles")
    return {**numbers(notify, "MaxRetrySeconds", "MaxRetryQueue", "EmailSizeLimitMB"),
            "webAddress": notify.find("Web").get("address"),
            "servers": [read_server(it) for it in notify.find("Servers")],
            "autoincrement": int(profiles.get("autoincrement")),
            "profiles": [read_profile(it) for it in profiles]}


class CheckTest(RoadTest):
    def test_keeps_what_the_plug_in_keeps(self):
        files = sorted(FILES.glob("*.xml"))
        self.assertGreater(len(files), 10)
        path = self.folder / "notify.xml"
        for file in files:
            with self.subTest(file.name):
                shutil.copy(file, path)
                path.chmod(0o600)
                run = check(path, "--json")
                self.assertEqual(run.stderr, b"")
                report = json.loads(run.stdout)
                self.assertEqual(run.returncode, 1 if report["findings"] else 0)
                self.assertEqual(path.read_bytes(), file.read_bytes())

                timeline = self.run_host("wait 0.05")
                is_loaded = timeline.levels(LOADED) == [road.INFORMATION]
                self.assertNotEqual(is_loaded, timeline.levels(NOT_LOADED) == [road.WARNING])
                self.assertEqual(report["outcome"], "loaded" if is_loaded else "rejected")
                self.assertEqual(report["kept"], read_saved(path))

    def test_what_the_plug_in_writes_is_as_it_wants_it(self):
        """A second reading finds no error in the outcome of the first, whatever that one found."""
        path = self.folder / "notify.xml"
        for name in ("servers.xml", "profiles.xml", "profile_lists.xml", "settings.xml"):
            with self.subTest(name):
                shutil.copy(FILES / name, path)
                self.run_host("wait 0.05")
                findings = json.loads(check(path, "--json").stdout)["findings"]
                self.assertEqual([it for it in findings if it["severity"] == "error"], [])

    def test_text_and_exit_status(self):
        run = check(FILES / "good.xml")
        self.assertIn(b"0 errors", run.stdout.splitlines()[-1])
        os.chdir(self.folder)
        (self.folder / "notify.xml").write_bytes(
            b"<tDVR>\n<Notify ID='1'><Servers/><Profiles/></Notify>\n</tDVR>")
        run = check("notify.xml")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stdout.decode().splitlines(), [
            'notify.xml:2: error: element "Notify" is not taken: its attribute "ID" is not that of '
            'this plug-in, 786432',
            '    effect: the plug-in starts with an empty configuration, sends no mail, and keeps '
            'the file as "notify.xml.rejected"',
            '    fix: write ID="786432"',
            'notify.xml: 1 error, 0 warnings; the file is rejected'])
        for wrong in (["missing.xml"], [str(self.folder)], [], ["notify.xml", "--yaml"]):
            self.assertEqual(check(*wrong).returncode, 2, wrong)


if __name__ == "__main__":
    road.main()
