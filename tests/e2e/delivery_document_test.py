"""docs/delivery.md against the sources: it quotes no line that is not there, and omits none."""
import pathlib
import re
import unittest

import road

ROOT = pathlib.Path(road.__file__).parents[2]
LEVELS = {"information": "Information", "warning": "Warning", "error": "Error"}

# Lines that belong to the document.
OWN_SOURCES = [*sorted((ROOT / "src/mail").glob("*.cpp")),
               ROOT / "src/service/notification_processing.cpp", ROOT / "src/service/worker.cpp"]

STRING = r'"(?:[^"\\]|\\.)*"'
SPECIFIER = r"%(?:[a-z]+)"


def join_strings(words):
    """The text of adjacent C string literals."""
    return "".join(it[1:-1] for it in re.findall(STRING, words)).replace('\\"', '"')


def formats(path):
    """Level and format of each line that a source file logs; the level as it is written there."""
    source = path.read_text(encoding="utf-8")
    calls = re.finditer(rf"(?:HostLog|\.Add)\(([^;\"]*?)((?:{STRING}\s*)+)", source)
    return [(call.group(1), join_strings(call.group(2))) for call in calls]


def pattern(text):
    """What a quoted line of this format looks like: something in angle brackets, or a number."""
    pieces = re.split(SPECIFIER, text)
    return re.compile(r"(?:<[^<>]+>|\d+)".join(re.escape(piece) for piece in pieces))


def quoted_lines():
    """Level and text of each row of the document's tables of lines."""
    document = (ROOT / "docs/delivery.md").read_text(encoding="utf-8")
    return re.findall(r"^\| (information|warning|error) \| `([^`]+)` \|", document, re.MULTILINE)


class DeliveryDocumentTest(unittest.TestCase):
    def test_every_quoted_line_is_one_of_the_sources_at_this_level(self):
        known = [it for path in sorted((ROOT / "src").rglob("*.cpp")) for it in formats(path)]
        quoted = quoted_lines()
        self.assertGreater(len(quoted), 20)
        for level, line in quoted:
            found = [before for before, text in known if pattern(text).fullmatch(line)]
            self.assertTrue(found, line)
            self.assertTrue(any(f"LogLevel::{LEVELS[level]}" in it for it in found), (level, line))

    def test_no_line_is_left_out(self):
        quoted = [line for _, line in quoted_lines()]
        for path in OWN_SOURCES:
            # Each call is found, so that none is left out for being written in another way.
            self.assertEqual(len(formats(path)),
                             len(re.findall(r"HostLog\(", path.read_text(encoding="utf-8"))), path)
            for _, text in formats(path):
                self.assertTrue([line for line in quoted if pattern(text).fullmatch(line)],
                                f"{path.name}: {text}")

    def test_every_line_has_been_shown_by_a_test(self):
        tests = "".join(re.sub(r'["\']\s*\n\s*f?["\']', "", path.read_text(encoding="utf-8"))
                        for path in sorted((ROOT / "tests").rglob("*"))
                        if path.suffix in (".cpp", ".py") and path != pathlib.Path(__file__))
        tests = tests.replace('\\"', '"')
        pieces = [re.split(r"<[^<>]+>|\d+", line) for _, line in quoted_lines()]
        longest = [max(it, key=len).strip() for it in pieces]
        self.assertEqual([it for it in longest if it not in tests], [])


if __name__ == "__main__":
    road.main()
