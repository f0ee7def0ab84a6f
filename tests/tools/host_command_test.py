"""`notifypi host` as a program: the breaches of the contract that it finds, how it feeds and ends."""
import json
import os
import pathlib
import subprocess

import road

HERE = pathlib.Path(__file__).parent


def rows(name):
    """The cells of each line with a "|" below the first paragraph of a file."""
    text = (HERE / name).read_text(encoding="utf-8").split("\n\n", 1)[1]
    return [[cell.strip() for cell in line.split("|")] for line in text.splitlines() if "|" in line]


class HostCommandTest(road.RoadTest):
    def setUp(self):
        super().setUp()
        (self.folder / "event.xml").write_bytes(road.event_document(sources=[]))
        self.configure([25])

    def shell(self, command, **environment):
        path = f"{pathlib.Path(road.COMMAND).parent}:{os.environ['PATH']}"
        done = subprocess.run(["/bin/sh", "-c", command], cwd=self.folder, capture_output=True, text=True,
                              check=False, env={**os.environ, "PATH": path, **environment})
        return done.returncode, done.stdout + done.stderr

    def run_json(self, arguments, before="", **environment):
        """The exit status, and a function that gives the texts (or all) of what is of one kind."""
        status, output = self.shell(f"{before} notifypi host --json {arguments}", **environment)
        happened = [json.loads(it) for it in output.splitlines() if it.startswith("{")]
        return status, lambda kind, field="text": [it.get(field, it) for it in happened
                                                   if it["kind"] == kind]

    def test_finds_each_breach_of_the_contract(self):
        for kind, fault, told in rows("breaches.txt"):
            camera = "" if kind == "event" else "--speed 20 --before 4 --camera '66049 jpeg'"
            status, of = self.run_json(f"--settle 0.1 --event event.xml {camera} --plugin " +
                                       os.environ["FAULTY_PLUGIN"], PLUGIN_FAULT=fault)
            self.assertEqual(status, 1 if told else 0, fault)  # a release may overtake the answer
            self.assertTrue(not told or any(told in it for it in of("fault")), (fault, of("fault")))

    def test_time_out_is_a_fault_and_leaves_no_program_behind(self):
        self.replace_curl(f"echo $$ >{self.top}/pid; exec sleep 60")
        status, of = self.run_json("--event event.xml --timeout 1")
        self.assertEqual((status, of("fault")), (1, ["not done after 1 s; still running: ./curl"]))
        # Gone, or dead and not yet reaped by whoever has inherited it.
        self.assertNotIn("State", self.shell("grep '^State:[^Z]*$' /proc/$(cat ../pid)/status")[1])

    def test_stops_cleanly_on_a_signal(self):
        for signal in "INT", "HUP", "QUIT":
            status, of = self.run_json("--mail-server 'echo up; exec sleep 60'",
                                       f"timeout --preserve-status -s {signal} 0.5")
            self.assertEqual((status, of("host")[-1]), (0, "unloaded"))
            self.assertIn("mail server down", of("host"))

    def test_feeds_each_packet_of_a_file(self):
        """The host makes the system document that goes with the cameras: the plug-in takes what
        notifies, and of a camera with pictures only those."""
        self.shell("for codec in libx264 mpeg4 mjpeg; do ffmpeg -v error -f lavfi -i testsrc2=size=64x48:"
                   "rate=10:duration=2 -c:v $codec -g 10 $codec.mp4; done")
        status, of = self.run_json(
            "--settle 0.1 --speed 20 --before 3 --event event.xml --camera '66049 h264 libx264.mp4' "
            "--camera '66305 mpeg4 mpeg4.mp4' --camera '66305/1 jpeg mjpeg.mp4' "
            "--camera '66561 h264 mpeg4.mp4'")
        packets = int(self.shell("ffprobe -v error -show_packets -of compact libx264.mp4 | wc -l")[1])
        self.assertEqual((status, [[it[key] for key in ("stream", "offered", "taken", "given_back")]
                                   for it in of("frames", "")]),
                         (0, [[stream, packets, taken, taken] for stream, taken in (
                             (66049, packets), (66305, 0), (66561, packets), (268501761, packets))]))

    def test_tells_what_cannot_be_run(self):
        for text, told in rows("unusable.txt"):
            (self.folder / "a.steps").write_text(text.replace("\\n", "\n"))
            options = text if text.startswith("--") else "--script a.steps"
            status, output = self.shell(f"notifypi host {options}", PLUGIN=road.PLUGIN)
            self.assertEqual(status, 2)
            self.assertIn(told, output)
        (self.folder / "a.steps").write_text("event empty.xml\r\n wait 0.5 \nwait idle\n")
        (self.folder / "empty.xml").touch()
        self.assertEqual(self.run_json("--script a.steps")[0], 0)
        status, of = self.run_json("--event event.xml --mail-server 'echo no port >&2; exit 3'")
        self.assertEqual((status, of("fault")), (1, ["the mail server did not come up: no port"]))
