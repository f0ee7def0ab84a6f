"""The tables of the documents against the sources.

docs/troubleshooting.md has every line that the plug-in logs, and every text that it puts into a mail
or a line in place of something; no document quotes another. Quoted are the rows of tables that begin
with "level | line", "text", "note" or "printed"; words in angle brackets are what the sources fill in.
"""
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).parents[2]
STRING = r'"(?:[^"\\\n]|\\.)*"'
LITERAL = rf"{STRING}(?:\s*{STRING})*"  # adjacent ones are one
FILLED = r"<[^<>]+>|%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z)?[diouxXeEfgGcs]"
LOG_CALL = rf'\b(?:HostLog|Add)(?:Text)?\(([^";]*LogLevel::[^";]*)({LITERAL})?'


def text_of(literal):
    return re.sub(r"\\(.)", r"\1", "".join(it[1:-1] for it in re.findall(STRING, literal)))


def shape(text):
    """A quoted line, or a format, with its filled places made alike."""
    return re.sub(FILLED, "<>", text).replace("%%", "%")


def words(text):
    """The runs of words between the filled places and the marks."""
    return re.findall(r"[A-Za-z][A-Za-z0-9 ]*[A-Za-z0-9]", re.sub(FILLED, "|", text))


def rows(header, pattern="*.md"):
    """The cells of each row of the documents' tables with such a header."""
    return [[cell.strip().strip("`") for cell in row.strip("|").split("|")]
            for document in sorted((ROOT / "docs").glob(pattern))
            for table in re.findall(rf"^\| {header}.*\|\n\|[-| ]+\|\n((?:\|.*\|\n)+)",
                                    document.read_text(encoding="utf-8"), re.M)
            for row in table.splitlines()]


# Without comments.
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
        self.assertTrue(words(text) and any(all(any(it in literal for literal in literals)
                                                for it in words(text))
                                            for literals in LITERALS.values()), text)

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
        for text in texts:
            self.assert_in_sources(text)
        for path, source in SOURCES.items():
            calls = re.findall(rf"(fprintf\(stderr,\s*|runtime_error\()({LITERAL})", source)
            placed = [text_of(it) for call, it in calls if call[0] == "f" or path.parent.name == "web"]
            placed += [it for it in LITERALS[path] if re.fullmatch(r"\[[A-Z a-z]+\]", it) or
                       path.name == "xml_document.cpp" and re.match(r"its? |one of its ", it)]
            for run in (it for text in placed for it in words(text)):
                self.assertIn(run, "\n".join(texts), path.name)
            self.assertNotIn("HostCommand::Log", source, path)

    def test_placeholders_are_those_that_there_are(self):
        source = SOURCES[ROOT / "src/config/templates.cpp"]
        self.assertEqual({token.replace("format=\"...\"}", "format"): where == "body only"
                          for tokens, where, _ in rows("Placeholder", "templates.md")
                          for token in re.findall(r"`([^`]*)`", f"`{tokens}`")},
                         {token: only == "true" for token, only in
                          re.findall(r'\{"(\{[a-z ]+\}?)", (true|false), ', source)} |
                         {"{time format": False})

    def test_causes_and_cures_are_those_of_the_screen(self):
        source = (ROOT / "tools/delivery/failure_causes.cpp").read_text(encoding="utf-8")
        table = re.findall(r"\{%s\}" % r",\s*".join([f"({LITERAL})"] * 5), source)
        self.assertGreater(len(table), 30)
        self.assertEqual(rows("exit", "delivery.md"), [[*map(text_of, row)] for row in table])


if __name__ == "__main__":
    unittest.main()
