"""The plug-in under valgrind: how to run it there, and plays that go the whole road.

Valgrind needs a 32-bit C library whose symbols it can read. The one on the machine has none, so the
run uses the one that script/bootstrap unpacks: NOTIFYPI_UNPACKED is the folder, NOTIFYPI_SANITIZE
the sanitizers of the build; one that has any watches itself.
"""
import os
import pathlib
import shutil
import signal
import subprocess

import road
from retry_test import FOR_EVER, RetryTest
from road import DELIVERED, FAILED, event_document, notify_document, profile, smtp_server
from web_link_test import SERIAL, SYSTEM, WebServer, motion

SANITIZERS = os.environ.get("NOTIFYPI_SANITIZE", "")
MISSING = ("valgrind is missing, or the unpacked 32-bit C library with its symbols "
           "(script/bootstrap test)")

# An event takes its time under valgrind before it is reported on.
SETTLE = 10

# Everything that is not given back is an error.
LEAKS = ("--leak-check=full", "--show-leak-kinds=all", "--errors-for-leak-kinds=all")

# A camera of each kind: stream, as the host command names its codec, and the encoder for it.
CAMERAS = (
    (66049, "h264", "libx264", "-preset", "ultrafast"),
    (66305, "mpeg4", "mpeg4"),
    (66561, "jpeg", "mjpeg"))


def command(folder, *options):
    """The words before the command, or None where something is missing. Uses the folder."""
    unpacked = pathlib.Path(os.environ.get("NOTIFYPI_UNPACKED", ""))
    libraries = unpacked / "lib" / "i386-linux-gnu"
    loader = libraries / "ld-linux.so.2"
    symbols = list(unpacked.glob("usr/lib/debug/.build-id/*/*.debug"))
    if not shutil.which("valgrind") or not loader.exists() or not symbols:
        return None
    # The symbols of a library are looked for below this folder, in the library's own folder there.
    beside = folder / str(libraries.resolve()).lstrip("/")
    beside.mkdir(parents=True)
    for path in symbols:
        (beside / path.name).symlink_to(path)
    return ["valgrind", "--quiet", "--error-exitcode=99", "--keep-debuginfo=yes",
            "--fair-sched=yes", f"--extra-debuginfo-path={folder}", *options,
            loader.resolve(), "--library-path", libraries]


class WholeRoad(RetryTest):
    """Whatever becomes of a message, once; what valgrind finds on the way fails the run."""

    OPTIONS = ()  # of valgrind

    def setUp(self):
        super().setUp()
        if SANITIZERS:
            self.skipTest("the sanitizers of the build watch the other tests")
        self.wrapper = command(self.top / "symbols", *self.OPTIONS)
        if self.wrapper is None:
            self.skipTest(MISSING)

    def camera_steps(self):
        steps = []
        for stream, codec, *encoder in CAMERAS:
            video = self.top / f"{stream}.mkv"
            subprocess.run(
                ["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                 "testsrc2=size=160x120:rate=5:duration=90", "-g", "5", "-c:v", *encoder,
                 "-pix_fmt", "yuvj420p" if codec == "jpeg" else "yuv420p", video], check=True)
            steps.append(f"camera {stream} {codec} {video}")
        return steps

    def test_mails_clips_links_and_changes(self):
        web = WebServer(self.top / "requests", ["--system", SERIAL, "7"])
        self.addCleanup(web.close)
        server = self.start_server()
        with_clips = profile(2, "Clips", subject="{event type} at {source}",
                             body='{weblink} {date format="%Y"}').replace(
            'attach="0"', 'attach="1"').replace('MaxVideoSeconds="0"', 'MaxVideoSeconds="2"')

        def configuration(port, delta, login=None):
            document = notify_document([smtp_server(port, login=login)], [profile(1), with_clips],
                                       delta=delta)
            return document.replace(b'<Web address=""', road.to_bytes(
                f'<Web address="{web.address}"'))

        (self.folder / "notify.xml").write_bytes(configuration(server.port, 0))
        down = configuration(self.closed_port(), 1, login=("u", "p"))
        back = configuration(server.port, 1)
        three = motion(*[camera[0] for camera in CAMERAS]).replace(b'<Profile ID="1"',
                                                                  b'<Profile ID="2"')
        run = road.RoadTest.start_host(
            self, *self.camera_steps(), "wait 4", ("event", event_document()), ("event", three),
            "wait delivered 2", ("update", down), ("update", b"<tDVR"), ("event", b"<a>" * 1000),
            ("event", event_document()), "wait idle", ("update", back), ("event", three),
            FOR_EVER, wrapper=self.wrapper, settle=SETTLE)
        # The host stops while clips are open.
        for _ in range(2):
            self.assertTrue(run.read_until(
                lambda it: it["kind"] == "log" and it["text"].startswith("Profile Clips: ")))
        run.signal(signal.SIGINT)
        timeline = self.finish_host(run)
        self.assertEqual([it for it in timeline.statuses() if it[1] != road.UNKNOWN],
                         [(1, DELIVERED), (2, DELIVERED), (1, FAILED)])
        self.assertEqual(server.received()[1].content.count(b"Content-Disposition: "), 3)
        self.assertEqual(len(web.requests()), 1)

    def test_retries(self):
        self.write_configuration(MaxRetryQueue=2)
        timeline = self.run_host(
            ("system", SYSTEM), "mail-server down",
            *[("event", event_document(number)) for number in (1, 2, 3)], "wait idle",
            "mail-server up", "wait delivered 2", wrapper=self.wrapper, speed=60,
            settle=SETTLE)
        self.assertEqual([what for what, _ in self.changes(timeline)],
                         ["queued", "queued", "queued", "discarded", "sent", "sent"])
