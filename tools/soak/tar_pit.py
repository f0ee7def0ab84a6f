"""The scenario of a mail server that takes connections and lets them hang: what waits for it must
not keep the recorder's frames."""
import socketserver
import threading

import load

CAMERAS = 16
EVENT_EVERY = 2  # seconds; each asks for the clips of all cameras
MOST_BYTES = 300 << 20
FILM_RATE = "1500k"


class TarPit(socketserver.ThreadingTCPServer):
    """Says nothing to every other client; to the others what they want to hear, until their mail is
    to come, which it does not read."""
    daemon_threads = True
    allow_reuse_address = True

    def __init__(self):
        super().__init__(("127.0.0.1", 0), Client)
        self.clients = 0
        self.over = threading.Event()
        threading.Thread(target=self.serve_forever, daemon=True).start()

    @property
    def port(self):
        return self.server_address[1]


class Client(socketserver.StreamRequestHandler):
    def handle(self):
        self.server.clients += 1
        if self.server.clients % 2 == 0:
            self._speak()
        self.server.over.wait()

    def _speak(self):
        answer = b"220 tar.pit ESMTP\r\n"
        while answer:
            self.wfile.write(answer)
            word = self.rfile.readline()[:4].upper()
            answer = {b"DATA": b"354 Go ahead\r\n", b"": b""}.get(word, b"250 Fine\r\n")
            if word == b"DATA":
                self.wfile.write(answer)
                return


def write_load(folder, seconds, port):
    settings = 'MaxRetrySeconds="86400" MaxRetryQueue="100" EmailSizeLimitMB="1"'
    present = load.cameras(CAMERAS, ("h264",))
    film = load.make_film(folder, "h264", seconds * 1.5 + load.FILL + 60, FILM_RATE)
    scenario = load.Scenario(folder)
    scenario.begin(present, {"h264": film}, load.configuration(0, port, load.PROFILES, settings))
    for number in range(seconds // EVENT_EVERY):
        scenario.send("event", f"event-{number}.xml",
                      load.event_document(number, [2], True, [it.source for it in present]))
        scenario.steps.append(f"wait {EVENT_EVERY}")
    return scenario.write()


def judge(frames, pit):
    if pit.clients == 0:
        frames.find("the plug-in has not tried to send anything")
    if frames.most_bytes > MOST_BYTES:
        frames.find(f"{frames.most_bytes / (1 << 20):.0f} MiB of frames were held, more than "
                    f"{MOST_BYTES >> 20}")
    return frames.balance()
