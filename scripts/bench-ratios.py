#!/usr/bin/env python3
"""Prints one table of ours/peer ratios from Google Benchmark JSON files.

Benchmarks are named <family>/<implementation>[/<arguments>...]: an implementation whose name
starts with "orvik" is ours, any other is a peer, and a row compares ours with each peer that
ran the same family on the same arguments. The ratio is the peer's median over ours, for time or
for the counters below, where less is better; above 1.00 means ours is ahead.

    bench-ratios.py build/bench/results          every *.json of the folder
    bench-ratios.py a.json b.json
"""
import json
import os
import sys

# Counters where less is better; a benchmark that reports them is compared on them instead of
# its time (which is then a fixed measuring window).
LOWER_IS_BETTER = ("cpu_ns_per_firing", "p99_late_ms")

NANOS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def medians(paths):
    """{run name: the median aggregate} of every file."""
    runs = {}
    files = []
    for path in paths:
        if os.path.isdir(path):
            files += sorted(os.path.join(path, n) for n in os.listdir(path) if n.endswith(".json"))
        else:
            files.append(path)
    for path in files:
        with open(path, encoding="utf-8") as handle:
            for run in json.load(handle).get("benchmarks", []):
                if run.get("aggregate_name") == "median" and not run.get("error_occurred"):
                    runs[run["run_name"]] = run
    return runs


def measures(run):
    """[(what, value, unit)] to compare, less being better."""
    counters = [(name, run[name], "") for name in LOWER_IS_BETTER if name in run]
    if counters:
        return counters
    return [("time", run["real_time"] * NANOS[run["time_unit"]], "ns")]


def show(value, unit):
    if unit != "ns":
        return f"{value:.3g}"
    for suffix, scale in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if value >= scale:
            return f"{value / scale:.3g} {suffix}"
    return f"{value:.3g} ns"


def main(paths):
    families = {}
    for name, run in medians(paths).items():
        parts = name.split("/")
        if len(parts) < 2:
            continue
        key = "/".join([parts[0]] + parts[2:])
        families.setdefault(key, {})[parts[1]] = run
    rows = []
    for key in sorted(families):
        runs = families[key]
        for ours in sorted(n for n in runs if n.startswith("orvik")):
            for peer in sorted(n for n in runs if not n.startswith("orvik")):
                peer_measures = dict((what, value) for what, value, _ in measures(runs[peer]))
                for what, value, unit in measures(runs[ours]):
                    if what not in peer_measures or value <= 0:
                        continue
                    label = f"{key} [{ours} vs {peer}]" + ("" if what == "time" else f" {what}")
                    rows.append((label, show(value, unit), show(peer_measures[what], unit),
                                 peer_measures[what] / value))
    if not rows:
        print("no ours/peer pairs found")
        return 0
    width = max(len(row[0]) for row in rows)
    print(f"{'pair (median of the repetitions)':<{width}}  {'ours':>10}  {'peer':>10}  ours/peer")
    for label, ours, peer, ratio in rows:
        print(f"{label:<{width}}  {ours:>10}  {peer:>10}  {ratio:9.2f}")
    behind = sum(1 for row in rows if row[3] < 1.0)
    print(f"{len(rows)} pairs, {behind} below 1.00")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
