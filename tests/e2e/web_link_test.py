"""The link in the mail: it asks the web client for the event's cameras and time, or says why not."""
import base64
import json
import re

import road
from road import DELIVERED, EVENT_TIME, RoadTest, element, event_document, profile

SERIAL = "A-1001"  # of road's events
CAMERAS = (66049, 0x0FFFFFFF)
BEFORE, AFTER = 5, 30

UNREACHABLE = "Unable to communicate with webserver at address {}. {}"

# In seconds: how long a web server may keep a mail waiting, and what a loaded machine adds.
DEADLINE = 10
SLACK = 5

# Events with action 7 are shown from some seconds before.
SYSTEM = road.to_bytes(element("tDVR", {"Delta": 0}, element(
    "Events", None, element("Event", {"ID": 7, "PreAlarm": BEFORE}))))


def motion(*cameras):
    sources = "".join(element("EventSource", {"ID": it, "Type": 2}) for it in cameras[1:])
    return event_document(source=cameras[0]).replace(b"</Profile>",
                                                     road.to_bytes(sources) + b"</Profile>")


class WebServer(road.ServerProcess):
    """web_server.py."""

    def __init__(self, log, options):
        self._log = log
        super().__init__("web_server.py", "--log", log, *options)
        self.address = f"127.0.0.1:{self.port}"

    def requests(self):
        lines = self._log.read_text(encoding="utf-8").splitlines() if self._log.exists() else []
        return [json.loads(line) for line in lines]


class WebLinkTest(RoadTest):
    def setUp(self):
        super().setUp()
        self.mail_server = self.start_server()

    def start_web_server(self, *options):
        log = self.top / f"requests{len(list(self.top.glob('requests*')))}"
        server = WebServer(log, options)
        self.addCleanup(server.close)
        return server

    def deliver(self, web_address, event):
        """One run with one mail; returns its timeline and what stands in the link's place."""
        before = len(self.mail_server.received())
        link_profile = profile(body="See {weblink}.\r\n").replace(
            'MaxVideoSeconds="0"', f'MaxVideoSeconds="{AFTER}"')
        document = road.notify_document([road.smtp_server(self.mail_server.port)], [link_profile])
        (self.folder / "notify.xml").write_bytes(document.replace(
            b'<Web address="">', road.to_bytes(f'<Web address="{road.escape(web_address)}">')))
        # The host would not wait long for a mail that takes its time to be begun.
        timeline = self.run_host(("system", SYSTEM), ("event", event), "wait delivered 1")
        mails = self.mail_server.received()[before:]
        self.assertEqual(len(mails), 1, timeline.log())
        self.assertEqual(timeline.statuses(), [(1, DELIVERED)])
        found = re.search(rb"See (.*)\.\r\n$", mails[0].content)
        self.assertTrue(found, mails[0].content)
        return timeline, found.group(1).decode()

    def decode(self, link, address, server_id):
        """What the link asks for; it must lead to this web server and server id."""
        start = f"http://{address}/advanced.web?s={server_id};#"
        self.assertEqual(link[:len(start)], start)
        return json.loads(base64.b64decode(link[len(start):], validate=True))

    def test_the_link_asks_an_older_web_client_for_cameras_and_window(self):
        server = self.start_web_server("--system", "B-2", "1", "M",
                                       "--system", SERIAL, 'id "7"&é')
        timeline, link = self.deliver("HTTPS://" + server.address, motion(*CAMERAS))
        self.assertEqual(self.decode(link, server.address, "id%20%227%22&%c3%a9"), {
            "searchServerId": 'id "7"&é',
            "searchCameraIds": list(CAMERAS),
            "searchStart": (EVENT_TIME - BEFORE) * 1000,
            "searchEnd": (EVENT_TIME + AFTER) * 1000,
            "mode": "search", "quality": 7, "size": 100})
        self.assertEqual(server.requests(), [
            f"GET /login.web?output=json HTTP/1.0\r\nHost: {server.address}\r\n"
            "Accept: */*\r\nConnection: close\r\n\r\n"])
        self.assertEqual(timeline.log(road.WARNING) + timeline.log(road.ERROR), [])

    def test_the_link_asks_a_newer_web_client_for_cameras_and_window(self):
        server = self.start_web_server("--system", SERIAL, "7", "M")
        _, link = self.deliver(server.address, motion(*CAMERAS))
        self.assertEqual(self.decode(link, server.address, "7"), {
            "m": 2, "sb": 1, "sm": 1,
            "st": (EVENT_TIME - BEFORE) * 1000, "et": (EVENT_TIME + AFTER) * 1000,
            "items": [{"p": 1, "s": 2, "i": 1, "t": "camera"},
                      {"p": 4095, "s": 255, "i": 255, "t": "camera"}]})

    def test_a_test_message_shows_that_the_web_server_knows_the_system(self):
        server = self.start_web_server("--system", SERIAL, "7")
        _, text = self.deliver(server.address, event_document(message="Testing Profile"))
        self.assertEqual(text, "[Connected to Web Server]")
        self.assertEqual(len(server.requests()), 1)

    def test_an_event_without_video_asks_nobody(self):
        server = self.start_web_server("--system", SERIAL, "7")
        _, text = self.deliver(server.address, event_document(event_type=3))
        self.assertEqual(text, "[Not a Video Source Event]")
        self.assertEqual(server.requests(), [])

    def test_without_a_link_mail_and_log_say_why(self):
        unknown = self.start_web_server("--system", "B-2", "7").address
        garbage = self.start_web_server("--garbage").address
        moved = self.start_web_server("--status", "302").address
        closed = f"127.0.0.1:{self.closed_port()}"
        for address, text, level, line in (
                ("", "[No Valid Web Server Address]", road.WARNING,
                 "Web Server not configured. No link will be generated"),
                (unknown, "[Tavrix System Not Found]", road.WARNING,
                 f"System with serial {SERIAL} not found on the web server {unknown}"),
                (garbage, "[Invalid Web Server Version]", road.WARNING,
                 "Incompaitble web server version. No link will be generated"),
                (moved, "[Web Server Unreachable]", road.ERROR, UNREACHABLE.format(
                    moved, "Error message: Invalid response status code: 302. Expecting 200")),
                (closed, "[Web Server Unreachable]", road.ERROR, UNREACHABLE.format(
                    closed, "Error message: Unable to connect to endpoint"))):
            with self.subTest(text, address=address):
                timeline, found = self.deliver(address, motion(*CAMERAS))
                self.assertEqual(found, text)
                self.assertEqual(timeline.log(road.WARNING) + timeline.log(road.ERROR), [line])
                self.assertEqual(timeline.levels(line), [level])

    def test_a_stalled_web_server_delays_the_mail_by_the_deadline_at_most(self):
        server = self.start_web_server("--stall")
        timeline, text = self.deliver(server.address, motion(*CAMERAS))
        self.assertEqual(text, "[Web Server Unreachable]")
        line = UNREACHABLE.format(server.address, "110: Connection timed out")
        self.assertEqual(timeline.log(road.ERROR), [line])
        self.assertEqual(len(server.requests()), 1)

        [asked] = [it["time"] for it in timeline.of_kind("host")
                   if it["text"].startswith("event document")]
        [given_up] = [it["time"] for it in timeline.of_kind("log") if it["text"] == line]
        [delivered] = [it["time"] for it in timeline.of_kind("status")]
        self.assertGreater(given_up - asked, DEADLINE - 0.1)
        self.assertLess(delivered - asked, DEADLINE + SLACK)


if __name__ == "__main__":
    road.main()
