"""What is installed, and both packages, used as their users do: from a folder of their own."""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import road

BUILD = os.environ["NOTIFYPI_BUILD"]
BINARIES = ["bin/notifypi", "lib/notifypi/notifypi.so", "lib/notifypi/notifypi-speed.so"]

# Prints what bash itself is asked to complete, then the answers to the words typed.
COMPLETE = """compopt() { [ "$1" = +o ] || echo "$@"; }; source "$0"
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _notifypi "$1"; printf '%s\\n' "${COMPREPLY[@]}" """


def run(*arguments, **options):
    return subprocess.check_output(arguments, text=True, timeout=road.RUN_LIMIT, **options)


def make_packages(folder):
    run(os.environ["NOTIFYPI_CPACK"], "--config", f"{BUILD}/CPackConfig.cmake", "-B", folder,
        env={**os.environ, "SOURCE_DATE_EPOCH": str(road.EVENT_TIME)}, umask=0o022)
    return [*folder.glob("*.tar.gz"), *folder.glob("*.deb")]


class PackageTest(road.RoadTest):
    @classmethod
    def setUpClass(cls):
        top = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.packages = archive, debian = make_packages(top / "packages")
        run(os.environ["NOTIFYPI_CMAKE"], "--install", BUILD, "--prefix", "/opt/notifypi",
            env={**os.environ, "DESTDIR": str(top / "installed")})
        run("dpkg", "-x", debian, top / "deb")
        run("tar", "-C", top, "-xf", archive)
        cls.installed, cls.deb = top / "installed/opt/notifypi", top / "deb/usr"
        cls.prefixes = [cls.installed, cls.deb, top / archive.name.removesuffix(".tar.gz")]

    def command(self, *arguments):
        return run(self.installed / "bin/notifypi", *arguments)

    def test_all_ways_bring_the_same_files(self):
        first, *others = [{str(it.relative_to(prefix)) for it in prefix.rglob("*")
                           if not it.is_dir()} for prefix in self.prefixes]
        self.assertEqual(others, [first | {*BINARIES, "share/doc/notifypi/copyright"}] * 2)
        for document in self.installed.rglob("*.md"):
            for link in re.findall(r"\]\((?!https?:)([^)#]+)", document.read_text()):
                self.assertTrue((document.parent / link).exists(), f"{document.name}: {link}")
        self.assertFalse(shutil.which("lintian") and run("lintian", "--allow-root", self.packages[1]))

    def test_the_plugin_of_each_delivers_and_the_sample_is_right(self):
        server = self.start_server()
        self.configure([server.port])
        (self.folder / "event.xml").write_bytes(road.event_document())
        for prefix in self.prefixes:
            for speed in (), ("--speed", "10"):
                run(prefix / "bin/notifypi", "host", "--event", "event.xml", *speed, cwd=self.folder)
        examples = self.installed / "share/doc/notifypi/examples"
        sanitize = os.environ["NOTIFYPI_SANITIZE"]
        run("gcc", "-m32", "-Werror", *([f"-fsanitize={sanitize}"] if sanitize else []), "-o",
            self.top / "sample", examples / "sample_host.c", "-ldl")
        run(self.top / "sample", self.installed / BINARIES[1], "event.xml", cwd=self.folder)
        self.assertEqual([it.rcpt_tos for it in server.received()], [["guard@example.com"]] * 7)

        sample = shutil.copy(examples / "notify.xml", self.top)
        os.chmod(sample, 0o600)  # as its comment asks, since it is a place for passwords
        for command in "check", "preview --profile 1", "preview --profile 2":
            self.command(*command.split(), sample)

    def test_page_and_completion_tell_every_option_and_no_other(self):
        options = {
            it: {*re.findall(r"^  (?:-\w,)?(--[a-z-]+)", self.command(it, "--help"), re.M)}
            for it in re.findall(r"^  (\w+)", self.command().split("Subcommands:")[1], re.M)}
        run("mandoc", "-Tlint", "-Wwarning", page := pathlib.Path(__file__).parents[2] / "packaging/notifypi.1")
        sections = re.findall(r"^\.Ss (\w+)$(.*?)(?=^\.S[sh])", page.read_text(), re.M | re.S)
        self.assertEqual(options, {subcommand: {"--help"} | {
            f"-{word}" for item in re.findall(r"^\.It (.*)$", text, re.M)
            for word in re.findall(r"Fl (-[a-z-]+)", item)} for subcommand, text in sections})

        def completed(*typed):
            return run("bash", "-c", COMPLETE, self.installed / "share/bash-completion/completions/notifypi",
                       self.installed / "bin/notifypi", *typed).split("\n")[:-1]
        self.assertEqual(options, {it: {*completed(it, "--"), "--help"} for it in options})
        for typed, answer in {"ho": "host", "check a": "-o default", "host --event a": "-o default",
                              "host --event = a": "-o default", "host --directory a": "-o dirnames",
                              "host --timeout a": "", "host a": ""}.items():
            self.assertEqual(completed(*typed.split())[0], answer, typed)

    @unittest.skipIf(os.environ["NOTIFYPI_SANITIZE"], "sanitized binaries are not for others")
    def test_the_binaries_are_stripped_and_need_no_more_than_the_package_depends_on(self):
        depends = run("dpkg-deb", "-f", self.packages[1], "Depends")
        self.assertIn(", curl", depends)
        least = dict(re.findall(r"(\S+) \(>= ([0-9.]+)\)", depends))
        most = {"GLIBC": least["libc6"], "GLIBCXX":  # the last symbols of the package's version
                {"11": "3.4.29", "12": "3.4.30", "13": "3.4.32"}[least["libstdc++6"]]}
        for binary in BINARIES:
            told = run("readelf", "-SdVW", self.deb / binary)
            self.assertNotIn(".symtab", told, binary)
            self.assertLessEqual({*re.findall(r"\(NEEDED\).*\[(.*)\]", told)}, {
                "libc.so.6", "libm.so.6", "ld-linux.so.2", "libstdc++.so.6", "libgcc_s.so.1"})
            for found in re.findall(r"Name: (GLIBC|GLIBCXX)_([0-9.]+)", told):
                self.assertLessEqual(*([*map(int, it.split("."))] for it in (found[1], most[found[0]])))

    def test_one_build_gives_the_same_packages_again(self):
        first, again = self.packages, make_packages(self.top / "again")
        self.assertTrue([*map(pathlib.Path.read_bytes, first)] == [*map(pathlib.Path.read_bytes, again)])
