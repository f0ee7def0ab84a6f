"""The documents against the sources, and against what the programs do.

docs/troubleshooting.md has every line that the plug-in logs, and every text that it puts into a mail
or a line in place of something; no document quotes another. Quoted are the rows of tables that begin
with "level | line", "text", "note" or "printed"; words in angle brackets are what the sources fill in.

The examples of README.md and docs/*.md are done as they stand: a fence behind `<!-- file: NAME -->` is
that file. A ```console fence is a session: "$ " begins a command (a backslash at its end continues it),
behind which stands all that it prints; a line "..." stands for any lines, "..." within a line for any
stretch of it. Behind one that fails stands "$ echo $?". `<!-- not run: WHY -->` says why. A document
happens in a folder with copies of demo/ and packaging/, each command in a shell of its own, in UTC.
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

BLOCK = re.compile(r"^(?:(<!-- .*)\n)?(`{3,}|~{3,})[ \t]*(\S*)[ \t]*\n((?:.*\n)*?)\2[ \t]*$", re.M)
STEP = re.compile(r"^\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)", re.M)
STRING = r'"(?:[^"\\\n]|\\.)*"'
LITERAL = rf"{STRING}(?:\s*{STRING})*"  # adjacent ones are one
FILLED = r"<[^<>]+>|%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z)?[diouxXeEfgGcs]"
LOG_CALL = rf'\b(?:HostLog|Add)(?:Text)?\(([^";]*LogLevel::[^";]*)({LITERAL})?'


def tidy(text):
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
    with tempfile.TemporaryDirectory() as top:
        folder, programs = pathlib.Path(top, "folder"), pathlib.Path(top, "bin")
        for name in "demo", "packaging":
            shutil.copytree(ROOT / name, folder / name)
        programs.mkdir()  # of the build folder only what a user has beside the command
        for path in (COMMAND, *COMMAND.parent.glob("notifypi*.so")):
            shutil.copy(path, programs)

        def run(command):
            return subprocess.run(["/bin/bash", "-c", f"{{ {command}\n}} 2>&1"], cwd=folder,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=120, env={
                                      "PATH": f"{programs}:/usr/bin:/bin", "HOME": folder, "TZ": "UTC",
                                      "LC_ALL": "C", "NO_COLOR": "1"})

        faults = []
        for before, _, language, content in BLOCK.findall(document.read_text(encoding="utf-8")):
            if file := re.fullmatch(r"<!-- file: (\S+) -->\s*", before):
                (folder / file[1]).write_text(content, encoding="utf-8")
            elif language == "console" and not re.fullmatch(r"<!-- not run: .+ -->\s*", before):
                faults.append(faults_of_session(content, run))
        return faults


def text_of(literal):
    return re.sub(r"\\(.)", r"\1", "".join(it[1:-1] for it in re.findall(STRING, literal)))


def shape(text):
    return re.sub(FILLED, "<>", text).replace("%%", "%")


def words(text):
    return re.findall(r"[A-Za-z][A-Za-z0-9 ]*[A-Za-z0-9]", re.sub(FILLED, "|", text))


def rows(header, pattern="*.md"):
    return [[cell.strip().strip("`") for cell in row.strip("|").split("|")]
            for document in sorted((ROOT / "docs").glob(pattern))
            for table in re.findall(rf"^\| {header}.*\|\n\|[-| ]+\|\n((?:\|.*\|\n)+)",
                                    document.read_text(encoding="utf-8"), re.M)
            for row in table.splitlines()]


SOURCES = {path: re.sub(rf"({STRING})|//[^\n]*|/\*.*?\*/", lambda it: it[1] or " ",
                        path.read_text(encoding="utf-8"), flags=re.S)
           for path in sorted((ROOT / "src").rglob("*.*"))
           if path.suffix in (".h", ".cpp") and path.parent.name != "log"}
LITERALS = {path: list(map(text_of, re.findall(LITERAL, it))) for path, it in SOURCES.items()}
LOGGED = {}  # levels, by shape; where a line is put together elsewhere, that is ""
for arguments, logged in re.findall(LOG_CALL, "\n".join(SOURCES.values())):
    LOGGED.setdefault(shape(text_of(logged)), set()).update(
        it.lower() for it in re.findall(r"LogLevel::(\w+)", arguments))


class LogLinesTest(unittest.TestCase):
    def assert_in_sources(self, text):
        """A text that is put together, all of it in one file."""
        self.assertTrue(words(text) and any(all(any(it in literal for literal in of_file) for it in words(
            text)) for of_file in LITERALS.values()), text)

    def test_lines_are_quoted_as_they_are_logged(self):
        quoted = {shape(line): {*levels.split(", ")}
                  for levels, line, *_ in rows(r"level \| line", "troubleshooting.md")}
        self.assertGreater(len(LOGGED), 30)
        for line, levels in LOGGED.items():  # those without words by what they are put together from
            self.assertTrue(not words(line) or quoted.get(line) == levels, line)
        for levels, line, *_ in rows(r"level \| line"):
            # A number may stand in a quoted line where a case of its own is told of.
            found = LOGGED.get(shape(line)) or LOGGED.get(shape(re.sub(r"\d+$", "<code>", line)))
            self.assertLessEqual({*levels.split(", ")}, found or {levels}, line)
            if not found:
                self.assert_in_sources(line)

    def test_every_text_is_in_the_document_and_the_other_way_round(self):
        texts = [text for text, *_ in rows("(?:text|note|printed)", "troubleshooting.md")]
        list(map(self.assert_in_sources, texts))
        for path, source in SOURCES.items():
            calls = re.findall(rf"(fprintf\(stderr,\s*|runtime_error\()({LITERAL})", source)
            placed = [text_of(it) for call, it in calls if call[0] == "f" or path.parent.name == "web"]
            placed += [it for it in LITERALS[path] if re.fullmatch(r"\[[A-Z a-z]+\]", it) or
                       path.name == "xml_document.cpp" and re.match(r"its? |one of its ", it)]
            for run in (it for text in placed for it in words(text)):
                self.assertIn(run, "\n".join(texts), path.name)
            self.assertNotIn("HostCommand::Log", source, path)

    def test_placeholders_are_those_that_there_are(self):
        told = " ".join(tokens for tokens, *_ in rows("Placeholder", "templates.md"))
        known = re.findall(r'\{"(\{[^"]*)", (?:true|false)', SOURCES[ROOT / "src/config/templates.cpp"])
        self.assertEqual([*map(told.count, known)], [1] * 10)

    def test_causes_and_cures_are_those_of_the_screen(self):
        source = (ROOT / "tools/delivery/failure_causes.cpp").read_text(encoding="utf-8")
        table = re.findall(r"\{%s\}" % r",\s*".join([f"({LITERAL})"] * 5), source)
        self.assertEqual(rows("exit", "delivery.md"), [[*map(text_of, row)] for row in table])


class ExamplesTest(unittest.TestCase):
    def test_every_example_does_what_the_document_says(self):
        for document in (ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))):
            with self.subTest(document.name):
                self.assertEqual("\n\n".join(sum(faults_of(document), [])), "")

    def test_a_wrong_example_is_found(self):
        with tempfile.NamedTemporaryFile("w", suffix=".md") as document:
            document.write("<!-- file: f -->\n```\nas written\n```\n```console\n$ cat \\\n f\nas written\n\n"
                           "$ seq 9\n1\n...\n9\n$ seq 9\n1\n...\n8\n$ echo abc\na.c\n$ echo >&2 oh\n$ exit 3\n"
                           "$ echo $?\n3\n$ exit 3\n$ true\nsaid\n```\n```console\nwords\n```\n")
            document.flush()
            self.assertEqual([*map(len, faults_of(pathlib.Path(document.name)))], [5, 1])


if __name__ == "__main__":
    unittest.main()
