"""An interactive bash at a terminal, for what depends on keys."""
import os
import pty
import select
import subprocess
import time

LIMIT = 60


class Bash:
    """Without anybody's start-up files. Use it by "with"."""

    def __init__(self, folder, path):
        self._master, terminal = pty.openpty()
        self._process = subprocess.Popen(
            ["bash", "--norc", "--noprofile", "-i"], cwd=folder, start_new_session=True,
            stdin=terminal, stdout=terminal, stderr=terminal,
            env={**os.environ, "PATH": f"{path}:{os.environ['PATH']}", "TERM": "dumb",
                 "PS1": "ready> "})
        os.close(terminal)
        self._output = b""
        self._read_until(b"ready> ")

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self._process.kill()
        self._process.wait()
        os.close(self._master)

    def _read_until(self, wanted):
        end = time.monotonic() + LIMIT
        while wanted not in self._output:
            if not select.select([self._master], [], [], max(0, end - time.monotonic()))[0]:
                raise TimeoutError(f"bash printed only {self._output!r}")
            self._output += os.read(self._master, 1 << 16)
        before, _, self._output = self._output.partition(wanted)
        return before

    def run(self, command):
        os.write(self._master, command.encode() + b"\r")
        self._read_until(b"ready> ")

    def words(self, keys):
        """The words that stand on the command line after these keys."""
        # Home, what prints words between control characters, end, a last word. The echo of the keys
        # is text, with marks of readline's own when the line is long.
        os.write(self._master, keys.encode() + b"\x01printf '\\001%s\\002' \x05 END\r")
        output = self._read_until(b"\x01END\x02")
        self._read_until(b"ready> ")
        return [word.split(b"\x02")[0].decode() for word in output.split(b"\x01")[1:]]
