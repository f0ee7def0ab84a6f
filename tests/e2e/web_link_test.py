"""The link in the mail: it asks the web client for the event's cameras and time, or says why not."""
import base64
import json

import road
from road import DELIVERED, EVENT_TIME, RoadTest, element, event_document, profile

SERIAL = "A-1001"  # of road's events
CAMERAS = (66049, 0x0FFFFFFF)
BEFORE, AFTER = 5, 30

# How long a web server may keep a mail waiting, in seconds.
DEADLINE = 10

# Events with action 7 are shown from some seconds before.
SYSTEM = road.to_bytes(element("tDVR", {"Delta": 0}, element(
    "Events", None, element("Event", {"ID": 7, "PreAlarm": BEFORE}))))
WINDOW = (EVENT_TIME - BEFORE) * 1000, (EVENT_TIME + AFTER) * 1000


class WebLinkTest(RoadTest):
    def start(self, *options):
        """A web server, the requests that it will have got, and a run with one mail."""
        log = self.new_path("requests")
        server = road.Server("web_server.py", "--log", log, *options)
        self.addCleanup(server.close)
        mail_server = self.start_server()
        address = f"127.0.0.1:{server.port}"
        self.configure([mail_server.port], profile(body="{weblink}", MaxVideoSeconds=AFTER),
                       web="HTTPS://" + address)
        run = self.start_host(("system", SYSTEM), ("event", event_document(sources=CAMERAS)),
                              "wait delivered 1")
        return run, address, log, mail_server

    def link(self, run, mail_server):
        self.assertEqual(run.finish().statuses(), [(1, DELIVERED)])
        [mail] = mail_server.received()
        return mail.content.split(b"\r\n\r\n")[1].decode().strip()

    def test_the_link_asks_for_cameras_and_window(self):
        for name, system, server_id, search in (
                ("older", ['id "7"&é'], "id%20%227%22&%c3%a9", {
                    "searchServerId": 'id "7"&é', "searchCameraIds": list(CAMERAS),
                    "searchStart": WINDOW[0], "searchEnd": WINDOW[1],
                    "mode": "search", "quality": 7, "size": 100}),
                ("newer", ["7", "M"], "7", {
                    "m": 2, "sb": 1, "sm": 1, "st": WINDOW[0], "et": WINDOW[1],
                    "items": [{"p": 1, "s": 2, "i": 1, "t": "camera"},
                              {"p": 4095, "s": 255, "i": 255, "t": "camera"}]})):
            with self.subTest(name):
                run, address, log, mail_server = self.start(
                    "--system", "B-2", "1", "M", "--system", SERIAL, *system)
                start = f"http://{address}/advanced.web?s={server_id};#"
                link = self.link(run, mail_server)
                self.assertEqual(link[:len(start)], start)
                self.assertEqual(json.loads(base64.b64decode(link[len(start):], validate=True)),
                                 search)
                self.assertEqual(json.loads(log.read_text()), (
                    f"GET /login.web?output=json HTTP/1.0\r\nHost: {address}\r\n"
                    "Accept: */*\r\nConnection: close\r\n\r\n"))
                self.assertEqual(run.log(road.WARNING, road.ERROR), [])

    def test_a_stalled_web_server_delays_the_mail_by_the_deadline(self):
        run, address, log, mail_server = self.start("--stall")
        self.assertEqual(self.link(run, mail_server), "[Web Server Unreachable]")
        line = (f"Unable to communicate with webserver at address {address}. "
                "110: Connection timed out")
        self.assertEqual(run.log(road.ERROR), [line])
        self.assertEqual(len(log.read_text().splitlines()), 1)
        [asked] = [it["time"] for it in run.of_kind("host")
                   if it["text"].startswith("event document")]
        [given_up] = [it["time"] for it in run.of_kind("log") if it["text"] == line]
        self.assertTrue(DEADLINE - 0.1 < given_up - asked < 2 * DEADLINE, given_up - asked)


if __name__ == "__main__":
    road.main()
