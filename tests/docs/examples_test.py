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
import dataclasses
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
LIMIT = 60

FENCE = re.compile(r"^(`{3,}|~{3,})\s*(\S*)\s*$")
FILE = re.compile(r"^<!-- file: (\S+) -->$")
NOT_RUN = re.compile(r"^<!-- not run: .+ -->$")


class BadDocument(Exception):
    """A document breaks the rules above."""


@dataclasses.dataclass
class Block:
    line: int  # of its first line in the document, from 1
    language: str
    mark: str  # the line before the fence
    lines: list


def blocks(text):
    """The fenced blocks of a document."""
    found, block, end, before = [], None, "", ""
    for number, line in enumerate(text.splitlines(), 1):
        if block is not None:
            if line.rstrip() == end:
                found.append(block)
                block = None
            else:
                block.lines.append(line)
        elif fence := FENCE.match(line):
            end = fence.group(1)
            block = Block(number + 1, fence.group(2), before, [])
        before = line.strip()
    if block is not None:
        raise BadDocument(f"line {block.line}: the block has no end")
    return found


@dataclasses.dataclass
class Step:
    line: int
    command: str
    expected: list


def steps(block):
    """The commands of a session, each with what it is to print."""
    found, goes_on = [], False
    for number, line in enumerate(block.lines, block.line):
        if goes_on:
            found[-1].command += "\n" + line
        elif line.startswith("$ "):
            found.append(Step(number, line[2:], []))
        elif found:
            found[-1].expected.append(line.rstrip())
        else:
            raise BadDocument(f"line {number}: a session begins with a command")
        goes_on = line.endswith("\\") and (goes_on or line.startswith("$ "))
    return found


def without_empty_end(lines):
    while lines and not lines[-1]:
        lines = lines[:-1]
    return lines


def matches(expected, printed):
    """Whether the lines are those expected, with "..." for what may differ."""
    pattern = "".join(
        r"(?:.*\n)*" if line == "..." else ".*".join(map(re.escape, line.split("..."))) + r"\n"
        for line in expected)
    return re.fullmatch(pattern, "".join(line + "\n" for line in printed)) is not None


class Stage:
    """The folder of one document."""

    def __init__(self, top):
        self.folder = top / "folder"
        shutil.copytree(ROOT / "demo", self.folder / "demo")
        # Of the build folder only what a user has beside the command.
        programs = top / "bin"
        programs.mkdir()
        for name in BESIDE_COMMAND:
            if (COMMAND.parent / name).exists():
                (programs / name).symlink_to(COMMAND.parent / name)
        shutil.copy(COMMAND, programs / "notifypi")
        self.environment = {"PATH": f"{programs}:/usr/bin:/bin", "HOME": str(self.folder),
                            "TZ": "UTC", "LC_ALL": "C", "NO_COLOR": "1"}

    def write(self, name, lines):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("".join(line + "\n" for line in lines), encoding="utf-8")

    def run(self, command, last_status):
        """Status and output of a command; $? is that of the one before."""
        try:
            done = subprocess.run(
                ["/bin/bash", "-c", f"(exit {last_status})\n{command}"], cwd=self.folder,
                env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT, timeout=LIMIT, check=False)
        except subprocess.TimeoutExpired:
            return None, []
        lines = done.stdout.decode(errors="replace").splitlines()
        return done.returncode, without_empty_end([line.rstrip() for line in lines])


def faults_of_session(block, stage):
    faults, status, failed = [], 0, None
    for step in steps(block):
        if failed is not None and step.command.strip() != "echo $?":
            faults.append(f"line {failed.line}: status {status} of: {failed.command}")
        status, printed = stage.run(step.command, status)
        if status is None:
            return faults + [f"line {step.line}: no end within {LIMIT} s: {step.command}"]
        failed = step if status != 0 else None
        expected = without_empty_end(step.expected)
        if not matches(expected, printed):
            difference = difflib.unified_diff(expected, printed, "document", "printed", lineterm="")
            faults.append(f"line {step.line}: {step.command}\n" + "\n".join(difference))
    if failed is not None:
        faults.append(f"line {failed.line}: status {status} of: {failed.command}")
    return faults


def faults_of(document, top):
    """What is wrong in a document, and how many sessions have been run."""
    stage, faults, sessions = Stage(top), [], 0
    for block in blocks(document.read_text(encoding="utf-8")):
        if file := FILE.match(block.mark):
            stage.write(file.group(1), block.lines)
        elif block.language == "console" and not NOT_RUN.match(block.mark):
            sessions += 1
            faults += faults_of_session(block, stage)
    return faults, sessions


def documents():
    chosen = [pathlib.Path(it).resolve() for it in sys.argv[1:]]
    return chosen or [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]


class ExamplesTest(unittest.TestCase):
    def test_every_example_does_what_the_document_says(self):
        sessions = 0
        for document in documents():
            with self.subTest(document=document.name), tempfile.TemporaryDirectory() as top:
                faults, count = faults_of(document, pathlib.Path(top))
                sessions += count
                if faults:
                    self.fail("\n\n".join(["", *faults]))
        self.assertGreater(sessions, 0)

    def test_a_wrong_example_is_found(self):
        """What the documents are held to, each rule by a document that breaks it."""
        cases = [
            ("$ echo one\none\n$ printf 'a b c'\na...c\n$ seq 9\n1\n...\n9\n", []),
            ("$ echo one \\\n  two\none two\n\n", []),
            ("$ exit 3\n$ echo $?\n3\n", []),
            ("$ cat words\nas written\n", []),
            ("$ echo one\ntwo\n", ["line 6: echo one"]),
            ("$ seq 9\n1\n...\n8\n", ["line 6: seq 9"]),
            ("$ echo a.c\na.c\n$ echo abc\na.c\n", ["line 8: echo abc"]),
            ("$ true\nsaid\n", ["line 6: true"]),
            ("$ echo >&2 oh\n", ["line 6: echo >&2"]),
            ("$ exit 3\n", ["line 6: status 3"]),
            ("$ exit 3\n$ true\n", ["line 6: status 3"]),
        ]
        for session, expected in cases:
            with self.subTest(session=session), tempfile.TemporaryDirectory() as top:
                document = pathlib.Path(top) / "document.md"
                document.write_text("<!-- file: words -->\n```\nas written\n```\n"
                                    f"```console\n{session}```\n", encoding="utf-8")
                faults, _ = faults_of(document, pathlib.Path(top))
                begins = [fault[:len(begin)] for fault, begin in zip(faults, expected)]
                self.assertEqual((len(faults), begins), (len(expected), expected))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
