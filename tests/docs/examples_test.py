"""The examples of README.md and docs/*.md, done as they stand there.

For those who write documents: a fence behind `<!-- file: NAME -->` is that file. A ```console fence is a
session: "$ " begins a command (a backslash at its end continues it), behind which stands all that it
prints; a line "..." stands for any lines, "..." within a line for any stretch of it. Behind one that
fails stands "$ echo $?". `<!-- not run: WHY -->` before a session says why it cannot be run here. All of
one document happens in one folder with a copy of demo/ and packaging/ in it, each command in a shell of
its own, with notifypi on PATH, in UTC and the locale C. Blanks at ends of lines do not count.
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


def faults_of_session(session, run):
    faults, status = [] if session.startswith("$ ") else ["a session begins with a command"], 0
    for command, expected in [*STEP.findall(session), ("true", "")]:
        if status != 0 and command != "echo $?":
            faults.append(f"status {status} before: {command}")
        done = run(f"(exit {status})\n{command}")
        status, printed = done.returncode, tidy(done.stdout.decode(errors="replace"))
        if not re.fullmatch("".join(
                r"(?:.*\n)*" if line == "..." else ".*".join(map(re.escape, line.split("..."))) + r"\n"
                for line in tidy(expected).splitlines()), printed):
            faults.append(f"$ {command}\n{printed}instead of\n{expected}")
    return faults


def faults_of(document):
    """What is wrong in each session of a document."""
    with tempfile.TemporaryDirectory() as top:
        folder, programs = pathlib.Path(top, "folder"), pathlib.Path(top, "bin")
        for name in "demo", "packaging":
            shutil.copytree(ROOT / name, folder / name)
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

        faults = []
        for before, _, language, content in BLOCK.findall(document.read_text(encoding="utf-8")):
            if file := re.fullmatch(r"<!-- file: (\S+) -->\s*", before):
                (folder / file[1]).write_text(content, encoding="utf-8")
            elif language == "console" and not re.fullmatch(r"<!-- not run: .+ -->\s*", before):
                faults.append(faults_of_session(content, run))
        return faults


class ExamplesTest(unittest.TestCase):
    def test_every_example_does_what_the_document_says(self):
        for document in (ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))):
            with self.subTest(document.name):
                self.assertEqual("\n\n".join(sum(faults_of(document), [])), "")

    def test_a_wrong_example_is_found(self):
        for session, count in (
                ("$ echo one\none\n$ printf 'a b c'\na...c\n$ seq 9\n1\n...\n9\n", 0),
                ("$ cat \\\n  words\nas written\n\n$ exit 3\n$ echo $?\n3\n", 0), ("words\n$ true\n", 1),
                ("$ seq 9\n1\n...\n8\n", 1), ("$ echo abc\na.c\n", 1), ("$ true\nsaid\n", 1),
                ("$ echo >&2 oh\n", 1), ("$ exit 3\n$ true\n", 1)):
            with self.subTest(session), tempfile.NamedTemporaryFile("w", suffix=".md") as document:
                document.write(f"<!-- file: words -->\n```\nas written\n```\n```console\n{session}```\n")
                document.flush()
                self.assertEqual([*map(len, faults_of(pathlib.Path(document.name)))], [count])


if __name__ == "__main__":
    unittest.main()
