#!/usr/bin/env python3
"""Makes one Markdown table of what tavlo-benchmarks measured and holds it against the goals.

table.py RESULTS.json [KIND=REQUESTS-PER-SECOND...]   where the figures are those of wrk for the kinds plain and tls

Ratios compare medians. A goal on time counts as missed when it is off by more than a factor of two, for machines and
their load differ; in between it is shown as "near". Goals on bytes and memory have no such margin. Exits with 1 when a
goal is missed or a product was wrong.
"""
import json
import math
import statistics
import sys

SIZES = {"640x480": 640 * 480, "1280x960": 1280 * 960, "7MP": 3072 * 2304, "12MP": 4032 * 3024, "1MB": 1e6, "20MB": 2e7}
missed = []


class Row:
    """One line of the table: its cells by column, and the verdicts on its goals."""

    def __init__(self, name):
        self.name, self.cells, self.verdicts = name, {}, []

    def goal(self, what, value, limit, least=False, margin=1.0):
        """`value` shall be at most `limit`, or at least."""
        if value <= limit if not least else value >= limit:
            return
        near = value <= limit * margin if not least else value >= limit / margin
        self.verdicts.append(f"{'near' if near else '**missed**'}: {what} {value:.3g}, {'≥' if least else '≤'} {limit:g}")
        if not near:
            missed.append(f"{self.name}: {what}")


def read(runs):
    """{case: {who: {"time": ms, counters...}}}"""
    cases, samples = {}, {}
    for run in sorted(runs, key=lambda run: run["family_index"]):  # They ran in random order.
        if run["run_type"] != "iteration":
            continue
        case, who = run["run_name"].removesuffix("/real_time").rsplit("/", 1)
        if run.get("error_occurred"):
            missed.append(f"{case}/{who}: {run['error_message']}")
            continue
        samples.setdefault((case, who), []).append(run["real_time"] / run.get("posts", 1))
        cases.setdefault(case, {})[who] = run
    for (case, who), times in samples.items():
        cases[case][who]["time"] = statistics.median(times)
    return cases


def seconds_to_server(run, megabits):
    return run["time"] / 1e3 + run["bytes"] * 8 / (megabits * 1e6)


def number(value, unit=""):
    return f"{value:,.0f}{unit}" if value >= 100 else f"{value:.3g}{unit}"


def product_row(case, who, runs):
    """A row on something that is made: by us, or by others for comparison."""
    group, kind = case.split("/")[:2]
    row, run, ours = Row(f"{case} {who}".removesuffix(" ours")), runs[who], who == "ours"
    row.cells["time"] = number(run["time"], " ms")
    by_hand = runs.get("by-hand") or runs.get("kept-handle")
    if by_hand:
        speed = by_hand["time"] / run["time"]
        row.cells["by hand / time"] = number(speed, " x")
        if ours and group == "builder":
            row.goal("speed", speed, 35 if kind == "s" else 50, least=True, margin=2)
        if ours and group == "png" and kind in ("flat", "grey", "drawn", "hard-edge"):
            row.goal("speed", speed, 3, least=True, margin=2)
    floor = runs.get("floor") or runs.get("memcpy")
    if floor and ours:
        row.cells["time / floor"] = number(run["time"] / floor["time"], " x")
        row.goal("floor", run["time"] / floor["time"], 1.2 if group == "json" else 4, margin=2)
    if "bytes" in run:
        row.cells["bytes"] = number(run["bytes"])
    if by_hand and "bytes" in by_hand and group in ("png", "builder"):
        share = run["bytes"] / by_hand["bytes"]
        row.cells["bytes / by hand"] = f"{share:.3f}"
        if ours and group == "png":
            row.goal("bytes", round(share, 2), 1 if kind == "s" else 1.04 if kind in ("cam", "jpeg", "near-grey", "photo") else 1.02)
    if "peak" in run:
        row.cells["peak / bytes"] = number(run["peak"] / run["bytes"])
    if "peak" in run and group == "builder":
        row.goal("peak memory", run["peak"], 2.1 * run["bytes"] + 1e6)
        gains = [seconds_to_server(by_hand, rate) / seconds_to_server(run, rate) for rate in (5, 20, 100)]
        row.cells["to server, 5 / 20 / 100 Mbit/s"] = " / ".join(
            f"{seconds_to_server(run, rate):.3g} s ({gain:.2f} x)" for rate, gain in zip((5, 20, 100), gains))
        for gain, limit, rate in zip(gains, (1.05, 1.2, 2), (5, 20, 100)):
            row.goal(f"gain to server at {rate} Mbit/s", gain - 1, limit - 1, least=True, margin=2)
    if group == "upload" and ours:
        row.goal("peak memory beside the body", run["peak"], 1e6)
    if group == "queue":
        row.cells["bytes"] = number(run["peak-per-post"], " a post beside its body")
        row.goal("memory a post", run["peak-per-post"], 16384)
    if group == "earlier-calls":
        row.cells["by hand / time"] = f"last calls / first: {run['late-over-early']:.2f}"
        row.goal("late over early", run["late-over-early"], 1.1, margin=2)
    return row


def posts_row(case, who, runs, wrk):
    kind = case.split("/")[1]
    row, per_call = Row(f"{case} {who.replace('ours-', '')}"), runs["handle-per-call"]["time"]
    rate, speed = 1e3 / runs[who]["time"], per_call / runs[who]["time"]
    row.cells = {"time": number(rate, " posts/s"), "by hand / time": number(speed, " x")}
    if who == "ours-64":
        row.goal("speed", speed, 3 if kind == "plain" else 20, least=True, margin=2)
        if kind in wrk:
            row.cells["time / floor"] = f"{rate / wrk[kind]:.2f} of wrk"
            row.goal("share of wrk", rate / wrk[kind], 0.4, least=True, margin=2)
    return row


def growth_row(kind, sizes):
    """The exponent in time ~ size ** exponent, fitted over the sizes of one kind of input, beside the floor's own."""

    def slope(who):
        points = [(size, math.log(runs[who]["time"])) for size, runs in sizes]
        return statistics.linear_regression(*zip(*points)).slope

    ours, floor = slope("ours"), slope("floor" if "floor" in sizes[0][1] else "memcpy")
    row = Row(f"{kind}, growth")
    row.cells = {"time": f"size^{ours:.2f}", "time / floor": f"floor: size^{floor:.2f}"}
    row.goal("growth beyond the floor's", ours - floor, 0.15, margin=2)
    return row


def machine(context):
    with open("/proc/cpuinfo", encoding="utf-8") as lines:
        model = next((line.split(":")[1].strip() for line in lines if line.startswith("model name")), "unknown")
    return (f"{context['date'][:10]}, {context['num_cpus']} processors of type {model}, "
            f"load {context['load_avg'][0]:.1f} at the start.")


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        results = json.load(file)
    cases = read(results["benchmarks"])
    wrk = {kind: float(rate) for kind, rate in (text.split("=") for text in sys.argv[2:])}
    rows = []
    for case, runs in cases.items():
        for who in runs:
            if case.startswith("posts/"):
                rows.append(posts_row(case, who, runs, wrk))
            elif who not in ("by-hand", "floor", "memcpy", "kept-handle"):
                rows.append(product_row(case, who, runs))
    by_kind = {}
    for case, runs in cases.items():
        kind, size = case.rsplit("/", 1)
        if size in SIZES and ("floor" in runs or "memcpy" in runs):
            by_kind.setdefault(kind, []).append((math.log(SIZES[size]), runs))
    rows += [growth_row(kind, sizes) for kind, sizes in by_kind.items() if len(sizes) > 1]
    columns = ["time", "by hand / time", "time / floor", "bytes", "bytes / by hand", "peak / bytes",
               "to server, 5 / 20 / 100 Mbit/s"]
    print(machine(results["context"]) + "\n")
    print("| case | " + " | ".join(columns) + " | goals |\n" + "| --- " * (len(columns) + 2) + "|")
    for row in rows:
        print(f"| {row.name} | " + " | ".join(row.cells.get(column, "") for column in columns) +
              f" | {'; '.join(row.verdicts)} |")
    print(f"\n{len(missed)} goals missed" + "".join(f"\n- {text}" for text in missed) if missed else "\nNo goal missed.")
    return 1 if missed else 0


sys.exit(main())
