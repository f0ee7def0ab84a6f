"""Ten times from Load to Unload, with the library unloaded in between: nothing stays behind.

Valgrind watches the product; a build with the address sanitizer watches itself.
"""
import road
import valgrind
from road import DELIVERED, FAILED, RoadTest, event_document, notify_document, profile, smtp_server

CYCLES = 10


class LeakTest(RoadTest):
    def test_nothing_stays_behind(self):
        wrapper = []
        if "address" not in valgrind.SANITIZERS:
            wrapper = valgrind.command(self.top / "symbols", *valgrind.LEAKS)
            if wrapper is None:
                self.skipTest(valgrind.MISSING)
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
