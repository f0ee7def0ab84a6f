#!/usr/bin/python3
"""Keeps the plug-in busy in `notifypi host` for a while, and holds its books. Of script/soak.

    soak.py MINUTES --command BUILD/notifypi --directory DIR [--tar-pit]

Exit status 1: something has grown, or does not balance."""
import argparse
import csv
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys

import figures
import frames
import ledger
import load
import tar_pit

HERE = pathlib.Path(__file__).resolve().parent


def follow(options, script, take, *more):
    """Runs the host and hands every record of it over; returns its exit status."""
    command = [options.command, "host", "--in-place", "--json", "--bytes", "--script", script, *more]
    with subprocess.Popen(command, cwd=options.directory, stdout=subprocess.PIPE,
                          env={**os.environ, "TZ": "UTC", "LC_ALL": "C.UTF-8"}) as host:
        with open(options.directory / "log.txt", "w", encoding="utf-8") as log:
            for line in host.stdout:
                record = json.loads(line)
                if record["kind"] in ("log", "fault", "host", "retry", "ended"):
                    log.write(line.decode())
                take(host, record)
    return host.returncode


class Samples:
    """Takes a sample a second, and knows from the host's records how far the scenario is."""

    def __init__(self, folder, books):
        self.spool, self.books = folder / "data", books
        self.samples, self.quiet = [], []
        self.begin = self.end = None  # of the load
        self.next, self.server_up, self.phase = 0, True, self.samples

    def take(self, host, record):
        self.books.take(record)
        now, text = record["time"], record.get("text", "")
        if record["kind"] == "call" and record["name"] == ledger.EVENT:
            self.begin = now if self.begin is None else self.begin
            self.end = now
        elif record["kind"] == "host":
            if text in ("mail server up", "mail server down"):
                self.server_up = text.endswith("up")
            if text.endswith("last.xml"):
                self.phase = self.quiet
            elif text == "close":
                self.phase = None
        if self.begin is None or self.phase is None or now < self.next:
            return
        self.next = now + 1
        self.phase.append({"seconds": now - self.begin, "mail server up": int(self.server_up),
                           **figures.read(host.pid, self.books, self.spool)})

    def write(self, path):
        with open(path, "w", newline="", encoding="utf-8") as file:
            names = [name.replace(" ", "_") for name in self.samples[0]] if self.samples else []
            table = csv.writer(file)
            table.writerows([names, *(it.values() for it in self.samples)])


def run_load(options):
    folder, books = options.directory, ledger.Ledger()
    with socket.create_server(("127.0.0.1", 0)) as free:
        port = free.getsockname()[1]
    seconds = int(options.minutes * 60)
    script = load.write_load(folder, seconds, port)
    samples = Samples(folder, books)
    sink = f"exec /usr/bin/python3 '{HERE}/mail_sink.py' {port} received"
    status = follow(options, script, samples.take, "--settle", "5", "--mail-server", sink,
                    "--timeout", str(seconds * 1.5 + 300))
    if status != 0:
        books.find(f"the host ended with {status}")
    books.balance()
    received = folder / "received"
    books.compare(received.read_text().splitlines() if received.exists() else [])
    if any((folder / "data").glob("*")):
        books.find("files are left in data/")
    samples.write(folder / "samples.csv")
    with open(folder / "fates.csv", "w", encoding="utf-8") as file:
        csv.writer(file).writerows([ledger.subject(key), *it] for key, it in books.fates.items())
    lasted = (samples.end or 0) - (samples.begin or 0)
    warm, end, findings = figures.judge(samples.samples, samples.quiet, lasted, load.ROUND)
    return {"seconds": lasted, "mail": dict(books.counts), "warm": warm, "end": end,
            "most": {it: max((sample[it] for sample in samples.samples), default=0)
                     for it in (*figures.GROWING, *figures.COUNTED, "under way", "waiting")},
            "least in the end": {it: min((sample[it] for sample in samples.quiet), default=0)
                                 for it in figures.COUNTED},
            "findings": books.findings + findings}


def run_tar_pit(options):
    pit, books = tar_pit.TarPit(), frames.Frames()
    seconds = int(options.minutes * 60)
    script = tar_pit.write_load(options.directory, seconds, pit.port)
    last = f"event-{seconds // tar_pit.EVENT_EVERY - 1}.xml"

    def take(host, record):
        books.take(record)
        # The host would wait for the transfer that hangs.
        if record["kind"] == "host" and record["text"].endswith(last):
            host.send_signal(signal.SIGINT)
    status = follow(options, script, take, "--timeout", "0")
    if status != 0:
        books.find(f"the host ended with {status}")
    tar_pit.judge(books, pit)
    return {"seconds": seconds, "clients of the tar pit": pit.clients, "mail": dict(books.counts),
            "most MiB of frames": round(books.most_bytes / figures.MIB, 1),
            "findings": books.findings}


def print_summary(summary):
    for name, value in summary.items():
        if isinstance(value, dict):
            value = ", ".join(f"{key} {it / figures.MIB:.2f} MiB" if it > 10 * figures.MIB
                              else f"{key} {it:.0f}" for key, it in value.items())
        if name != "findings":
            print(f"{name:24}  {value}")
    for text in summary["findings"]:
        print("FAULT   ", text)
    print("verdict ", "failed" if summary["findings"] else "flat, and everything balances")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("minutes", type=float)
    parser.add_argument("--command", type=os.path.abspath, required=True)
    parser.add_argument("--directory", type=pathlib.Path, required=True)
    parser.add_argument("--tar-pit", action="store_true")
    options = parser.parse_args()
    options.directory = options.directory.absolute()
    curl = shutil.which("curl")
    (options.directory / "curl").symlink_to(curl if options.tar_pit else HERE / "unreliable_curl")
    (options.directory / "real-curl").symlink_to(curl)
    summary = run_tar_pit(options) if options.tar_pit else run_load(options)
    (options.directory / "summary.json").write_text(json.dumps(summary, indent=1) + "\n")
    print_summary(summary)
    return 1 if summary["findings"] else 0


if __name__ == "__main__":
    sys.exit(main())
