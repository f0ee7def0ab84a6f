"""The log lines that the documents quote against the sources.

docs/troubleshooting.md has every line that the plug-in logs, and every text that it puts into a
mail or a line in place of something; no document quotes a line that is not there, or at another
level. Quoted are the rows of tables that begin with "level | line", "text", "note" or "printed".
Words in angle brackets stand for what the sources fill in.
"""
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).parents[2]
STRING = r'"(?:[^"\\\n]|\\.)*"'
LITERAL = rf"{STRING}(?:\s*{STRING})*"  # adjacent ones are one
FILLED = r"<[^<>]+>|%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z)?[diouxXeEfgGcs]"
LOG_CALL = rf'\b(?:HostLog|Add)(?:Text)?\(([^";]*LogLevel::[^";]*)({LITERAL})?'


def without_comments(source):
    return re.sub(rf"({STRING})|//[^\n]*|/\*.*?\*/", lambda it: it[1] or " ", source,
                  flags=re.DOTALL)


def text_of(literal):
    return re.sub(r"\\(.)", r"\1", "".join(it[1:-1] for it in re.findall(STRING, literal)))


def shape(text):
    """A quoted line, or a format, with its filled places made alike."""
    return re.sub(FILLED, "<>", text).replace("%%", "%")


def words(text):
    """The runs of words between the filled places and the marks."""
    return re.findall(r"[A-Za-z][A-Za-z0-9 ]*[A-Za-z0-9]", re.sub(FILLED, "|", text))


def rows(document, header):
    """The cells of each row of a document's tables with such a header."""
    tables = re.findall(rf"^\| {header}.*\|\n\|[-| ]+\|\n((?:\|.*\|\n)+)",
                        document.read_text(encoding="utf-8"), re.M)
    return [[cell.strip().strip("`") for cell in row.strip("|").split("|")]
            for table in tables for row in table.splitlines()]


class LogLinesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.sources = {path: without_comments(path.read_text(encoding="utf-8"))
                       for path in sorted((ROOT / "src").rglob("*.*"))
                       if path.suffix in (".h", ".cpp") and path.parent.name != "log"}
        cls.literals = {path: [text_of(it) for it in re.findall(LITERAL, source)]
                        for path, source in cls.sources.items()}
        cls.logged = {}  # levels, by shape; where a line is put together elsewhere, that is ""
        for source in cls.sources.values():
            for arguments, literal in re.findall(LOG_CALL, source):
                cls.logged.setdefault(shape(text_of(literal)), set()).update(
                    it.lower() for it in re.findall(r"LogLevel::(\w+)", arguments))
        guide = ROOT / "docs/troubleshooting.md"
        cls.lines = {shape(line): set(levels.split(", "))
                     for levels, line, *_ in rows(guide, r"level \| line")}
        cls.texts = [text for text, *_ in rows(guide, "(?:text|note|printed)")]

    def assert_in_sources(self, text):
        """A text that is put together, all of it in one file."""
        self.assertTrue(words(text))
        self.assertTrue(any(all(any(it in literal for literal in literals) for it in words(text))
                            for literals in self.literals.values()), text)

    def test_every_line_is_in_the_document(self):
        self.assertGreater(len(self.logged), 30)
        for line, levels in self.logged.items():
            # Those without words are found by what they are put together from.
            if words(line):
                self.assertEqual(self.lines.get(line), levels, line)

    def test_every_quoted_line_is_in_the_sources(self):
        for document in sorted((ROOT / "docs").glob("*.md")):
            for levels, line, *_ in rows(document, r"level \| line"):
                # A number may stand in a quoted line where a case of its own is told of.
                found = self.logged.get(shape(line)) or self.logged.get(
                    shape(re.sub(r"\d+$", "<code>", line)))
                if found:
                    self.assertLessEqual(set(levels.split(", ")), found, line)
                else:
                    self.assert_in_sources(line)

    def test_every_text_is_in_the_document_and_the_other_way_round(self):
        self.assertGreater(len(self.texts), 15)
        for text in self.texts:
            self.assert_in_sources(text)
        quoted = "\n".join(self.texts)
        for path, source in self.sources.items():
            placed = re.findall(rf"(?:fprintf\(stderr,\s*)({LITERAL})", source)
            if path.parent.name == "web":
                placed += re.findall(rf"runtime_error\(({LITERAL})", source)
            placed = list(map(text_of, placed)) + [
                it for it in self.literals[path] if re.fullmatch(r"\[[A-Z a-z]+\]", it) or
                path.name == "xml_document.cpp" and re.match(r"its? |one of its ", it)]
            for run in (it for text in placed for it in words(text)):
                self.assertIn(run, quoted, path.name)

    def test_nothing_else_writes_to_the_log(self):
        self.assertEqual([path for path, source in self.sources.items()
                          if "HostCommand::Log" in source], [])


if __name__ == "__main__":
    unittest.main()
