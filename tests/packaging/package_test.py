"""What is installed, and both packages, used as their users do: from a folder of their own.

The environment names the build: NOTIFYPI_BUILD, NOTIFYPI_CMAKE, NOTIFYPI_CPACK, NOTIFYPI_SANITIZE.
"""
import filecmp
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "e2e"))
import road  # noqa: E402

BUILD = os.environ["NOTIFYPI_BUILD"]
IS_SANITIZED = os.environ["NOTIFYPI_SANITIZE"] != ""

BINARIES = ["bin/notifypi", "lib/notifypi/notifypi.so", "lib/notifypi/notifypi-speed.so"]
DOC = "share/doc/notifypi"
SAMPLE = f"{DOC}/examples/notify.xml"
PAGE = "share/man/man1/notifypi.1"
COMPLETION = "share/bash-completion/completions/notifypi"


# Without a terminal: the words typed are arguments, and the answers, or what bash itself is asked to
# complete, are printed.
COMPLETE = """compopt() { [ "$1" = +o ] || echo "$@"; }
source "$0"
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_notifypi "$1"
printf '%s\\n' "${COMPREPLY[@]}"
"""


def run(*arguments, **options):
    """Returns what a program prints. One that fails is an error that tells why."""
    done = subprocess.run([str(it) for it in arguments], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=road.RUN_LIMIT, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{arguments} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def make_packages(folder):
    environment = {**os.environ, "SOURCE_DATE_EPOCH": str(road.EVENT_TIME)}
    run(os.environ["NOTIFYPI_CPACK"], "--config", f"{BUILD}/CPackConfig.cmake", "-B", folder,
        env=environment, umask=0o022)
    [archive], [debian] = folder.glob("*.tar.gz"), folder.glob("*.deb")
    return archive, debian


def files_below(folder):
    return sorted(str(it.relative_to(folder)) for it in folder.rglob("*") if not it.is_dir())


class PackageTest(unittest.TestCase):
    maxDiff = 4000

    @classmethod
    def setUpClass(cls):
        cls.top = pathlib.Path(tempfile.mkdtemp(prefix="notifypi-package-"))
        cls.addClassCleanup(shutil.rmtree, cls.top, ignore_errors=True)
        cls.archive, cls.debian = make_packages(cls.top / "packages")

        installed = cls.top / "installed"
        run(os.environ["NOTIFYPI_CMAKE"], "--install", BUILD, "--prefix", "/opt/notifypi",
            env={**os.environ, "DESTDIR": str(installed)})
        run("dpkg", "-x", cls.debian, cls.top / "deb")
        run("tar", "-C", cls.top, "-xf", cls.archive)
        cls.prefixes = {
            "install": installed / "opt/notifypi",
            "deb": cls.top / "deb/usr",
            "tar.gz": cls.top / cls.archive.name.removesuffix(".tar.gz"),
        }
        cls.installed = cls.prefixes["install"]

    def command(self, *arguments):
        return run(self.installed / "bin/notifypi", *arguments)

    def options_of(self, subcommand):
        help_text = self.command(subcommand, "--help")
        return set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", help_text, re.MULTILINE)) - {"--help"}

    def subcommands(self):
        listed = self.command("--help").split("Subcommands:")[1]
        return re.findall(r"^  (\w+)", listed, re.MULTILINE)

    def test_all_ways_bring_the_same_files(self):
        wanted = files_below(self.installed)
        self.assertLess({*BINARIES, SAMPLE, PAGE, COMPLETION, f"{DOC}/LICENSE"}, set(wanted))
        for way, prefix in self.prefixes.items():
            self.assertEqual(files_below(prefix), wanted, way)

    def test_the_documents_link_to_files_that_are_there(self):
        for document in (self.installed / DOC).rglob("*.md"):
            for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", document.read_text()):
                # What is only in the source tree is for those who have it.
                if link.startswith(("docs/", "CHANGELOG", "LICENSE")):
                    self.assertTrue((document.parent / link).exists(), f"{document.name}: {link}")

    def test_the_plugin_of_each_delivers(self):
        for way, prefix in self.prefixes.items():
            for speed in (), ("--speed", "10"):
                with self.subTest(way, speed=speed):
                    folder = pathlib.Path(tempfile.mkdtemp(dir=self.top))
                    server = road.MailServer(folder / "mailbox")
                    self.addCleanup(server.close)
                    (folder / "curl").symlink_to(road.CURL)
                    (folder / "notify.xml").write_bytes(
                        road.notify_document([server.port], [road.profile()]))
                    (folder / "event.xml").write_bytes(road.event_document())
                    run(prefix / "bin/notifypi", "host", "--event", "event.xml", *speed, cwd=folder)
                    self.assertEqual([it.rcpt_tos for it in server.received()],
                                     [["guard@example.com"]])

    def test_nothing_is_wrong_with_the_sample(self):
        sample = shutil.copy(self.installed / SAMPLE, self.top)
        # As its comment asks, since it is a place for passwords.
        os.chmod(sample, 0o600)
        self.command("check", sample)
        for profile in "1", "2":
            self.command("preview", "--profile", profile, sample)

    def test_the_manual_page_tells_every_option_and_no_other(self):
        page = self.installed / PAGE
        run("mandoc", "-Tlint", "-Wwarning", page)
        sections = dict(re.findall(r"^\.Ss (\w+)$(.*?)(?=^\.S[sh])", page.read_text(),
                                   re.MULTILINE | re.DOTALL))
        self.assertEqual(sorted(sections), sorted(self.subcommands()))
        for subcommand, text in sections.items():
            items = " ".join(re.findall(r"^\.It (.*)$", text, re.MULTILINE))
            told = {f"-{word}" for word in re.findall(r"Fl (-[a-z-]+)", items)}
            self.assertEqual(told, self.options_of(subcommand), subcommand)

    def test_bash_completes_commands_options_and_files(self):
        def completed(*typed):
            return run("bash", "-c", COMPLETE, self.installed / COMPLETION,
                       self.installed / "bin/notifypi", *typed).split("\n")[:-1]
        self.assertEqual(completed("ho"), ["host"])
        for subcommand in self.subcommands():
            self.assertEqual(set(completed(subcommand, "--")) - {"--help"},
                             self.options_of(subcommand))
        for typed, answer in {"check a": "-o default", "host --event a": "-o default",
                              "host --event = a": "-o default", "preview --eml a": "-o default",
                              "host --directory a": "-o dirnames", "host --timeout a": "",
                              "host a": ""}.items():
            self.assertEqual(completed(*typed.split())[0], answer, typed)

    @unittest.skipIf(IS_SANITIZED, "sanitized binaries are not for others")
    def test_the_binaries_are_stripped_and_need_no_more_than_the_package_depends_on(self):
        depends = dict.fromkeys(["libc6", "libstdc++6", "libgcc-s1"], (0,))
        for package, _, version in re.findall(
                r"([a-z0-9+-]+)( \(>= ([0-9.]+)\))?", run("dpkg-deb", "-f", self.debian, "Depends")):
            depends[package] = tuple(map(int, version.split("."))) if version else (0,)
        self.assertIn("curl", depends)
        # The package of a library, and its version that brought a symbol's version.
        packages = {"libc.so.6": "libc6", "libm.so.6": "libc6", "ld-linux.so.2": "libc6",
                    "libstdc++.so.6": "libstdc++6", "libgcc_s.so.1": "libgcc-s1"}
        cxx = {(3, 4, 29): (11,), (3, 4, 30): (12,), (3, 4, 31): (13,)}
        for binary in BINARIES:
            path = self.prefixes["deb"] / binary
            self.assertNotIn(".symtab", run("readelf", "-SW", path), binary)
            self.assertLessEqual(
                set(re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-dW", path))), set(packages))
            for kind, version in re.findall(r"Name: (GLIBC|GLIBCXX)_([0-9.]+)",
                                            run("readelf", "-VW", path)):
                version = tuple(map(int, version.split(".")))
                if kind == "GLIBC":
                    self.assertLessEqual(version, depends["libc6"], binary)
                elif version >= (3, 4, 29):
                    self.assertLessEqual(cxx[version], depends["libstdc++6"], binary)

    def test_one_build_gives_the_same_packages_again(self):
        for first, again in zip((self.archive, self.debian), make_packages(self.top / "again")):
            self.assertTrue(filecmp.cmp(first, again, shallow=False), first.name)


if __name__ == "__main__":
    unittest.main(verbosity=2)
