#!/usr/bin/python3
"""The books of the soak run find what is missing, and only that."""
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools/soak"))
import figures
import ledger
import load


class Story:
    """Tells a ledger, record by record, what a plug-in does: an event a second, messages."""

    def __init__(self):
        self.ledger, self.now, self.number = ledger.Ledger(), 0, -1

    def tell(self, kind, **fields):
        self.ledger.take({"kind": kind, "time": self.now, "thread": 1, **fields})

    def event(self, profiles, accepted, starts=True):
        self.now, self.number = self.now + 1, self.number + 1
        text = load.event_document(self.number, profiles, starts, [66049])
        self.tell("call", name=ledger.EVENT, call=self.number, payload=text)
        for it in accepted:
            self.tell("log", level=25, text=f"Profile P{it}: PreTrigger(5), MaxDuration(0)")
        self.tell("return", name=ledger.EVENT, call=self.number)

    @staticmethod
    def file(profile, number):
        return f"./data/notify-mail-{profile}-{load.FIRST_TIME + number}-0-0"

    def run(self, profile, number, end):
        self.tell("launch", request=4, arguments=["./curl", "-T", self.file(profile, number)])
        self.tell("ended", request=4, **{"signal" if end < 0 else "exit": abs(end)})

    def mail(self, profile, number, end=0, status=0):
        self.run(profile, number, end)
        self.tell("status", profile=profile, status=status)

    def queue(self, number, end=7):
        self.run(1, number, end)
        self.tell("retry", what="queued", file=self.file(1, number))
        self.tell("status", profile=1, status=1)

    def clear(self, count):
        self.tell("log", level=25, text=f"Clearing retry notifications queue. {count} failed ...")

    def leave(self, what, number, why=""):
        self.tell("retry", what=what, file=self.file(1, number), why=why)


TOO_OLD, REFUSED, PUSHED_OUT, CLEARED = ledger.REASONS
ONE = ([1], [1])


def frame(story, back):
    story.tell("frame", size=10, taken=True)
    for _ in range(back):
        story.tell("frame-back", size=10)


# What must be found, and the story: the names of steps with what they are told.
UNBALANCED = [
    ("came to nothing", [("event", [1], [])]),
    ("none was due", [("event", [2], [2], False), ("mail", 2, 0)]),
    ("no event has asked for", [("event", [1], [1, 1])]),
    ("no event has asked for", [("event", [1], [1, 2])]),
    ("had to be throttled", [("event", [4], [4]), ("event", [4], [4])]),
    ("was due", [("event", [4], [4]), *[("event", [1], [1])] * 6, ("event", [4], [])]),
    ("has no end", [("event", *ONE)]),
    ("no message under way", [("event", *ONE), ("mail", 1, 0), ("mail", 1, 0)]),
    ("has no end", [("event", *ONE), ("run", 1, 0, 0)]),
    ("reported 0", [("event", *ONE), ("mail", 1, 0, -9)]),
    ("not in the retry queue", [("event", *ONE), ("leave", "discarded", 0, CLEARED)]),
    ("not the oldest", [*[("event", *ONE)] * 2, ("queue", 0), ("queue", 1),
                        ("leave", "discarded", 1, PUSHED_OUT)]),
    ("its last attempt", [("event", *ONE), ("queue", 0), ("run", 1, 0, 7), ("leave", "sent", 0)]),
    ("messages cleared", [("event", *ONE), ("queue", 0), ("clear", 2)]),
    ("reports of a delivery",
     [("event", *ONE), ("queue", 0), ("run", 1, 0, 0), ("leave", "sent", 0)]),
]


class Books(unittest.TestCase):
    def test_every_notification_is_followed_to_its_end(self):
        story = Story()
        story.event([1, 2, 99], [1], starts=False)
        story.mail(1, 0)
        for _ in range(7):
            story.event(*ONE)
        for number, end in ((1, 7), (2, 56), (3, -9), (4, 7)):
            story.queue(number, end)
        story.leave("discarded", 1, PUSHED_OUT)
        for number, end, what, why in ((2, 0, "sent", ""), (3, 56, "discarded", TOO_OLD)):
            story.leave("tried", number)
            story.run(1, number, end)
            story.leave(what, number, why)
        story.tell("status", profile=1, status=0)
        story.mail(1, 5, 67, status=1)
        story.clear(1)
        story.leave("discarded", 4, CLEARED)
        story.mail(1, 6)
        story.mail(1, 7)
        frame(story, 1)
        self.assertEqual(story.ledger.balance(), [])
        self.assertEqual([story.ledger.fates[1, load.FIRST_TIME + it] for it in range(1, 6)],
                         [("pushed out", 0), ("mailed late", 1), ("too old", 1), ("cleared", 0),
                          ("refused", 0)])
        received = [ledger.subject((1, load.FIRST_TIME + it)) for it in (0, 2, 6, 7)]
        story.ledger.compare([*received, received[1]])  # 2 may have arrived with its first attempt
        self.assertEqual(story.ledger.findings, [])
        story.ledger.compare([*received[1:], received[3], "x"])
        self.assertEqual([it.split(":")[0] for it in story.ledger.findings],
                         ["the server has received 0 times", "the server has received 2 times",
                          "the server has received what no event has asked for"])

    def test_what_does_not_balance_is_found(self):
        for finding, steps in UNBALANCED:
            story = Story()
            for step, *told in steps:
                getattr(story, step)(*told)
            self.assertIn(finding, "\n".join(story.ledger.balance()), steps)
        for back in (0, 2):
            story = Story()
            frame(story, back)
            self.assertIn("frames taken, and given back", story.ledger.balance()[0])

    def test_waves_are_flat_and_a_rise_is_not(self):
        def findings(name, rise):
            samples = [{"seconds": it, "resident": 1e8 + it % 50 * 1e5, "besides frames": 6e7,
                        "frames held": 10_000, "descriptors": 12 + it % 5, "threads": 11,
                        "children": 1, "files": 0} for it in range(1800)]
            for it in samples:
                it[name] += rise(it["seconds"])
            return figures.judge(samples[:-5], samples[-5:], 1795, load.ROUND)[2]
        self.assertEqual(findings("resident", lambda second: 0), [])
        for name, seconds in (("resident", 0.001), ("besides frames", 0.002), ("frames held", 10),
                              ("descriptors", 500), ("threads", 1000), ("children", 1000),
                              ("files", 1000)):
            self.assertTrue(findings(name, lambda it: it // seconds)[0].startswith(name), name)


if __name__ == "__main__":
    unittest.main()
