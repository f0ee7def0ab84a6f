"""Looks at videos with ffmpeg and ffprobe."""
import json
import subprocess


class BrokenVideo(Exception):
    """A decoder complains."""


def run(*command):
    done = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL,
                          capture_output=True, check=False)
    if done.returncode != 0 or done.stderr:
        raise BrokenVideo(f"{' '.join(map(str, command))}: {done.stderr.decode(errors='replace')}")
    return done.stdout.decode()


def decoded_frames(path):
    """One checksum for each decoded picture, in order."""
    text = run("ffmpeg", "-nostdin", "-v", "error", "-xerror", "-i", path, "-map", "0:v:0",
               "-vsync", "passthrough", "-f", "framemd5", "-")
    return [line.split(",")[-1].strip() for line in text.splitlines() if not line.startswith("#")]


def facts(path):
    """Codec, size, duration."""
    text = run("ffprobe", "-v", "error", "-select_streams", "v:0", "-of", "json", "-show_entries",
               "stream=codec_name,profile,width,height:format=duration", path)
    return json.loads(text)


def packets(path):
    """Every coded picture: whether it is marked as a key frame, and the checksum of its bytes."""
    text = run("ffprobe", "-v", "error", "-select_streams", "v:0", "-of", "json",
               "-show_data_hash", "md5", "-show_entries", "packet=flags,data_hash", path)
    return [("K" in packet["flags"], packet["data_hash"].split(":")[1])
            for packet in json.loads(text)["packets"]]


def contact_sheet(path, sheet, seconds):
    """A picture a second, four in a row."""
    rows = (int(seconds) + 4) // 4
    run("ffmpeg", "-nostdin", "-v", "error", "-y", "-i", path, "-vf",
        f"fps=1,scale=320:-2,tile=4x{rows}:padding=4", "-frames:v", "1", sheet)
