"""Ten times from Load to Unload, with the library unloaded in between: nothing stays behind.

Valgrind watches the product; a build with the address sanitizer watches itself. Valgrind needs a
32-bit C library whose symbols it can read. The one on the machine has none, so the run uses the one
that script/bootstrap unpacks: NOTIFYPI_UNPACKED is the folder, NOTIFYPI_SANITIZE the sanitizers.
"""
import os
import pathlib
import shutil

import road
from road import DELIVERED, FAILED, RoadTest, event_document, notify_document, profile, smtp_server

CYCLES = 10


def valgrind(folder):
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
    return ["valgrind", "--quiet", "--leak-check=full", "--show-leak-kinds=all",
            "--errors-for-leak-kinds=all", "--error-exitcode=99", "--keep-debuginfo=yes",
            "--fair-sched=yes", f"--extra-debuginfo-path={folder}",
            loader.resolve(), "--library-path", libraries]


class LeakTest(RoadTest):
    def test_nothing_stays_behind(self):
        wrapper = []
        if "address" not in os.environ.get("NOTIFYPI_SANITIZE", ""):
            wrapper = valgrind(self.top / "symbols")
            if wrapper is None:
                self.skipTest("valgrind is missing, or the unpacked 32-bit C library with its "
                              "symbols (script/bootstrap test)")
        server = self.start_server()
        down = smtp_server(self.closed_port(), login=("u", "p"))
        self.configure([server.port])
        change = notify_document([down], [profile(2, "Down", cc=["c@example.com"])], delta=1)
        back = notify_document([smtp_server(server.port)], [profile()], delta=1)
        # A mail that arrives, documents that are none, and a mail that waits for its retry until a
        # change of the servers calls it off.
        timeline = self.run_host(
            ("event", event_document(1)), "wait delivered 1", ("update", change),
            ("update", b"<tDVR"), ("event", b"<a>" * 1000), ("event", event_document(2)),
            "wait idle", ("update", back), "tick",
            options=["--repeat", str(CYCLES)], wrapper=wrapper, settle=5)
        self.assertEqual(len(server.received()), CYCLES)
        self.assertEqual([it for it in timeline.statuses() if it[1] != road.UNKNOWN],
                         [(1, DELIVERED), (2, FAILED)] * CYCLES)


if __name__ == "__main__":
    road.main()
