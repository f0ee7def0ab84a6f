"""The books of a run's frames, told by the records of `notifypi host --json --bytes` alone."""
import collections


class Frames:
    """Books of frames alone, and of the faults that the host itself has found."""

    def __init__(self):
        self.counts = collections.Counter()
        self.findings = []
        self.held = self.held_bytes = self.most_bytes = 0

    def find(self, text):
        self.counts["findings"] += 1
        if len(self.findings) < 20:
            self.findings.append(text)

    def expect_equal(self, what, left, right):
        if left != right:
            self.find(f"{what}: {left} and {right}")

    def take(self, record):
        handler = getattr(self, "on_" + record["kind"].replace("-", "_"), None)
        if handler:
            handler(record)

    def on_fault(self, it):
        self.find(it["text"])

    def on_frame(self, it):
        self.counts["frames offered"] += 1
        if it["taken"]:
            self.counts["frames taken"] += 1
            self.held += 1
            self.held_bytes += it["size"]
            self.most_bytes = max(self.most_bytes, self.held_bytes)

    def on_frame_back(self, it):
        self.counts["frames given back"] += 1
        self.held -= 1
        self.held_bytes -= it["size"]

    def balance(self):
        """To be called once, when the run is over: everything must have come to an end."""
        self.expect_equal("frames taken, and given back", self.counts["frames taken"],
                          self.counts["frames given back"])
        return self.findings
