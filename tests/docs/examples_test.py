"""The examples of README.md and docs/*.md, done as they stand there.

What is an example, for those who write documents:

  - A fence with `<!-- file: NAME -->` on the line before it is a file of that name.
  - A ```console fence is a session. Lines that begin with "$ " are commands (one that ends in a
    backslash goes on in the next line); behind each stands all that it prints, errors included. A
    line "..." stands for any number of lines, "..." within a line for any stretch of it. A command
    that fails must be followed by "$ echo $?", so that the reader sees its status.
  - `<!-- not run: WHY -->` on the line before a session says why it cannot be run here.
  - Anything else is not looked at.

All of one document happens in one folder, in the order of the document, with a copy of demo/ in it.
Each command is a shell of its own, which begins in that folder.
On PATH are notifypi, with the plug-in beside it, and the programs of the distribution. Time zone is
UTC, locale C. Blanks at the ends of lines and empty lines at the end of an output do not count.

The environment names the command to test: NOTIFYPI_COMMAND. Arguments choose documents.
"""
import difflib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).parents[2]
COMMAND = pathlib.Path(os.environ.get("NOTIFYPI_COMMAND", ""))
BESIDE_COMMAND = ["notifypi.so", "notifypi-speed.so"]

# For a command, in seconds.
LIMIT = 120

# The fence, its language and what it holds.
BLOCK = re.compile(r"^(`{3,}|~{3,})[ \t]*(\S*)[ \t]*\n((?:.*\n)*?)\1[ \t]*$", re.M)
FILE = re.compile(r"<!-- file: (\S+) -->\s*")
NOT_RUN = re.compile(r"<!-- not run: .+ -->\s*")
# A command, which a backslash continues, and what it prints.
STEP = re.compile(r"^\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)", re.M)


def lines_of(text):
    """Without blanks at the ends of lines and empty lines at the end."""
    return [line.rstrip() for line in text.rstrip().splitlines()]


def matches(expected, printed):
    """Whether the lines are those expected, with "..." for what may differ."""
    pattern = "".join(
        r"(?:.*\n)*" if line == "..." else ".*".join(map(re.escape, line.split("..."))) + r"\n"
        for line in expected)
    return re.fullmatch(pattern, "".join(line + "\n" for line in printed)) is not None


class Folder:
    """The folder of one document."""

    def __init__(self, top):
        self.path = top / "folder"
        shutil.copytree(ROOT / "demo", self.path / "demo")
        # Of the build folder only what a user has beside the command.
        programs = top / "bin"
        programs.mkdir()
        for name in BESIDE_COMMAND:
            if (COMMAND.parent / name).exists():
                (programs / name).symlink_to(COMMAND.parent / name)
        shutil.copy(COMMAND, programs / "notifypi")
        self.environment = {"PATH": f"{programs}:/usr/bin:/bin", "HOME": str(self.path),
                            "TZ": "UTC", "LC_ALL": "C", "NO_COLOR": "1"}

    def run(self, command, last_status):
        """Status and output of a command; $? is that of the one before."""
        done = subprocess.run(
            ["/bin/bash", "-c", f"(exit {last_status})\n{command}"], cwd=self.path,
            env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, timeout=LIMIT, check=False)
        return done.returncode, lines_of(done.stdout.decode(errors="replace"))

    def faults_of_session(self, session, where):
        faults, status, asked = [], 0, True
        if not session.startswith("$ "):
            faults.append(f"{where}: a session begins with a command")
        for command, expected in [*STEP.findall(session), ("true", "")]:
            if not asked and command != "echo $?":
                faults.append(f"{where}: status {status} before: {command}")
            status, printed = self.run(command, status)
            asked = status == 0
            if not matches(lines_of(expected), printed):
                faults.append(f"{where}: {command}\n" + "\n".join(difflib.unified_diff(
                    lines_of(expected), printed, "document", "printed", lineterm="")))
        return faults


def faults_of(document, top):
    """What is wrong in a document, and how many sessions have been run."""
    folder, faults, sessions = Folder(top), [], 0
    text = "\n" + document.read_text(encoding="utf-8")
    for block in BLOCK.finditer(text):
        _, language, content = block.groups()
        before = text[:block.start()].splitlines()[-1]
        if file := FILE.fullmatch(before):
            path = folder.path / file[1]
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(content, encoding="utf-8")
        elif language == "console" and not NOT_RUN.fullmatch(before):
            sessions += 1
            line = text.count("\n", 0, block.start(3))
            faults += folder.faults_of_session(content, f"session at line {line}")
    return faults, sessions


class ExamplesTest(unittest.TestCase):
    def test_every_example_does_what_the_document_says(self):
        chosen = [pathlib.Path(it).resolve() for it in sys.argv[1:]]
        documents = chosen or [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
        sessions = 0
        for document in documents:
            with self.subTest(document=document.name), tempfile.TemporaryDirectory() as top:
                faults, count = faults_of(document, pathlib.Path(top))
                sessions += count
                if faults:
                    self.fail("\n\n".join(["", *faults]))
        self.assertGreater(sessions, 0)

    def test_a_wrong_example_is_found(self):
        """What the documents are held to, each rule by a document that breaks it."""
        for session, count in (
                ("$ echo one\none\n$ printf 'a b c'\na...c\n$ seq 9\n1\n...\n9\n", 0),
                ("$ echo one \\\n  two\none two\n\n", 0), ("$ exit 3\n$ echo $?\n3\n", 0),
                ("$ cat words\nas written\n", 0), ("$ echo one\ntwo\n", 1), ("words\n$ true\n", 1),
                ("$ seq 9\n1\n...\n8\n", 1), ("$ echo a.c\na.c\n$ echo abc\na.c\n", 1),
                ("$ true\nsaid\n", 1), ("$ echo >&2 oh\n", 1), ("$ exit 3\n", 1),
                ("$ exit 3\n$ true\n", 1)):
            with self.subTest(session=session), tempfile.TemporaryDirectory() as top:
                document = pathlib.Path(top) / "document.md"
                document.write_text("<!-- file: words -->\n```\nas written\n```\n"
                                    f"```console\n{session}```\n", encoding="utf-8")
                faults, sessions = faults_of(document, pathlib.Path(top))
                self.assertEqual((len(faults), sessions), (count, 1), faults)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
