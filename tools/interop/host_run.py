"""The plug-in in the simulated host, for interoperability runs: documents in, mails and verdicts out."""
import argparse
import json
import os
import pathlib
import shutil
import subprocess
from xml.sax.saxutils import quoteattr as quote

# Keeps what the plug-in composed, and what curl said of it, beside the messages.
CURL = """#!/bin/sh
[ "$1" = -V ] && exec {curl} -V
for word; do [ "$before" = -T ] && file=$word; before=$word; done
name=$(date +%s%N)
cp "$file" "{kept}/$name.eml"
{curl} "$@" 2>"{kept}/$name.errors"
status=$?
echo "$status" >"{kept}/$name.status"
exit "$status"
"""


def read_options(about, only):
    """command, work, shared (of both sides of overlays, below work) and only, which is told so."""
    parser = argparse.ArgumentParser(description=about.splitlines()[0])
    parser.add_argument("--command", type=pathlib.Path, required=True, help="the notifypi command")
    parser.add_argument("--work", type=pathlib.Path, required=True, help="folder for everything")
    parser.add_argument("--only", default="", help=only)
    options = parser.parse_args()
    options.command, options.work = options.command.resolve(), options.work.resolve()
    options.shared = options.work / "shared"
    options.shared.mkdir(parents=True, exist_ok=True)
    return options


def text(content):
    """As an element's content."""
    return quote(content, {"\r": "&#13;", "\n": "&#10;"})[1:-1]


def profile(number, subject, body, attach, to, sender="NVR <nvr@example.com>", seconds=4):
    return (f'<smtp ID="{number}" attach="{int(bool(attach))}" description={quote(subject)} '
            f'ThrottleSeconds="0" from={quote(sender)} subject={quote(subject)} '
            f'MaxVideoSeconds="{seconds}" EventEdge="0"><to>{text(to)}</to>'
            f'<body>{text(body)}</body></smtp>')


def notify_document(server, profiles, delivery=""):
    return (f'<?xml ?>\n<tDVR Delta="0"><Notify ID="786432" MaxRetrySeconds="60" MaxRetryQueue="100" '
            f'EmailSizeLimitMB="50">{delivery}<Servers>{server}</Servers>'
            f'<Profiles autoincrement="1">{"".join(profiles)}</Profiles></Notify></tDVR>\n')


def event_document(number, streams, seconds):
    sources = "".join(f'<EventSource ID="{it}" Type="2"/>' for it in streams)
    return (f'<tDVR><Servers><Server Serial="A-1001" Description="Main building"/></Servers>'
            f'<Notify ID="786432"><Profiles><Profile ID="{number}" Alarm="1" Action="7" '
            f'Time="{seconds}" Milliseconds="0">{sources}</Profile></Profiles></Notify></tDVR>')


def run(command, folder, notify, steps):
    """Runs the host over the steps of a scenario, in which documents are pairs of kind and text; its
    JSON records, and the folder with what was composed and what curl said."""
    folder = pathlib.Path(folder)
    shutil.rmtree(folder, ignore_errors=True)
    kept = folder / "kept"
    kept.mkdir(parents=True)
    curl = folder / "curl"
    curl.write_text(CURL.format(curl=shutil.which("curl"), kept=kept))
    curl.chmod(0o755)
    (folder / "notify.xml").write_text(notify, encoding="utf-8")
    with open(folder / "steps", "w", encoding="utf-8") as file:
        for count, step in enumerate(steps):
            if not isinstance(step, str):
                (folder / f"{count}.xml").write_text(step[1], encoding="utf-8")
                step = f"{step[0]} {count}.xml"
            print(step, file=file)
    done = subprocess.run([command, "host", "--directory", folder, "--json", "--timeout", "300",
                           "--script", folder / "steps"], capture_output=True, text=True,
                          errors="replace", check=False, env=dict(os.environ, TZ="UTC"))
    (folder / "log.json").write_text(done.stdout)
    if done.returncode:
        raise RuntimeError(f"notifypi host: exit status {done.returncode}\n{done.stderr[-2000:]}")
    return [json.loads(line) for line in done.stdout.splitlines()], kept
