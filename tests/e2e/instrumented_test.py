"""Whatever becomes of a message, once, under a tool that watches: memory, locks, what stays behind.

Valgrind needs a 32-bit C library whose symbols it can read: NOTIFYPI_UNPACKED, as script/bootstrap
unpacks it. NOTIFYPI_SANITIZE names the sanitizers of the build; one that has any watches itself.
"""
import os
import pathlib
import shutil
import unittest

import road
from road import DELIVERED, FAILED, SpeedTest, event_document, events, notify_document, profile

SANITIZERS = os.environ.get("NOTIFYPI_SANITIZE", "")
SUPPRESSIONS = pathlib.Path(__file__).with_name("helgrind.supp")

# A camera of each kind: stream, as the host command names its codec, and the encoder for it.
CAMERAS = ((66049, "h264", "yuv420p", "libx264", "-preset", "ultrafast"), (66305, "mpeg4", "yuv420p", "mpeg4"),
           (66561, "jpeg", "yuvj420p", "mjpeg"))
CLIPS = ("event", event_document(2, sources=[camera[0] for camera in CAMERAS]))


class InstrumentedTest(SpeedTest):
    def play(self, lives, wrapper):
        """Mails, clips, a link, changes, retries; at last the host stops while clips are open."""
        web = self.start("web_server.py", "--system", "A-1001", "7")
        profiles = [profile(1), profile(2, "Clips", attach=1, MaxVideoSeconds=30, subject="{event type} at {source}",
                                        body='{weblink} {date format="%Y"}')]

        def configuration(server, delta):
            return notify_document([server], profiles, delta=delta, MaxRetryQueue=2, web=f"127.0.0.1:{web}")

        down = road.smtp_server(self.closed_port(), login=("u", "p"))
        (self.folder / "notify.xml").write_bytes(configuration(self.port, 0))
        cameras = [f"camera {stream} {codec} " + str(road.make_video(
                       self.top / f"{stream}.mkv", *encoder, pixels=pixels, rate=2))
                   for stream, codec, pixels, *encoder in CAMERAS]
        # The second mail that fails is called off by the change; of the next three, one is pushed
        # out by the others and two are sent at their retry.
        run = self.start_host(
            *cameras, "wait 20", *events(1), CLIPS, "wait delivered 2",
            ("update", configuration(down, 1)), ("update", b"<tDVR"), ("event", b"<a>" * 1000),
            *events(1), "wait idle", ("update", configuration(self.port, 1)), "mail-server down", *events(1, 1, 1),
            "wait idle", "mail-server up", "wait delivered 4", CLIPS,
            speed=20, options=["--pace", 0.1, "--repeat", lives], wrapper=wrapper)
        run.read_until(2 * lives, text="Profile Clips: ")
        timeline = run.finish(is_stopped=True)
        # The last clips may be on their way or not.
        delivered = [number for number, status in timeline.statuses() if status == DELIVERED]
        self.assertEqual(delivered[:5 * lives - 1], ([1, 2, 1, 1, 2] * lives)[:-1])
        self.assertEqual(timeline.statuses().count((1, FAILED)), 4 * lives)
        self.assertEqual([it["what"] for it in timeline.of_kind("retry") if it["what"] != "tried"],
                         "queued discarded queued queued queued discarded sent sent".split() * lives)
        clips = [it.content for it in self.received() if b"/advanced.web?s=7;#" in it.content]
        self.assertEqual({it.count(b"Content-Disposition: ") for it in clips}, {3})

    def valgrind(self, *options):
        """The words before the command."""
        unpacked = pathlib.Path(os.environ["NOTIFYPI_UNPACKED"])
        libraries = unpacked / "lib" / "i386-linux-gnu"
        symbols = list(unpacked.glob("usr/lib/debug/.build-id/*/*.debug"))
        if not shutil.which("valgrind") or not (libraries / "ld-linux.so.2").exists() or not symbols:
            self.skipTest("wants valgrind and the 32-bit C library of script/bootstrap test")
        # A library's symbols are looked for below this folder, in the library's own folder there.
        folder = self.top / "symbols"
        beside = folder / str(libraries.resolve()).lstrip("/")
        beside.mkdir(parents=True)
        for path in symbols:
            (beside / path.name).symlink_to(path)
        return ["valgrind", "--quiet", "--error-exitcode=99", "--keep-debuginfo=yes", "--fair-sched=yes",
                f"--extra-debuginfo-path={folder}", *options, (libraries / "ld-linux.so.2").resolve(),
                "--library-path", libraries]

    @unittest.skipIf(SANITIZERS, "the sanitizers of the build watch the other test")
    def test_helgrind(self):
        """No data race, no misuse of locks, no locks taken in two orders."""
        # It finds as much in a third of the time, and tells less of a race's other side.
        self.play(1, self.valgrind("--tool=helgrind", "--history-level=approx", f"--suppressions={SUPPRESSIONS}"))

    def test_memcheck(self):
        """No misuse of memory; neither memory nor a file that is not given back."""
        self.play(2, [] if SANITIZERS else self.valgrind("--leak-check=full", "--show-leak-kinds=all",
                                                         "--errors-for-leak-kinds=all", "--track-fds=yes"))
