#!/usr/bin/python3
"""Compares the figures of one run of the benchmarks with what is claimed.

    claims.py RESULTS_FOLDER BUILD_TYPE

A claim is a ratio of two figures of one run, where it can be: the machine is shared, and its own
speed changes more from run to run than the product does. Exit status 1: a claim was not met.
"""
import dataclasses
import datetime
import json
import pathlib
import statistics
import sys
from collections.abc import Callable


class Results:
    """The repetitions of every case, as "program:case"."""

    def __init__(self, folder: pathlib.Path):
        self.cases: dict[str, list[dict]] = {}
        self.context: dict = {}
        self.errors: list[str] = []
        for file in sorted(folder.glob("*.json")):
            content = json.loads(file.read_text())
            self.context = content["context"]
            for run in content["benchmarks"]:
                # Iteration counts and kinds of time follow the name.
                case = run["run_name"].partition("/iterations:")[0]
                case = case.removesuffix("/manual_time")
                if run.get("error_occurred"):
                    self.errors.append(f"{file.stem}:{case}: {run['error_message']}")
                elif run["run_type"] == "iteration":
                    self.cases.setdefault(f"{file.stem}:{case}", []).append(run)

    def has(self, name: str) -> bool:
        return name in self.cases

    def _of(self, name: str, pick: Callable, field: str) -> float:
        return pick(run[field] for run in self.cases[name])

    def time(self, name: str, pick: Callable) -> float:
        """Nanoseconds of processor time; with manual time, what the program took it for."""
        manual = "/manual_time" in self.cases[name][0]["name"]
        return self._of(name, pick, "real_time" if manual else "cpu_time")

    def counter(self, name: str, counter: str) -> float:
        return self._of(name, statistics.median, counter)


@dataclasses.dataclass
class Row:
    text: str
    needs: list[str]
    # Gets the results and what to take of the repetitions.
    figure: Callable[[Results, Callable], float]
    form: str  # of the figure
    limit: float | None = None  # none: for information
    limit_text: str = ""

    def meets(self, figure: float) -> bool | None:
        return None if self.limit is None else figure <= self.limit


def ratio(text: str, of: str, to: str, limit: float | None) -> Row:
    return Row(text, [of, to], lambda r, pick: r.time(of, pick) / r.time(to, pick),
               "{:.3f} x", limit, f"{limit} x")


def flat(text: str, names: list[str], limit: float) -> Row:
    """The dearest of the cases to the cheapest."""
    def figure(results: Results, pick: Callable) -> float:
        times = [results.time(name, pick) for name in names]
        return max(times) / min(times)
    return Row(text, names, figure, "{:.3f} x", limit, f"{limit} x")


def microseconds(text: str, name: str, limit: float | None) -> Row:
    return Row(text, [name], lambda r, pick: r.time(name, pick) / 1000, "{:.2f} us", limit,
               f"{limit} us")


def counter(text: str, name: str, field: str, limit: float | None, form: str = "{:.4g}") -> Row:
    return Row(text, [name], lambda r, _: r.counter(name, field), form, limit, f"{limit}")


PROFILES = (1, 10, 100, 1000)
STREAMS = (1, 16, 256, 1024)
PLACES = (0, 5000, 9999)
SLOPES = {"servers": 10_000, "profiles": 2_000, "cameras": 1_000, "entries": 1_900, "sources": 5_000}

SECTIONS: dict[str, list[Row]] = {
    "Write of an event document": [
        microseconds("bare TinyXML parse of the text", "event_write:parse/bare", None),
        ratio("throttled event, 100 profiles : bare parse", "event_write:throttled/100",
              "event_write:parse/bare", 1.5),
        ratio("event that notifies, 100 profiles : bare parse", "event_write:due/100",
              "event_write:parse/bare", 1.5),
        flat("throttled event, 1 to 1,000 profiles", [f"event_write:throttled/{n}" for n in PROFILES], 1.2),
        flat("event that notifies, 1 to 1,000 profiles", [f"event_write:due/{n}" for n in PROFILES], 1.2),
    ],
    "Large documents": [
        ratio(f"{10 * n:,} {what} : {n:,}", f"document_slope:{what}/{10 * n}",
              f"document_slope:{what}/{n}", 13)
        for what, n in SLOPES.items()
    ],
    "Composition with a 10 MiB attachment": [
        microseconds("read 10 MiB, write 4/3 of it, 1 MiB pieces", "composition:copy", None),
        ratio("composition : that", "composition:compose", "composition:copy", 2),
        ratio("composition in the standard layout : composition", "composition:compose_standard",
              "composition:compose", 1.3),
        ratio("composition : coreutils base64 -w 76", "composition:compose",
              "composition:coreutils_base64", 1),
    ],
    "Idle": [
        counter("worker's wake-ups in 22 s", "idle:idle", "worker_wakeups", 0),
        Row("watchdog's wake-ups beyond its events", ["idle:idle"],
            lambda r, _: r.counter("idle:idle", "watchdog_wakeups")
            - r.counter("idle:idle", "watchdog_events"), "{:.0f}", 0, "0"),
        counter("worker's % of a core, 10,000 messages wait", "idle:waiting", "worker_cpu_percent", 1),
    ],
    "Retry queue of 10,000 messages": [
        microseconds("pass before the round", "retry_queue:before_next_retry", 50),
        microseconds("pass that completes the round", "retry_queue:complete_round", 50),
        *[microseconds(f"failing transfer at place {n}", f"retry_queue:fails/{n}", 100) for n in PLACES],
        *[microseconds(f"successful transfer at place {n}", f"retry_queue:succeeds/{n}", 100) for n in PLACES],
        microseconds("caches emptied: completes the round", "retry_queue:complete_round_cold", None),
        microseconds("caches emptied: fails at place 5000", "retry_queue:fails/5000_cold", None),
        microseconds("caches emptied: fails at place 9999", "retry_queue:fails/9999_cold", None),
    ],
    "Web link without the network": [
        microseconds(f"{kind} search format, {n} camera(s)", f"web_link:{kind}/{n}", 20)
        for kind in ("older", "newer") for n in (1, 16)
    ],
    "Frame intake (30 KB frames, histories of 10 MiB full)": [
        microseconds("memcpy of a payload, own buffers", "frame_intake:copy", None),
        ratio("Write, 256 streams : memcpy", "frame_intake:write/256", "frame_intake:copy", 0.1),
        ratio("Write, 256 streams : memcpy from the cache", "frame_intake:write/256",
              "frame_intake:copy_hot", None),
        flat("Write, 1 to 1,024 streams", [f"frame_intake:write/{n}" for n in STREAMS], 1.5),
        counter("allocations a frame", "frame_cost:allocations", "allocations_per_frame", 2),
        counter("heap bytes a frame held", "frame_cost:memory", "bytes_per_frame", 100),
        counter("processes killed for a system call", "frame_cost:system_calls", "processes_killed", 0),
    ],
    "Clip": [
        microseconds("cutting 30 groups", "clip_cut:cut/30", None),
        microseconds("cutting 300 groups", "clip_cut:cut/300", 1000),
    ],
    "Movie of a 42 MiB H.264 clip": [
        microseconds("fwrite of its bytes, 1 MiB pieces", "movie_writer:fwrite", None),
        # At least 0.7 of the speed.
        ratio("movie writer : that", "movie_writer:write", "movie_writer:fwrite", 1.43),
        ratio("movie writer : ffmpeg -c copy", "movie_writer:write", "movie_writer:ffmpeg", 0.2),
    ],
    "From the end of a 10 MiB clip to the mail server (elapsed)": [
        microseconds("curl alone, same message", "whole_road:curl", None),
        ratio("plug-in : that", "whole_road:plugin", "whole_road:curl", 1.7),
        ratio("plug-in : ffmpeg, then s-nail", "whole_road:plugin", "whole_road:pipeline", 1),
        microseconds("writing as many bytes", "whole_road:write", None),
        microseconds("on the disk: curl alone", "whole_road_disk:curl", None),
        ratio("on the disk: plug-in : that", "whole_road_disk:plugin", "whole_road_disk:curl", None),
        microseconds("on the disk: writing as many bytes", "whole_road_disk:write", None),
    ],
}


def processor() -> str:
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.partition(":")[2].strip()
    return "unknown processor"


def main() -> int:
    results = Results(pathlib.Path(sys.argv[1]))
    if not results.cases:
        print("claims: no results", file=sys.stderr)
        return 1
    cores = results.context["num_cpus"]
    print(f"\n{datetime.date.today()}, {sys.argv[2]} build, 32-bit, {cores} x {processor()},"
          f" load {results.context['load_avg'][0]:.1f} at the last program")
    print(f"{'':52}{'median':>12}{'minimum':>12}{'claimed':>12}")
    missed = len(results.errors)
    for title, rows in SECTIONS.items():
        rows = [row for row in rows if all(map(results.has, row.needs))]
        if rows:
            print(title)
        for row in rows:
            median = row.figure(results, statistics.median)
            minimum = row.form.format(row.figure(results, min))
            verdict = {None: "", True: "met", False: "MISSED"}[row.meets(median)]
            missed += verdict == "MISSED"
            claimed = f"<= {row.limit_text}" if row.limit is not None else ""
            print(f"  {row.text:50}{row.form.format(median):>12}{minimum:>12}{claimed:>12}  {verdict}")
    for error in results.errors:
        print(f"not measured: {error}")
    print(f"{missed} claims missed" if missed else "all claims met")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
