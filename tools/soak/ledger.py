"""The books of a run: what becomes of every notification, told by the records of `notifypi host
--json --bytes` alone."""
import collections
import re
import time

import frames
import load

EVENT = "Write of an event"
ACCEPTED = re.compile(r"Profile P(\d+): PreTrigger\(")
CLEARING = re.compile(r"Clearing retry notifications queue\. (\d+) ")
FILE = re.compile(r"notify-mail-(\d+)-(\d+)-")
KNOWN_ERROR = "Failed to send notification using profile "
SLACK = 0.01  # seconds between what the plug-in's clock and the host's say

# Ends of a message, by the reason that the host gives for its leaving the retry queue.
REASONS = {"it has waited for MaxRetrySeconds": "too old",
           "no later attempt can succeed": "refused",
           "MaxRetryQueue messages wait already": "pushed out",
           "the configuration has changed": "cleared"}
FATES = ["mailed", "mailed late", *REASONS.values()]
# How transfers end that never spoke to a server: the stand-in for curl, and curl without one.
NEVER_THERE = {6, 7, 26, 35, 67, -9}


class Message:
    def __init__(self):
        self.queued = False
        self.end = None      # of the last attempt: the exit status, or the signal below 0
        self.uncertain = 0   # attempts that failed behind the server's greeting


def subject(key):
    profile, seconds = key
    return time.strftime(f"{profile} %Y%m%d%H%M%S", time.gmtime(seconds))


class Ledger(frames.Frames):
    """Of notifications and messages, too."""

    def __init__(self):
        super().__init__()
        self.fates = {}      # key (profile, time of the event) -> (fate, uncertain attempts)
        self.open = {}       # key -> Message
        self.queue = []      # keys of those that wait for a retry, oldest first
        self._event = None   # being written: (call, thread, begin, mentions)
        self._accepted = {}  # its profiles that a notification was made for -> when
        self._last = {}      # profile -> (earliest, latest) time of its last notification
        self._key = self._request = None  # of the message that is being sent

    # -- events

    def on_call(self, it):
        if it["name"] == EVENT:
            self._event = (it["call"], it["thread"], it["time"], list(load.mentions(it["payload"])))
            self._accepted = {}
            self.counts["events"] += 1

    def on_log(self, it):
        accepted, clearing = ACCEPTED.match(it["text"]), CLEARING.match(it["text"])
        if accepted and self._event and it["thread"] == self._event[1]:
            self._accept(int(accepted[1]), it["time"])
        elif clearing:
            self.expect_equal("messages cleared, and those that waited", int(clearing[1]),
                              len(self.queue))
        elif it["text"].startswith("Attachment "):
            self.counts["clips"] += 1
        elif it["level"] >= 75 and not it["text"].startswith(KNOWN_ERROR):
            self.find("nothing here is a reason for: " + it["text"])

    def _accept(self, profile, now):
        asked = [it for it in self._event[3] if it[0] == profile]
        if not asked or profile in self._accepted:
            return self.find(f"a notification of profile {profile} that no event has asked for")
        self._accepted[profile] = now
        self.open[asked[0][:2]] = Message()
        self.counts["accepted"] += 1

    def on_return(self, it):
        if self._event is None or it["call"] != self._event[0]:
            return
        begin = self._event[2]
        for profile, seconds, known, due, throttle in self._event[3]:
            name = f"the event of {seconds} for profile {profile} "
            last, accepted = self._last.get(profile), self._accepted.get(profile)
            self.counts["mentions"] += 1
            if not due:
                self.counts["not due" if known else "unknown"] += 1
                if accepted is not None:
                    self.find(name + "was accepted, but none was due")
            elif accepted is not None:
                if throttle and last and accepted - last[0] < throttle - SLACK:
                    self.find(name + "was accepted, but had to be throttled")
                self._last[profile] = begin, accepted
            elif not throttle:
                self.find(name + "came to nothing")
            else:
                self.counts["throttled"] += 1
                if last is None or begin - last[1] > throttle + SLACK:
                    self.find(name + "was throttled, but was due")
        self._event = None

    # -- messages

    @staticmethod
    def _key_of(text):
        found = FILE.search(text)
        return (int(found[1]), int(found[2])) if found else None

    def on_launch(self, it):
        if "-T" not in it["arguments"]:
            return
        self.counts["attempts"] += 1
        file = it["arguments"][it["arguments"].index("-T") + 1]
        self._key, self._request = self._key_of(file), it["request"]
        if self._key not in self.open:
            self.find(f"curl was run for {file}, which is no message under way")

    def on_ended(self, it):
        message = self.open.get(self._key)
        if message is None or it["request"] != self._request:
            return
        message.end = -it["signal"] if "signal" in it else it["exit"]
        self.counts["failed attempts"] += message.end != 0
        message.uncertain += message.end not in NEVER_THERE | {0}

    def on_retry(self, it):
        key = self._key_of(it["file"])
        if it["what"] == "queued":
            self.counts["queued"] += 1
            if key != self._key or key not in self.open or self.open[key].queued:
                return self.find("this message was not being sent, or is queued: " + it["file"])
            self.open[key].queued = True
            self.queue.append(key)
        elif it["what"] != "tried":
            if key not in self.queue:
                return self.find("this message is not in the retry queue: " + it["file"])
            fate = "mailed late" if it["what"] == "sent" else REASONS.get(it["why"], it["why"])
            if (self.open[key].end == 0) != (fate == "mailed late"):
                self.find(f"its last attempt ended with {self.open[key].end}, but {fate}: {key}")
            if fate == "pushed out" and key != self.queue[0]:
                self.find(f"not the oldest message was pushed out: {key}")
            self.queue.remove(key)
            self._conclude(key, fate)

    def on_status(self, it):
        if it["status"] < 0:
            return
        self.counts["reported failed" if it["status"] else "reported delivered"] += 1
        message = self.open.get(self._key)
        # What is in the retry queue goes on; all else ends with its report.
        if message is None or message.queued or self._key[0] != it["profile"]:
            return
        if (message.end == 0) != (it["status"] == 0):
            self.find(f"reported {it['status']}, but curl ended with {message.end}: {self._key}")
        self._conclude(self._key, "refused" if it["status"] else "mailed")

    def _conclude(self, key, fate):
        self.fates[key] = fate, self.open.pop(key).uncertain
        self.counts[fate] += 1

    # -- the balance

    def balance(self):
        counts, equal = self.counts, self.expect_equal
        ends = sum(counts[it] for it in FATES)
        equal("profiles named by events, and what became of them", counts["mentions"],
              sum(counts[it] for it in ("accepted", "throttled", "not due", "unknown")))
        equal("notifications accepted, and their ends", counts["accepted"], ends)
        equal("reports of a delivery, and deliveries", counts["reported delivered"],
              counts["mailed"] + counts["mailed late"])
        refused_at_once = ends - counts["mailed"] - counts["queued"] + len(self.queue)
        equal("reports of a failure, and failures", counts["reported failed"],
              counts["queued"] + refused_at_once)
        for key in self.open:
            self.find(f"message {subject(key)} has no end")
        return super().balance()

    def compare(self, received):
        """With the subjects that the mail server has taken: none is missing, none came twice."""
        taken = collections.Counter(received)
        for key, (fate, uncertain) in self.fates.items():
            mailed, count = fate.startswith("mailed"), taken.pop(subject(key), 0)
            if not mailed <= count <= mailed + uncertain:
                self.find(f"the server has received {count} times: {subject(key)} ({fate})")
        for unknown in taken:
            self.find("the server has received what no event has asked for: " + unknown)
