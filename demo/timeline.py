"""What the simulated host printed about a run."""
import dataclasses
import re

LINE = re.compile(r"^ *(?P<time>[0-9.]+)  (?P<kind>\S+) +(?P<text>.*)$")
ATTACHMENT = re.compile(r"Attachment (?P<path>.*), preview (?P<preview>[0-9.]+), length "
                        r"(?P<length>[0-9.]+), frames (?P<frames>\d+), ")
LATE = re.compile(r"stream (?P<stream>\d+) ends: .* at most (?P<late>[0-9.]+) s late")


@dataclasses.dataclass
class Clip:
    before: float   # seconds before the event
    length: float   # seconds
    frames: int


class Timeline:
    def __init__(self, text):
        self.event = self.delivered = None   # seconds of the run
        self.clips = {}                      # by file name
        self.late = {}                       # seconds, by stream
        for line in filter(None, map(LINE.match, text.splitlines())):
            self._read(float(line["time"]), line["kind"], line["text"])

    def _read(self, time, kind, text):
        if kind == "host" and text.startswith("event document"):
            self.event = time
        elif kind == "status" and text.endswith(": delivered"):
            self.delivered = time
        elif found := ATTACHMENT.match(text):
            name = found["path"].rsplit("/", 1)[-1]
            self.clips[name] = Clip(float(found["preview"]), float(found["length"]),
                                    int(found["frames"]))
        elif found := LATE.match(text):
            self.late[int(found["stream"])] = float(found["late"])
