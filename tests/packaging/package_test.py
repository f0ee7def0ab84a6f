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


class PackageTest(road.RoadTest):
    @classmethod
    def setUpClass(cls):
        top = pathlib.Path(tempfile.mkdtemp(prefix="notifypi-package-"))
        cls.addClassCleanup(shutil.rmtree, top, ignore_errors=True)
        cls.packages = make_packages(top / "packages")
        archive, cls.debian = cls.packages
        run(os.environ["NOTIFYPI_CMAKE"], "--install", BUILD, "--prefix", "/opt/notifypi",
            env={**os.environ, "DESTDIR": str(top / "installed")})
        run("dpkg", "-x", cls.debian, top / "deb")
        run("tar", "-C", top, "-xf", archive)
        cls.installed = top / "installed/opt/notifypi"
        cls.deb = top / "deb/usr"
        cls.prefixes = [cls.installed, cls.deb, top / archive.name.removesuffix(".tar.gz")]

    def command(self, *arguments):
        return run(self.installed / "bin/notifypi", *arguments)

    def options_of(self, subcommand):
        help_text = self.command(subcommand, "--help")
        return set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", help_text, re.MULTILINE)) - {"--help"}

    def subcommands(self):
        listed = self.command("--help").split("Subcommands:")[1]
        return re.findall(r"^  (\w+)", listed, re.MULTILINE)

    def test_all_ways_bring_the_same_files(self):
        first, *others = [sorted(str(it.relative_to(prefix)) for it in prefix.rglob("*")
                                 if not it.is_dir()) for prefix in self.prefixes]
        self.assertLess({*BINARIES, SAMPLE, PAGE, COMPLETION, f"{DOC}/LICENSE"}, set(first))
        self.assertEqual(others, [first, first])

    def test_the_documents_link_to_files_that_are_there(self):
        for document in (self.installed / DOC).rglob("*.md"):
            for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", document.read_text()):
                # What is only in the source tree is for those who have it.
                if link.startswith(("docs/", "CHANGELOG", "LICENSE")):
                    self.assertTrue((document.parent / link).exists(), f"{document.name}: {link}")

    def test_the_plugin_of_each_delivers(self):
        server = self.start_server()
        self.configure([server.port])
        (self.folder / "event.xml").write_bytes(road.event_document())
        for prefix in self.prefixes:
            for speed in (), ("--speed", "10"):
                run(prefix / "bin/notifypi", "host", "--event", "event.xml", *speed,
                    cwd=self.folder)
        self.assertEqual([it.rcpt_tos for it in server.received()], [["guard@example.com"]] * 6)

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
        def version(text):
            return tuple(map(int, text.split(".")))

        depends = {"libc6": (0,), "libstdc++6": (0,)}
        for package, _, least in re.findall(
                r"([a-z0-9+-]+)( \(>= ([0-9.]+)\))?", run("dpkg-deb", "-f", self.debian, "Depends")):
            depends[package] = version(least or "0")
        self.assertIn("curl", depends)
        # Of libstdc++: the package's version that brought a version of its symbols.
        brought = {"3.4.29": (11,), "3.4.30": (12,), "3.4.31": (13,)}
        for binary in BINARIES:
            self.assertNotIn(".symtab", run("readelf", "-SW", self.deb / binary), binary)
            self.assertLessEqual(
                set(re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-dW", self.deb / binary))),
                {"libc.so.6", "libm.so.6", "ld-linux.so.2", "libstdc++.so.6", "libgcc_s.so.1"})
            for kind, least in re.findall(r"Name: (GLIBC|GLIBCXX)_([0-9.]+)",
                                          run("readelf", "-VW", self.deb / binary)):
                if kind == "GLIBC":
                    self.assertLessEqual(version(least), depends["libc6"], binary)
                elif version(least) >= (3, 4, 29):
                    self.assertLessEqual(brought[least], depends["libstdc++6"], binary)

    def test_one_build_gives_the_same_packages_again(self):
        for first, again in zip(self.packages, make_packages(self.top / "again")):
            self.assertTrue(filecmp.cmp(first, again, shallow=False), first.name)


if __name__ == "__main__":
    road.main()
