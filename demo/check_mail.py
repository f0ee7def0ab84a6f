#!/usr/bin/env python3
"""Checks the demo's mail and tells what a person wants to know about its clips.

Every movie must decode without an error into exactly the pictures of its camera, mark exactly that
camera's key frames, and last as long as they did; the picture must be one of its camera's. The
attachments, and a contact sheet of each movie, are left beside the mail. Exit status 1: it is not
so.
"""
import argparse
import hashlib
import pathlib
import sys

import cameras
import message
import timeline
import video


class Different(Exception):
    """An attachment does not show what its camera took."""


def require(holds, otherwise):
    if not holds:
        raise Different(otherwise)


def stream_of(camera):
    stream, _, sub_channel = camera.stream.partition("/")
    return int(stream) | int(sub_channel or 0) << 28


def find_run(part, whole):
    """Where the part begins in the whole; both are lists."""
    for start in range(len(whole) - len(part) + 1):
        if whole[start:start + len(part)] == part:
            return start
    return None


def check_movie(path, camera, run, videos):
    name = path.name
    clip = run.clips[name]
    source = camera.video(videos)
    frames = video.decoded_frames(path)
    start = find_run(frames, video.decoded_frames(source))
    require(start is not None, f"{name} does not decode into the camera's pictures, one by one")

    keys = [key for key, _ in video.packets(path)]
    source_keys = [key for key, _ in video.packets(source)][start:start + len(frames)]
    require(keys == source_keys, f"the sync samples of {name} are not the camera's key frames")
    require(len(frames) == clip.frames, f"{name} has other frames than the log says")

    found = video.facts(path)
    duration = float(found["format"]["duration"])
    frame = 1 / camera.rate
    require(abs(duration - clip.length) <= frame, f"{name} does not last as long as it arrived")
    # The clip lasts from the arrival of its first frame to that of its last one, which a machine
    # under load may have fed late.
    slack = frame + run.late[stream_of(camera)]
    require(abs(duration - (len(frames) - 1) * frame) <= slack,
            f"{name} lasts {duration} s for {len(frames)} frames")

    sheet = path.with_suffix(".png")
    video.contact_sheet(path, sheet, duration)
    stream = found["streams"][0]
    end = run.event - clip.before + clip.length
    print(f"{name}: {stream['codec_name']} ({stream['profile']}) "
          f"{stream['width']}x{stream['height']}, {path.stat().st_size / 1024:.0f} KB\n"
          f"    {clip.before:.2f} s before and {clip.length - clip.before:.2f} s after the event, "
          f"{len(frames)} frames, {sum(keys)} of them key frames\n"
          f"    equal to frames {start} to {start + len(frames) - 1} of the camera; "
          f"delivered {run.delivered - end:.3f} s after its last frame\n"
          f"    {sheet}")


def check_picture(path, camera, _, videos):
    content = path.read_bytes()
    video.decoded_frames(path)
    images = [checksum for _, checksum in video.packets(camera.video(videos))]
    checksum = hashlib.md5(content).hexdigest()
    require(checksum in images, f"{path.name} is none of the camera's pictures")
    stream = video.facts(path)["streams"][0]
    print(f"{path.name}: {stream['codec_name']} {stream['width']}x{stream['height']}, "
          f"{len(content) / 1024:.0f} KB\n"
          f"    equal to picture {images.index(checksum)} of the camera\n"
          f"    {path}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("mail", type=pathlib.Path)
    parser.add_argument("--timeline", type=pathlib.Path, required=True)
    parser.add_argument("--videos", type=pathlib.Path, required=True)
    parser.add_argument("--event-time", type=int, required=True)
    parser.add_argument("--web-port", type=int, required=True)
    arguments = parser.parse_args()

    # The mail has each camera once; one with small pictures is shown by one of them.
    shown = {camera.name: camera for camera in cameras.CAMERAS}.values()
    names = [camera.name + (".jpg" if camera.codec == "jpeg" else ".mov") for camera in shown]
    try:
        run = timeline.Timeline(arguments.timeline.read_text(encoding="utf-8"))
        contents = message.read_message(arguments.mail.read_bytes(), arguments.event_time,
                                        arguments.web_port, names)
        for camera, name, content in zip(shown, names, contents):
            path = arguments.mail.with_name(name)
            path.write_bytes(content)
            check = check_picture if camera.codec == "jpeg" else check_movie
            check(path, camera, run, arguments.videos)
    except (message.WrongMessage, video.BrokenVideo, Different) as fault:
        sys.exit(f"{arguments.mail}: {fault}")


if __name__ == "__main__":
    main()
