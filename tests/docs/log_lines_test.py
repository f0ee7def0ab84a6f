"""The log lines that the documents quote against the sources.

docs/troubleshooting.md has every line that the plug-in logs, and every text that it puts into a
mail or a line in place of something; no document quotes a line that is not there, or at another
level. Quoted are the rows of tables that begin with "level | line" or with "text". Words in angle
brackets stand for what the sources fill in.
"""
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).parents[2]
TROUBLESHOOTING = ROOT / "docs/troubleshooting.md"

# A name in each place that is filled in, in documents and sources alike.
FILLED = "<>"
STRING = r'"(?:[^"\\\n]|\\.)*"'
SPECIFIER = r"%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z)?[diouxXeEfgGcs]"
LEVEL = r"LogLevel::(\w+)"

# What takes a line: the index of its level among the arguments; the format comes behind it.
SINKS = {"HostLog": 2, "HostLogText": 2, "Add": 0, "AddText": 0}


def without_comments(source):
    return re.sub(rf"({STRING}|'(?:[^'\\]|\\.)')|//[^\n]*|/\*.*?\*/",
                  lambda it: it.group(1) or " ", source, flags=re.DOTALL)


SOURCES = {path: without_comments(path.read_text(encoding="utf-8"))
           for path in sorted((ROOT / "src").rglob("*.*")) if path.suffix in (".h", ".cpp")}


def literal(words):
    """The text of adjacent C string literals; nothing when there is anything else."""
    if re.sub(STRING, "", words).strip() or '"' not in words:
        return None
    joined = "".join(it[1:-1] for it in re.findall(STRING, words))
    return re.sub(r"\\(.)", lambda it: {"n": "\n", "r": "\r"}.get(it.group(1), it.group(1)), joined)


def literals(words):
    """Every text in a piece of source; adjacent literals are one."""
    return [literal(it) for it in re.findall(rf"{STRING}(?:\s*{STRING})*", words)]


def arguments(source, start):
    """The arguments of the call whose parenthesis opens before start."""
    found, depth, begin = [], 0, start
    for token in re.finditer(rf"{STRING}|'(?:[^'\\]|\\.)'|[()\[\]{{}},]", source[start:]):
        at = start + token.start()
        if token.group() in "([{":
            depth += 1
        elif token.group() == "," and depth == 0 or token.group() == ")" and depth == 0:
            found.append(source[begin:at].strip())
            begin = at + 1
            if token.group() == ")":
                return found
        elif token.group() in ")]}":
            depth -= 1
    raise ValueError("a call without an end")


def body(name):
    """The body of the function of this name that makes a text, or nothing."""
    for source in SOURCES.values():
        found = re.search(rf"std::string {name}\([^;{{]*\{{\n(.*?)^\}}", source, re.M | re.DOTALL)
        if found:
            return found.group(1)
    return None


def shape(text):
    """A quoted line, or a format, with its filled places made alike."""
    return re.sub(rf"<[^<>]+>|{SPECIFIER}", FILLED, text).replace("%%", "%")


def words(text):
    """Fixed words of a quoted line or of the literals that it is put together from."""
    return set(re.findall(r"[A-Za-z][A-Za-z ]*[A-Za-z]", re.sub(r"<[^<>]+>", " ", text)))


class Line:
    """One line that the sources log."""

    def __init__(self, path, given, levels):
        self.path = path.relative_to(ROOT)
        self.levels = {it.lower() for it in levels}
        self.text = literal(given[0])
        self.words = None
        if self.text in (None, "%s"):
            # Put together elsewhere, or passed on as it is.
            bodies = [body(name) for it in given for name in re.findall(r"(\w+)\(", it)]
            bodies = [it for it in bodies if it]
            self.text = None if bodies else "%s"
            self.words = words(" ".join(it for text in bodies for it in literals(text)))

    def __str__(self):
        return f"{self.path}: {self.text or sorted(self.words)}"

    def is_quoted_as(self, quoted):
        if self.text is not None:
            return shape(self.text) == shape(quoted)
        return bool(words(quoted)) and words(quoted) <= self.words

    def is_covered_by(self, quoted):
        """Whether these quotations leave none of its words out."""
        own = [it for it in quoted if self.is_quoted_as(it)]
        return bool(own) and (self.words is None or self.text is not None or
                              self.words <= set().union(*map(words, own)))


def logged_lines():
    lines = []
    for path, source in SOURCES.items():
        if path.parent.name == "log":
            continue
        for call in re.finditer(rf"\b({'|'.join(SINKS)})\(", source):
            given = arguments(source, call.end())
            at = SINKS[call.group(1)]
            levels = re.findall(LEVEL, given[at]) if len(given) > at + 1 else []
            if levels:
                lines.append(Line(path, given[at + 1:], levels))
            elif call.group(1).startswith("HostLog"):
                raise AssertionError(f"{path}: no level in {given}")
    return lines


def tables(document, header):
    """The rows, as lists of cells, of a document's tables with such a header."""
    rows = []
    text = document.read_text(encoding="utf-8")
    for table in re.findall(rf"^\| {header}.*\|\n\|[-| ]+\|\n((?:\|.*\|\n)+)", text, re.M):
        rows += [[cell.strip() for cell in row.strip("|").split("|")]
                 for row in table.splitlines()]
    return rows


def quoted_lines(document):
    """Levels and text of each quoted line."""
    found = []
    for levels, line, *_ in tables(document, r"level \| line \|"):
        found.append((set(levels.split(", ")), line.strip("`")))
    return found


def quoted_texts(document):
    return [row[0].strip("`") for row in tables(document, r"text \|")]


# What stands in a mail or a line in place of something, and what a refusal says for its reason.
def placed_texts():
    found = []
    for path, source in SOURCES.items():
        found += [it for it in literals(source) if re.fullmatch(r"\[[A-Z a-z]+\]", it or "")]
        if path.parent.name == "web":
            for call in re.finditer(r"runtime_error\(", source):
                [text] = arguments(source, call.end())
                found.append(FILLED.join(literals(text)) +
                             (FILLED if not text.endswith('"') else ""))
    refusals = SOURCES[ROOT / "src/config/xml_document.cpp"]
    reasons = re.search(r"^const char\* RefusalReason\(.*?^\}", refusals, re.M | re.DOTALL).group()
    return found + literals(reasons)


class LogLinesTest(unittest.TestCase):
    def test_every_line_is_in_the_document(self):
        quoted = quoted_lines(TROUBLESHOOTING)
        lines = logged_lines()
        self.assertGreater(len(lines), 30)
        for line in lines:
            with self.subTest(str(line)):
                self.assertTrue(line.is_covered_by([text for _, text in quoted]))
                levels = [it for it, text in quoted if line.is_quoted_as(text)]
                self.assertEqual(set().union(*levels), line.levels)

    def test_every_quoted_line_is_in_the_sources(self):
        lines = logged_lines()
        for document in sorted((ROOT / "docs").glob("*.md")):
            for levels, text in quoted_lines(document):
                with self.subTest(text, document=document.name):
                    # A number may stand in a quoted line where a case of its own is told of.
                    found = [it for it in lines if it.is_quoted_as(text) or
                             it.is_quoted_as(re.sub(r"\d+$", "<code>", text))]
                    self.assertTrue(found)
                    self.assertLessEqual(levels, set().union(*[it.levels for it in found]))

    def test_every_text_is_in_the_document_and_the_other_way_round(self):
        self.assertEqual({shape(it) for it in quoted_texts(TROUBLESHOOTING)},
                         {shape(it) for it in placed_texts()})

    def test_notes_and_prints_are_those_of_the_sources(self):
        notes = " ".join(row[0].strip("`") for row in tables(TROUBLESHOOTING, r"note \|"))
        made = literals(body("FailureText")) + literals(body("Refusal"))
        self.assertEqual(words(notes), words(" ".join(made)))
        printed = [row[0].strip("`") for row in tables(TROUBLESHOOTING, r"printed \|")]
        calls = [arguments(source, call.end()) for source in SOURCES.values()
                 for call in re.finditer(r"\bfprintf\(", source)]
        self.assertEqual({shape(it) for it in printed}, {shape(literal(it[1])) for it in calls})

    def test_nothing_else_writes_to_the_log(self):
        senders = {path.name for path, source in SOURCES.items() if "HostCommand::Log" in source}
        self.assertEqual(senders, {"host_log.cpp"})


if __name__ == "__main__":
    unittest.main()
