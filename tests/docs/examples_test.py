"""The examples of README.md and docs/*.md, done as they stand there.

What is an example, for those who write documents:

  - A fence with `<!-- file: NAME -->` on the line before it is a file of that name.
  - A ```console fence is a session. Lines that begin with "$ " are commands (one that ends in a
    backslash goes on in the next line); behind each stands all that it prints, errors included. A
    line "..." stands for any number of lines, "..." within a line for any stretch of it. A command
    that fails must be followed by "$ echo $?", so that the reader sees its status.
  - `<!-- not run: WHY -->` on the line before a session says why it cannot be run here.

All of one document happens in one folder with a copy of demo/ in it, each command in a shell of its
own. On PATH are notifypi, with the plug-in beside it, and the programs of the distribution. Time
zone is UTC, locale C. Blanks at the ends of lines and empty lines at the end do not count.
"""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).parents[2]
COMMAND = pathlib.Path(os.environ["NOTIFYPI_COMMAND"])

# The comment before, the fence, its language and what it holds.
BLOCK = re.compile(r"^(?:(<!-- .*)\n)?(`{3,}|~{3,})[ \t]*(\S*)[ \t]*\n((?:.*\n)*?)\2[ \t]*$", re.M)
# A command, which a backslash continues, and what it prints.
STEP = re.compile(r"^\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)", re.M)


def tidy(text):
    """Without blanks at the ends of lines and empty lines at the end."""
    return re.sub(r"[ \t\r]+$", "", text, flags=re.M).rstrip("\n") + "\n"


def matches(expected, printed):
    """Whether that is printed, with "..." for what may differ."""
    pattern = "".join(
        r"(?:.*\n)*" if line == "..." else ".*".join(map(re.escape, line.split("..."))) + r"\n"
        for line in tidy(expected).splitlines())
    return re.fullmatch(pattern, printed) is not None


def faults_of_session(session, run):
    faults = [] if session.startswith("$ ") else ["a session begins with a command"]
    status = 0
    for command, expected in [*STEP.findall(session), ("true", "")]:
        if status != 0 and command != "echo $?":
            faults.append(f"status {status} before: {command}")
        done = run(f"(exit {status})\n{command}")
        status, printed = done.returncode, tidy(done.stdout.decode(errors="replace"))
        if not matches(expected, printed):
            faults.append(f"$ {command}\n{printed}instead of\n{expected}")
    return faults


def faults_of(document, top):
    """What is wrong in a document, and how many sessions have been run."""
    folder, programs = top / "folder", top / "bin"
    shutil.copytree(ROOT / "demo", folder / "demo")
    # Of the build folder only what a user has beside the command.
    programs.mkdir()
    for path in (COMMAND, *COMMAND.parent.glob("notifypi*.so")):
        shutil.copy(path, programs)

    def run(command):
        return subprocess.run(
            ["/bin/bash", "-c", command], cwd=folder, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120,
            env={"PATH": f"{programs}:/usr/bin:/bin", "HOME": folder, "TZ": "UTC", "LC_ALL": "C",
                 "NO_COLOR": "1"})

    faults, sessions = [], 0
    for before, _, language, content in BLOCK.findall(document.read_text(encoding="utf-8")):
        if file := re.fullmatch(r"<!-- file: (\S+) -->\s*", before):
            (folder / file[1]).write_text(content, encoding="utf-8")
        elif language == "console" and not re.fullmatch(r"<!-- not run: .+ -->\s*", before):
            sessions += 1
            faults += faults_of_session(content, run)
    return faults, sessions


class ExamplesTest(unittest.TestCase):
    def test_every_example_does_what_the_document_says(self):
        sessions = 0
        for document in (ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))):
            with self.subTest(document.name), tempfile.TemporaryDirectory() as top:
                faults, count = faults_of(document, pathlib.Path(top))
                sessions += count
                self.assertFalse(faults, "\n\n".join(faults))
        self.assertGreater(sessions, 0)

    def test_a_wrong_example_is_found(self):
        for session, count in (
                ("$ echo one\none\n$ printf 'a b c'\na...c\n$ seq 9\n1\n...\n9\n", 0),
                ("$ echo one \\\n  two\none two\n\n", 0), ("$ exit 3\n$ echo $?\n3\n", 0),
                ("$ cat words\nas written\n", 0), ("$ echo one\ntwo\n", 1), ("words\n$ true\n", 1),
                ("$ seq 9\n1\n...\n8\n", 1), ("$ echo a.c\na.c\n$ echo abc\na.c\n", 1),
                ("$ true\nsaid\n", 1), ("$ echo >&2 oh\n", 1), ("$ exit 3\n", 1),
                ("$ exit 3\n$ true\n", 1)):
            with self.subTest(session), tempfile.TemporaryDirectory() as top:
                document = pathlib.Path(top) / "document.md"
                document.write_text("<!-- file: words -->\n```\nas written\n```\n"
                                    f"```console\n{session}```\n", encoding="utf-8")
                faults, sessions = faults_of(document, pathlib.Path(top))
                self.assertEqual((len(faults), sessions), (count, 1), faults)


if __name__ == "__main__":
    unittest.main()
