"""The example scenarios, as people run them."""
import email
import pathlib
import shutil

import road
from road import DELIVERED, FAILED, UNKNOWN, SpeedTest

EXAMPLES = pathlib.Path(__file__).parents[2] / "demo" / "scenarios"


class ScenarioTest(SpeedTest):
    def run_example(self, name, *options, speed=1):
        shutil.copytree(EXAMPLES, self.top, dirs_exist_ok=True)
        configuration = self.top / "configuration.xml"
        configuration.write_text(configuration.read_text().replace("2525", str(self.port)))
        steps = (self.top / name).read_text().splitlines()
        return self.run_host(*steps, speed=speed, options=options)

    def test_plain(self):
        # A second event that its profile throttles is waited for in silence.
        timeline = self.run_example("plain.steps", "--settle", 1)
        self.assertEqual(timeline.statuses(), [(1, UNKNOWN), (2, UNKNOWN), (1, DELIVERED)])
        self.assertEqual(road.subjects(self.received()), ["Input Trigger at Door contact"])

    def test_outage(self):
        timeline = self.run_example("outage.steps", "--pace", 0.1, speed=60)
        self.assertEqual(timeline.statuses()[2:], [(2, FAILED), (2, DELIVERED)])
        what = [it["what"] for it in timeline.of_kind("retry")]
        self.assertEqual((what[0], set(what[1:-1]), what[-1]), ("queued", {"tried"}, "sent"))
        [mail] = self.received()
        names = [part.get_filename() for part in email.message_from_bytes(mail.content).walk()]
        self.assertEqual([it for it in names if it],
                         ["Video Input 2-1.mov", "Video Input 3-1.mov"])
