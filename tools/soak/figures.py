"""What the host's process uses over time, and whether it stays flat."""
import pathlib

MIB = 1 << 20
# A longer run is compared over whole rounds of its load, so that like is compared with like.
LONG_RUN = 600
TOLERANCE, SHORT_TOLERANCE = 0.01, 0.04
GROWING = ("resident", "besides frames", "frames held")
COUNTED = ("descriptors", "threads", "children")


def read(pid, ledger, spool):
    """One sample, without its time."""
    proc = pathlib.Path(f"/proc/{pid}")
    status = dict(line.split(":", 1) for line in (proc / "status").read_text().splitlines())
    resident = int(status["VmRSS"].split()[0]) * 1024
    children = sum(len((task / "children").read_text().split())
                   for task in (proc / "task").iterdir())
    return {"resident": resident, "besides frames": resident - ledger.held_bytes,
            "frames held": ledger.held, "descriptors": len(list((proc / "fd").iterdir())),
            "threads": int(status["Threads"]), "children": children,
            "files": len(list(spool.iterdir())) if spool.exists() else 0,
            "waiting": len(ledger.queue), "under way": len(ledger.open) - len(ledger.queue),
            "mailed": ledger.counts["mailed"] + ledger.counts["mailed late"],
            "attempts": ledger.counts["attempts"]}


def means(samples, begin, end):
    """Means of what may wave, and the least of what is counted."""
    window = [it for it in samples if begin <= it["seconds"] < end]
    if not window:
        return None
    result = {it: sum(sample[it] for sample in window) / len(window) for it in GROWING}
    result.update({it: min(sample[it] for sample in window) for it in COUNTED})
    return result


def judge(samples, quiet, seconds, round_seconds):
    """Compares the end with the time behind the warm-up, and counts with those when all is quiet.

    Returns (means warmed up, means at the end, findings)."""
    warm_up = min(300, seconds / 4)
    is_long = seconds >= LONG_RUN
    span = round_seconds if is_long else (seconds - warm_up) / 3
    tolerance = TOLERANCE if is_long else SHORT_TOLERANCE
    warm, end = means(samples, warm_up, warm_up + span), means(samples, seconds - span, seconds)
    if warm is None or end is None or not quiet:
        return warm, end, ["there are too few samples to judge"]
    findings = []
    for what in GROWING:
        growth = end[what] / warm[what] - 1
        if growth >= tolerance:
            findings.append(f"{what}: {growth:+.2%} since the warm-up")
    for what in COUNTED:
        least = min(it[what] for it in quiet)
        if least > warm[what]:
            findings.append(f"{what}: {least} in the end, once {warm[what]}")
    if quiet[-1]["files"]:
        findings.append(f"files in data/ when all is quiet: {quiet[-1]['files']}")
    return warm, end, findings
