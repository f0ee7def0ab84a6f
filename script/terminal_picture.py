"""Runs a command at a terminal and draws what stands on its screen.

The picture is taken when what --when describes is there; the command is then interrupted. Without it
the picture is that of the end.
"""
import argparse
import fcntl
import os
import pty
import re
import select
import shlex
import signal
import struct
import subprocess
import sys
import termios
import time

import PIL.Image
import PIL.ImageDraw
import PIL.ImageFont
import pyte

FONTS = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono{}.ttf"
FONT_SIZE = 16
MARGIN = 14
COLOURS = {"default": "#d8dee9", "black": "#4c566a", "red": "#ff6b6b", "green": "#8fd18a",
           "brown": "#e8c268", "blue": "#7fa8e8", "magenta": "#c79be0", "cyan": "#7fd0d8",
           "white": "#eceff4"}
BACKGROUND = "#1f242d"
LIMIT = 60


def read_options():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("picture", help="the .png to write")
    parser.add_argument("command", nargs="+")
    parser.add_argument("--columns", type=int, default=104)
    parser.add_argument("--rows", type=int, default=60)
    parser.add_argument("--when", metavar="REGEX", type=lambda it: re.compile(it, re.DOTALL),
                        help="of the whole screen")
    return parser.parse_args()


class Terminal:
    def __init__(self, options):
        self.screen = pyte.Screen(options.columns, options.rows)
        self._stream = pyte.ByteStream(self.screen)
        self._stream.feed(f"\x1b[1m$ {shlex.join(options.command)}\x1b[0m\r\n".encode())
        self._master, terminal = pty.openpty()
        size = struct.pack("HHHH", options.rows, options.columns, 0, 0)
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, size)
        self._process = subprocess.Popen(
            options.command, stdin=terminal, stdout=terminal, stderr=terminal,
            env={**os.environ, "TERM": "xterm-256color"}, start_new_session=True)
        os.close(terminal)

    def take(self, seconds):
        """Takes what is printed, for so long at most. False at the end of the command."""
        if not select.select([self._master], [], [], seconds)[0]:
            return True
        try:
            printed = os.read(self._master, 1 << 16)
        except OSError:  # how a terminal tells that nobody has it open any more
            return False
        self._stream.feed(printed)
        return True

    def text(self):
        return "\n".join(self.screen.display).rstrip()

    def run_until(self, wanted):
        """False when it was not there in time."""
        end = time.monotonic() + LIMIT
        while time.monotonic() < end:
            if not self.take(0.1):
                return wanted is None
            if wanted is not None and wanted.search(self.text()):
                return True
        return False

    def close(self):
        if self._process.poll() is None:
            self._process.send_signal(signal.SIGINT)
        # What is printed at the end is not looked at, but has to go somewhere.
        while self.take(LIMIT):
            pass
        self._process.wait()


def draw(screen):
    fonts = {bold: PIL.ImageFont.truetype(FONTS.format("-Bold" if bold else ""), FONT_SIZE)
             for bold in (False, True)}
    width = round(fonts[False].getlength("m"))
    height = FONT_SIZE * 5 // 4
    used = max(row for row, line in enumerate(screen.display) if line.strip()) + 1
    image = PIL.Image.new("RGB", (screen.columns * width + 2 * MARGIN, used * height + 2 * MARGIN),
                          BACKGROUND)
    pen = PIL.ImageDraw.Draw(image)
    for row in range(used):
        for column in range(screen.columns):
            cell = screen.buffer[row][column]
            ink, paper = COLOURS.get(cell.fg, COLOURS["default"]), COLOURS.get(cell.bg)
            if cell.bg == "default":
                paper = BACKGROUND
            if cell.reverse:
                ink, paper = paper, ink
            at = (MARGIN + column * width, MARGIN + row * height)
            if paper != BACKGROUND:
                pen.rectangle((*at, at[0] + width - 1, at[1] + height - 1), fill=paper)
            if cell.data.strip():
                pen.text(at, cell.data, fill=ink, font=fonts[cell.bold])
    return image


def main():
    options = read_options()
    terminal = Terminal(options)
    try:
        if not terminal.run_until(options.when):
            print(terminal.text(), file=sys.stderr)
            print(f"{options.picture}: the screen never had what was waited for", file=sys.stderr)
            return 1
        # A palette makes half the size.
        draw(terminal.screen).quantize(256).save(options.picture, optimize=True)
    finally:
        terminal.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
