#!/usr/bin/python3
"""Times the road of a 10 MiB clip from its last frame to the mail server's acceptance.

    whole_road.py FOLDER_OF_THE_BUILD SMTP_SINK WORK_FOLDER RESULTS_FILE

  plugin    the plug-in in the simulated host: from the event that completes the clip to the report
            that it was delivered; makes the movie, composes the message and runs curl
  curl      curl alone, with the plug-in's arguments and the message that the plug-in composed
  pipeline  ffmpeg -c copy of the clip's elementary stream into a .mov, then s-nail
  write     a new file as long as the movie and the message together: what the work folder's file
            system asks for it, as the roads differ in what they write

Elapsed time, as most of the road is waiting for other programs. They take turns. The results
are of the form that Google Benchmark writes.
"""
import contextlib
import json
import os
import pathlib
import random
import shutil
import socket
import subprocess
import sys
import time

ROUNDS = 15
MIB = 1048576
STREAM = 66049
BITS_A_SECOND = 8_400_000
SECONDS = 10
PACE = 25          # times faster than the camera; the clip's bytes count here, not its seconds
FEED_SECONDS = 1   # what that takes at most

# Two groups of pictures, and a clip of no seconds is the newest two: it is complete at the event.
MAKE_CLIP = (
    "ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
    f"testsrc2=size=640x360:rate=25:duration={SECONDS},noise=alls=40:allf=t", "-pix_fmt", "yuv420p",
    "-c:v", "libx264", "-preset", "ultrafast", "-g", "125", "-b:v", str(BITS_A_SECOND),
    "-x264-params", "min-keyint=125:scenecut=0", "clip.h264")

NOTIFY = """<tDVR Delta="0">
<Notify ID="786432" MaxRetrySeconds="172800" MaxRetryQueue="100" EmailSizeLimitMB="20">
<Servers><smtp description="Sink" address="127.0.0.1" port="{port}" UseSSL="0"/></Servers>
<Profiles autoincrement="2">
<smtp ID="1" attach="1" description="Gate" ThrottleSeconds="0" from="nvr@example.com"
  subject="{{event type}} at {{source}}" MaxVideoSeconds="0" EventEdge="0">
<to>guard@example.com</to><body>{{event type}} at {{source}}.&#13;&#10;</body></smtp>
</Profiles></Notify></tDVR>
"""

EVENT = """<tDVR><Servers><Server Serial="A-1001" Description="Main building"/></Servers>
<Notify ID="786432"><Profiles>
<Profile ID="1" Alarm="1" Action="7" Time="1500000000" Milliseconds="250">
<EventSource ID="{stream}" Type="2"/></Profile>
</Profiles></Notify></tDVR>
"""

STEPS = f"""camera {STREAM} h264 clip.h264
wait {FEED_SECONDS}
event event.xml
wait idle
"""

# Stands in for curl once, to keep the message that it is given.
KEEP_MESSAGE = """#!/bin/sh
[ "$1" = -V ] || ln data/notify-mail-* message || exit 1
exec curl "$@"
"""

# What the plug-in does, as a shell script would.
PIPELINE = """ffmpeg -nostdin -v error -y -f h264 -framerate 25 -i clip.h264 -c copy pipeline.mov &&
echo "Video Motion at Gate." | s-nail -n -S v15-compat -S mta=smtp://127.0.0.1:{port} \\
  -S smtp-auth=none -S sendwait -S from=nvr@example.com -s "Video Motion at Gate" \\
  -a pipeline.mov guard@example.com
"""


class Unmeasured(Exception):
    """One of the roads did not lead to the server."""


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


def accepts(port):
    try:
        with socket.create_connection(("127.0.0.1", port), 1) as client:
            return client.recv(3) == b"220"
    except OSError:
        return False


@contextlib.contextmanager
def mail_server(smtp_sink):
    """Takes mail and forgets it, so that what is measured is the way to it."""
    port = free_port()
    libraries = smtp_sink.parent.parent / "lib"
    paths = (libraries / "postfix", libraries / "x86_64-linux-gnu")
    user = ("-u", "nobody") if os.geteuid() == 0 else ()
    with subprocess.Popen([smtp_sink, *user, f"127.0.0.1:{port}", "100"], stdin=subprocess.DEVNULL,
                          env={**os.environ, "LD_LIBRARY_PATH": ":".join(map(str, paths))}) as sink:
        try:
            limit = time.monotonic() + 10
            while not accepts(port):
                if sink.poll() is not None or time.monotonic() > limit:
                    raise Unmeasured("the mail server did not start")
                time.sleep(0.05)
            yield port
        finally:
            sink.terminate()


def timed(command, folder):
    begin = time.monotonic()
    done = subprocess.run(command, cwd=folder, stdin=subprocess.DEVNULL, capture_output=True,
                          check=False)
    seconds = time.monotonic() - begin
    if done.returncode != 0:
        raise Unmeasured(f"{command[0]}: {done.stderr.decode(errors='replace')}")
    return seconds


class Host:
    """Runs of the plug-in in the simulated host."""

    def __init__(self, build, folder):
        self.command = [build / "notifypi", "host", "--plugin", build / "notifypi.so", "--script",
                        "steps", "--in-place", "--pace", str(PACE), "--timeout", "60",
                        "--json"]
        self.folder = folder

    def run(self, curl):
        """The records of a run with this program as curl."""
        link = self.folder / "curl"
        link.unlink(missing_ok=True)
        link.symlink_to(curl)
        done = subprocess.run(self.command, cwd=self.folder, stdin=subprocess.DEVNULL,
                              capture_output=True, check=False)
        if done.returncode != 0:
            raise Unmeasured(f"the host: {done.stdout.decode()}{done.stderr.decode()}")
        return [json.loads(line) for line in done.stdout.splitlines()]

    def seconds(self, curl):
        """From the event that completes the clip to the report of its delivery."""
        begin = fed = delivered = None
        attached = 0
        for record in self.run(curl):
            if record["kind"] == "feed-end":
                fed = record["time"]
            elif record["kind"] == "host" and record["text"].startswith("event document"):
                begin = record["time"]
            elif record["kind"] == "log" and record["text"].startswith("Attachment "):
                attached = int(record["text"].rpartition("sizeKB ")[2]) * 1024
            elif record["kind"] == "status" and record["status"] == 0:
                delivered = record["time"]
        if delivered is None:
            raise Unmeasured("the plug-in delivered nothing")
        size = (self.folder / "clip.h264").stat().st_size
        if fed is None or fed > begin or attached < size - 1024:
            raise Unmeasured("the clip was not complete at the event")
        return delivered - begin


def kept_message(host, folder):
    """Keeps a message that the plug-in composes; what curl is called with to send it."""
    keeper = folder / "keep-message"
    keeper.write_text(KEEP_MESSAGE)
    keeper.chmod(0o755)
    launches = [record["arguments"] for record in host.run(keeper) if record["kind"] == "launch"]
    arguments = launches[-1]
    message = folder / "message"
    if not message.exists():
        raise Unmeasured("the plug-in composed no message")
    arguments[arguments.index("-T") + 1] = str(message)
    return arguments


def written(size, folder):
    """Seconds that a new file of this size takes."""
    path = folder / "written"
    block = bytes(MIB // 2)
    begin = time.monotonic()
    with open(path, "wb", buffering=0) as file:
        for _ in range(size // len(block)):
            file.write(block)
    seconds = time.monotonic() - begin
    path.unlink()
    return seconds


def measure(build, smtp_sink, folder):
    subprocess.run(MAKE_CLIP, cwd=folder, check=True)
    size = (folder / "clip.h264").stat().st_size
    if not 9.5 * MIB < size < 11 * MIB:
        raise Unmeasured(f"ffmpeg made a clip of {size} bytes")
    (folder / "event.xml").write_text(EVENT.format(stream=STREAM))
    (folder / "steps").write_text(STEPS)
    curl = shutil.which("curl")
    with mail_server(smtp_sink) as port:
        (folder / "notify.xml").write_text(NOTIFY.format(port=port))
        host = Host(build, folder)
        bare = [curl, *kept_message(host, folder)[1:]]
        pipeline = ["sh", "-c", PIPELINE.format(port=port)]
        roads = {"plugin": lambda: host.seconds(curl), "curl": lambda: timed(bare, folder),
                 "pipeline": lambda: timed(pipeline, folder),
                 "write": lambda: written(size + (folder / "message").stat().st_size, folder)}
        turns = list(roads) * ROUNDS
        random.Random(1).shuffle(turns)
        return [(road, roads[road]()) for road in turns]


def main():
    build, smtp_sink, folder, results = (pathlib.Path(word).absolute() for word in sys.argv[1:])
    folder.mkdir(parents=True)
    try:
        times = measure(build, smtp_sink, folder)
    except (Unmeasured, OSError, subprocess.SubprocessError) as error:
        print(f"whole_road: {error}", file=sys.stderr)
        return 1
    runs = [{"name": f"{road}/manual_time", "run_name": f"{road}/manual_time",
             "run_type": "iteration", "real_time": seconds * 1e9} for road, seconds in times]
    context = {"num_cpus": os.cpu_count(), "load_avg": os.getloadavg()}
    results.write_text(json.dumps({"context": context, "benchmarks": runs}, indent=1))
    for road, seconds in times:
        print(f"{road:10}{seconds * 1000:8.1f} ms")
    return 0


if __name__ == "__main__":
    sys.exit(main())
