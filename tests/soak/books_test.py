"""The books of the soak run (tools/soak, in PYTHONPATH) find what is missing, and only that."""
import figures
import ledger
import load


def findings(story):
    """Of steps: an event by what it asks for and gets, or a record by its kind and fields."""
    books, file = ledger.Ledger(), f"notify-mail-1-{load.FIRST_TIME}-0"
    for now, (what, it, *gets) in enumerate(story):
        records = [{"kind": what, "file": file, "arguments": ["-T", file], **it}] if not gets else [
            {"kind": "call", "name": ledger.EVENT,
             "payload": load.event_document(0, it, True, [1])},
            *({"kind": "log", "level": 25, "text": f"Profile P{n}: PreTrigger("} for n in gets[0]),
            {"kind": "return"}]
        for record in records:
            books.take({"time": now, "thread": 1, "call": 1, "request": 4, **record})
    return "\n".join(books.balance())


KILLED, ENDS_0, ENDS_7, ENDS_67 = ([("launch", {}), ("ended", it)] for it in (
    {"signal": 9}, {"exit": 0}, {"exit": 7}, {"exit": 67}))
EVENT, SEEN, IDLE = ("event", [1], [1]), ("event", [4], [4]), ("event", [9], [])
DELIVERED, FAILED = (("status", {"profile": 1, "status": it}) for it in (0, 1))
WAITS, SENT = [EVENT, *ENDS_7, ("retry", {"what": "queued"}), FAILED], ("retry", {"what": "sent"})
OLD, _, _, CLEARED = (("retry", {"what": "discarded", "why": it}) for it in ledger.REASONS)
for finding, story in {
        "": [EVENT, *ENDS_0, DELIVERED, *WAITS, *ENDS_0, SENT, DELIVERED, *WAITS, CLEARED,
             *WAITS, *ENDS_7, OLD, EVENT, *ENDS_67, FAILED],
        "came to nothing": [("event", [1], [])], "none was due": [("event", [5], [5])],
        "has asked for": [("event", [1], [1, 2])], "had to be throttled": [SEEN, SEEN],
        "was due": [SEEN, *[IDLE] * 6, ("event", [4], [])], "has no end": [EVENT],
        "no message under way": ENDS_0, "reported 0": [EVENT, *KILLED, DELIVERED],
        "last attempt": [*WAITS, SENT], "retry queue": [OLD], "delivery": [*WAITS, *ENDS_0, SENT],
        "cleared": [*WAITS, ("log", {"text": "Clearing retry notifications queue. 2 "})],
        "frames taken": [("frame", {"size": 9, "taken": True})]}.items():
    assert finding in findings(story) and (finding != "") == (findings(story) != ""), finding
books = ledger.Ledger()
books.fates = {(1, 0): ("mailed", 0), (1, 1): ("too old", 1), (1, 2): ("mailed", 0)}
books.compare([ledger.subject((1, it)) for it in (0, 0, 1)])
assert len(books.findings) == 2, books.findings  # one came twice, one is missing
for rising in ("", *figures.GROWING, *figures.COUNTED, "files"):
    samples = [{"seconds": second, "files": 0, "resident": 1e8 + second % 50 * 1e5, "threads": 11,
                "besides frames": 6e7, "frames held": 1e4, "descriptors": 12 + second % 5,
                "children": 1} for second in range(1800)]
    for second, sample in enumerate(samples):
        sample[rising] = sample.get(rising, 0) * (1 + second / 80000) + second // 1000
    found = figures.judge(samples[:-5], samples[-5:], 1795, load.ROUND)[2]
    assert [it.startswith(rising) for it in found] == [True] * bool(rising), (rising, found)
