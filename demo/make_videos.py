#!/usr/bin/env python3
"""Makes the videos of the demo's cameras in a folder; prints what the host is to feed, by line."""
import pathlib
import sys

import cameras

folder = pathlib.Path(sys.argv[1])
folder.mkdir(parents=True, exist_ok=True)
cameras.make_videos(folder)
print(*cameras.host_options(folder), sep="\n")
