"""Plays the plug-in's movies in the players that people use, and reads back which pictures they show.

Each picture carries its number as ten bars, black or white, the lowest bit at the left. All streams
are fed to the plug-in at once; one event cuts a clip of each. For each player, prints how many
pictures it showed, in order and without a gap. Beside each clip stands the same stream as ffmpeg puts
it into a mov: what a player cannot play there either is marked.
"""
import base64
import contextlib
import email
import email.policy
import http.server
import itertools
import json
import pathlib
import re
import shutil
import subprocess
import threading
import time

import host_run
from overlay import INSIDE, Overlay

BITS = 10
WIDTH, HEIGHT, RATE, SECONDS = 160, 128, 10, 60
PICTURES = RATE * SECONDS
BEFORE, AFTER = 5, 4  # seconds of a clip around its event

X264 = ["-c:v", "libx264", "-preset", "veryfast", "-threads", "1"]
ASP = ["-c:v", "mpeg4", "-q:v", "3", "-g", str(RATE), "-threads", "1"]


def x264(parameters, *others):
    return [*X264, "-x264-params", f"keyint={RATE}:min-keyint={RATE}:scenecut=0:{parameters}", *others]


# name: codec, encoder, what to do with the bytes of the bare stream
STREAMS = {
    "H.264, no B": ("h264", x264("bframes=0"), None),
    "H.264, 2 B": ("h264", x264("bframes=2:b-adapt=0:b-pyramid=none"), None),
    "H.264, B pyramid": ("h264", x264("bframes=3:b-adapt=0:b-pyramid=normal"), None),
    "H.264, open GOP": ("h264", x264("bframes=2:b-adapt=0:open-gop=1"), None),
    "H.264, interlaced, 2 B": ("h264", x264("bframes=2:b-adapt=0:tff=1"), None),
    "H.264, SAR 16:11": ("h264", x264("bframes=0:sar=16/11"), None),
    "H.264, headers once": ("h264", x264("bframes=0"), "once"),
    "H.264, new headers": ("h264", x264("bframes=0"), "change"),
    "MPEG-4, no B": ("mpeg4", ASP, None),
    "MPEG-4, 2 B": ("mpeg4", [*ASP, "-bf", "2"], None),
    "MPEG-4, SAR 12:11": ("mpeg4", [*ASP, "-vf", "setsar=12/11"], None),
    "MPEG-4, headers once": ("mpeg4", ASP, "once"),
}


def encode(path, container, encoder, first=0, pictures=PICTURES, size=(WIDTH, HEIGHT)):
    bars = f"geq=lum='if(mod(floor((N+{first})/pow(2,floor(X*{BITS}/W))),2),235,16)':cb=128:cr=128"
    filters = [bars] + [encoder[at + 1] for at, it in enumerate(encoder) if it == "-vf"]
    words = [it for at, it in enumerate(encoder)
             if it != "-vf" and (at == 0 or encoder[at - 1] != "-vf")]
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                    f"color=size={size[0]}x{size[1]}:rate={RATE}:duration={pictures / RATE}",
                    "-vf", ",".join(filters), *words, "-pix_fmt", "yuv420p", "-f",
                    container, path], check=True)


def headers_once(stream, codec):
    """Takes away what stands between the pictures but at the beginning."""
    codes = re.compile(rb"\x00?\x00\x00\x01" if codec == "h264" else rb"\x00\x00\x01")
    starts = [it.start() for it in codes.finditer(stream)] + [len(stream)]
    kept, seen = [], False
    for begin, end in zip(starts, starts[1:]):
        unit = stream[begin:end]
        kind = unit[unit.index(b"\x01") + 1]
        is_header = kind & 0x1F in (7, 8) if codec == "h264" else kind < 0x30 or kind in (0xB0, 0xB5)
        if not (is_header and seen):
            kept.append(unit)
        seen = seen or (kind & 0x1F in (1, 5) if codec == "h264" else kind == 0xB6)
    return b"".join(kept)


def make_stream(path, codec, encoder, change):
    container = {"h264": "h264", "mpeg4": "m4v"}[codec]
    if change == "change":  # another size every two seconds, under the same identifier
        parts = []
        for at in range(0, PICTURES, 2 * RATE):
            size = (WIDTH, HEIGHT) if at // (2 * RATE) % 2 else (2 * WIDTH, 2 * HEIGHT)
            encode(path, container, encoder, at, 2 * RATE, size)
            parts.append(path.read_bytes())
        path.write_bytes(b"".join(parts))
        return
    encode(path, container, encoder)
    if change == "once":
        path.write_bytes(headers_once(path.read_bytes(), codec))


def make_clips(options):
    """The plug-in's clip of each stream, by name."""
    streams, steps = {}, []
    for at, (name, (codec, encoder, change)) in enumerate(STREAMS.items()):
        path = options.work / "streams" / f"{at}.{codec}"
        make_stream(path, codec, encoder, change)
        streams[name] = path
        steps.append(f"camera {66049 + 256 * at} {codec} {path}")
    # The cameras have sent more than the histories hold, so that what came once is gone.
    steps.append(f"wait {4 * BEFORE}")
    ids = [66049 + 256 * at for at in range(len(streams))]
    steps += [("event", host_run.event_document(1, ids, int(time.time()) + 4 * BEFORE)), "wait idle"]
    notify = host_run.notify_document(
        '<smtp description="none" address="127.0.0.1" port="1" UseSSL="0"/>',
        [host_run.profile(1, "clips", "Clips.\r\n", True, "reader@example.com", seconds=BEFORE + AFTER)])
    _, kept = host_run.run(options.command, options.work / "host", notify, steps)
    message = email.message_from_bytes(next(kept.glob("*.eml")).read_bytes(), policy=email.policy.default)
    clips = {}
    for part in message.iter_attachments():
        at = int(re.search(r"(\d+)-\d+\.", part.get_filename())[1]) - 2
        name = list(STREAMS)[at]
        clips[name] = options.shared / f"{at}.mov"
        clips[name].write_bytes(base64.b64decode(part.get_payload()))
    return streams, clips


def make_reference(options, name, stream):
    """The first seconds of the stream, put into a mov by ffmpeg."""
    _, encoder, change = STREAMS[name]
    path, pictures = options.shared / "reference.mov", (BEFORE + AFTER) * RATE
    if change == "change":
        subprocess.run(["ffmpeg", "-v", "quiet", "-y", "-i", stream, "-frames:v", str(pictures),
                        "-c", "copy", path], check=False)
    else:
        encode(path, "mov", encoder, pictures=pictures)
    return path


def number_of(picture):
    """Of a picture of grey bytes, WIDTH by HEIGHT."""
    middle = HEIGHT // 2 * WIDTH
    return sum(1 << bit for bit in range(BITS)
               if picture[middle + (2 * bit + 1) * WIDTH // (2 * BITS)] > 128)


def decode(*source):
    """Numbers of the pictures that ffmpeg makes of what it reads."""
    raw = subprocess.run(["ffmpeg", "-v", "quiet", *source, "-vf", f"scale={WIDTH}:{HEIGHT}:flags=neighbor",
                          "-fps_mode", "passthrough", "-f", "rawvideo", "-pix_fmt", "gray", "-"],
                         capture_output=True, check=False).stdout
    size = WIDTH * HEIGHT
    return [number_of(raw[at:at + size]) for at in range(0, len(raw) - size + 1, size)]


def numbers_of_files(folder, pattern):
    return decode("-framerate", str(RATE), "-pattern_type", "glob", "-i", f"{folder}/{pattern}") \
        if list(pathlib.Path(folder).glob(pattern)) else []


class Players:
    """Each method plays a movie of the shared folder; the numbers of the pictures shown."""

    def __init__(self, view):
        self.view, self.scratch = view, view.shared / "pictures"

    def _fresh(self):
        shutil.rmtree(self.scratch, ignore_errors=True)
        self.scratch.mkdir()
        self.scratch.chmod(0o777)
        return f"{INSIDE}/{self.scratch.name}"

    def _run(self, script, limit=60):
        self.view.shell(f"timeout {limit} {script}", check=False)

    def ffmpeg(self, movie, _):
        return decode("-i", movie)

    def gstreamer(self, movie, _):
        inside = self._fresh()
        self._run(f"gst-launch-1.0 -q filesrc location={INSIDE}/{movie.name} ! decodebin ! videoconvert ! "
                  f"pngenc ! multifilesink location={inside}/%05d.png")
        return numbers_of_files(self.scratch, "*.png")

    def mpv(self, movie, _):
        inside = self._fresh()
        self._run(f"mpv --no-config --really-quiet --no-audio --untimed --vo=image "
                  f"--vo-image-format=png --vo-image-outdir={inside} {INSIDE}/{movie.name}")
        return numbers_of_files(self.scratch, "*.png")

    def vlc(self, movie, _):
        inside = self._fresh()
        self._run("setpriv --reuid=65534 --clear-groups env HOME=/tmp cvlc -q --no-audio "
                  "--vout=dummy --video-filter=scene --scene-format=png --scene-ratio=1 --scene-prefix=p --no-skip-frames "
                  f"--no-drop-late-frames --scene-path={inside} {INSIDE}/{movie.name} vlc://quit", 40)
        # It shows a picture again and again while its time lasts.
        return [number for number, _ in itertools.groupby(numbers_of_files(self.scratch, "p*.png"))]

    def mkvmerge(self, movie, _):
        inside = self._fresh()
        self._run(f"mkvmerge -q -o {inside}/out.mkv {INSIDE}/{movie.name}")
        return decode("-i", self.scratch / "out.mkv")

    def chromium(self, movie, count):
        return self._browse("chromium --headless=new --no-sandbox --disable-gpu "
                            "--user-data-dir=/tmp/chromium-$$ ", movie, count)

    def firefox(self, movie, count):
        return self._browse("env HOME=/tmp MOZ_DISABLE_CONTENT_SANDBOX=1 firefox-esr --headless "
                            "--no-remote --profile $(mktemp -d) ", movie, count)

    def _browse(self, browser, movie, count):
        with Page(movie, count) as page:
            process = self.view.start("sh", "-c", f"exec {browser} '{page.address}'",
                                      log=self.view.folder / "log")
            page.done.wait(60)
            self.view.stop(process)
        return page.numbers


PAGE = """<!doctype html><video id="v" muted src="/movie.mp4"></video><script>
const video = document.getElementById('v'), numbers = [];
const report = () => fetch('/result', {method: 'POST', body: JSON.stringify(numbers)});
const canvas = document.createElement('canvas');
canvas.width = WIDTH; canvas.height = HEIGHT;
const pen = canvas.getContext('2d', {willReadFrequently: true});
video.onerror = report;
video.onloadeddata = async () => {
  for (let at = 0; at < COUNT; at++) {
    const sought = new Promise(done => video.onseeked = done);
    video.currentTime = video.duration * (at + 0.5) / COUNT;
    await sought;
    await new Promise(done => setTimeout(done, 40));  // it is painted a moment later
    pen.drawImage(video, 0, 0, WIDTH, HEIGHT);
    let number = 0;
    for (let bit = 0; bit < BITS; bit++) {
      const x = Math.floor((2 * bit + 1) * WIDTH / (2 * BITS));
      if (pen.getImageData(x, HEIGHT / 2, 1, 1).data[0] > 128) number += 1 << bit;
    }
    numbers.push(number);
  }
  report();
};
</script>"""


class Page:
    """A page that seeks to the middle of each of a movie's pictures and tells what is shown there."""

    def __init__(self, movie, count):
        self.numbers, self.done = [], threading.Event()
        owner, content = self, movie.read_bytes()
        values = {"WIDTH": WIDTH, "HEIGHT": HEIGHT, "COUNT": count, "BITS": BITS}
        page = re.sub("|".join(values), lambda it: str(values[it[0]]), PAGE).encode()

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                body, kind = (content, "video/mp4") if self.path == "/movie.mp4" else (page, "text/html")
                wanted = re.match(r"bytes=(\d+)-(\d*)", self.headers.get("Range", ""))
                self.send_response(206 if wanted else 200)
                if wanted:
                    begin, end = int(wanted[1]), int(wanted[2] or len(body) - 1)
                    self.send_header("Content-Range", f"bytes {begin}-{end}/{len(body)}")
                    body = body[begin:end + 1]
                self.send_header("Content-Type", kind)
                self.send_header("Accept-Ranges", "bytes")
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                with contextlib.suppress(ConnectionError):  # a browser may want no more of it
                    self.wfile.write(body)

            def do_POST(self):
                owner.numbers = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
                self.send_response(204)
                self.end_headers()
                owner.done.set()

            def log_message(self, *_):
                pass
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.address = f"http://127.0.0.1:{self.server.server_address[1]}/"

    def __enter__(self):
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.server.server_close()


def verdict(numbers, count):
    if not numbers:
        return "nothing"
    gaps = [at for at, (a, b) in enumerate(zip(numbers, numbers[1:])) if b != a + 1]
    # A clip ends where it ends in coding order: the last picture may be one whose B pictures, shown
    # before it, are not in the clip any more.
    if gaps and (gaps[0] < len(numbers) - 3 or numbers[gaps[0] + 1] < numbers[gaps[0]]):
        return f"{len(numbers)} of {count}, then {numbers[gaps[0]]}, {numbers[gaps[0] + 1]}"
    return "all" if len(numbers) == count else f"{len(numbers)} of {count}"


def describe(movie):
    """What a header says: samples, seconds, pixel shape."""
    told = subprocess.run(["ffprobe", "-v", "quiet", "-select_streams", "v", "-of", "json", "-show_entries",
                           "stream=codec_name,nb_frames,duration,sample_aspect_ratio", movie],
                          capture_output=True, check=False).stdout
    stream = (json.loads(told or "{}").get("streams") or [{}])[0]
    return int(stream.get("nb_frames", 0)), stream


def main():
    options = host_run.read_options(__doc__, only="streams whose name has this in it")
    for name in [it for it in STREAMS if options.only not in it]:
        del STREAMS[name]
    (options.work / "streams").mkdir(exist_ok=True)
    view = Overlay(options.work / "players", options.shared)
    versions = view.install("ffmpeg", "gstreamer1.0-tools", "gstreamer1.0-libav",
                            "gstreamer1.0-plugins-good", "gstreamer1.0-plugins-base", "mpv", "vlc-bin",
                            "vlc-plugin-base", "mkvtoolnix", "chromium", "firefox-esr")
    players = Players(view)
    heads = {"ffmpeg": "ffmpeg", "gstreamer": "gstreamer1.0-tools", "mpv": "mpv", "vlc": "vlc-bin",
             "mkvmerge": "mkvtoolnix", "chromium": "chromium", "firefox": "firefox-esr"}
    streams, clips = make_clips(options)
    print("| stream | pictures | seconds | pixels | " +
          " | ".join(f"{name} {versions[package]}" for name, package in heads.items()) + " |")
    print("|" + "---|" * (4 + len(heads)), flush=True)
    for name in STREAMS:
        if name not in clips:
            print(f"| {name} | no movie |", flush=True)
            continue
        reference = make_reference(options, name, streams[name])
        count, told = describe(clips[name])
        cells = []
        for player in heads:
            said = verdict(getattr(players, player)(clips[name], count), count)
            if said != "all":
                wanted = describe(reference)[0]
                other = verdict(getattr(players, player)(reference, wanted), wanted)
                said += " (ffmpeg's mov: " + other + ")"
            cells.append(said)
        print(f"| {name} | {count} | {told.get('duration')} | {told.get('sample_aspect_ratio', '-')} | "
              + " | ".join(cells) + " |", flush=True)


if __name__ == "__main__":
    main()
