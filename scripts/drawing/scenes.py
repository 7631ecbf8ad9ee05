#!/usr/bin/env python3
"""Draws pictures of real runs. The same traces give the same pictures.

    scenes.py TRACES FOLDER

TRACES   folder with the traces of trace_scenes: burst.json, cancel.json, loops.json, workers.json
FOLDER   folder for the pictures
"""
import argparse
import itertools
import json
import os
import re
import statistics

from theme import BLUE, PALE, RED, SOFT, STYLE, WASH, draw_lanes, plt, save


class Span:
    """A span of time, with its begin and end in seconds."""

    def __init__(self, event, lane):
        self.name = event["name"]
        self.category = event["cat"]
        self.arguments = event.get("args", {})
        self.lane = lane
        self.begin = event["ts"] / 1e6
        self.end = self.begin


class Trace:
    def __init__(self, folder, scene):
        self.spans = []
        self.cancelled = {}  # task to time
        self.ends = {}  # worker to the end of its thread
        with open(os.path.join(folder, scene + ".json"), encoding="utf-8") as file:
            events = json.load(file)
        lanes, open_spans = {}, {}
        for event in events:
            lane = lanes.get(event["tid"])
            if event["ph"] == "M" and event["name"] == "thread_name":
                worker = re.fullmatch(r"zel-worker-(\d+)", event["args"]["name"])
                lanes[event["tid"]] = int(worker[1]) if worker else -1
            elif event["ph"] == "B":
                open_spans[event["tid"]] = Span(event, lane)
                self.spans.append(open_spans[event["tid"]])
            elif event["ph"] == "E":
                open_spans[event["tid"]].end = event["ts"] / 1e6
            elif event.get("cat") == "cancel":
                self.cancelled[event["args"]["task"]] = event["ts"] / 1e6
            elif event.get("cat") == "thread":
                self.ends[lane] = event["ts"] / 1e6

    def select(self, category, name=None):
        chosen = [span for span in self.spans if span.category == category and name in (None, span.name)]
        return sorted(chosen, key=lambda span: span.begin)

    def tasks(self, category):
        return {span.arguments["task"]: span for span in self.select(category)}


def draw_count(axes, spans, resolution, line, area):
    """Draws the number of open spans over time. _spans_ are pairs of begin and end; _resolution_ is the shortest time
    between two steps."""
    changes = {0: 0}
    for begin, end in spans:
        for time, change in ((begin, 1), (end, -1)):
            step = round(time / resolution)
            changes[step] = changes.get(step, 0) + change
    times = [step * resolution for step in sorted(changes)]
    counts = list(itertools.accumulate(changes[step] for step in sorted(changes)))
    axes.fill_between(times, counts, step="post", color=area, linewidth=0)
    axes.step(times, counts, where="post", color=line, linewidth=1.5)


def draw_workers(traces):
    trace = Trace(traces, "workers")
    runs = trace.select("run")
    start = min(span.begin for span in trace.spans)

    def minutes(time):
        return (time - start) / 60

    bars = [(minutes(run.begin), minutes(run.end), run.lane) for run in runs]
    lives = {}
    for left, _, lane in bars:
        lives.setdefault(lane, (left, minutes(trace.ends[lane])))
    figure, (top, bottom) = plt.subplots(
        2, figsize=(8, 5.2), sharex=True, gridspec_kw={"height_ratios": [1, 2.3], "hspace": 0.12}
    )
    draw_count(top, lives.values(), 0.01, SOFT, PALE)
    draw_count(top, [bar[:2] for bar in bars], 0.01, BLUE, BLUE)
    top.text(2.2, len(lives) + 1.5, "workers", color=SOFT)
    top.text(0.65, len(lives) * 0.72, "running tasks", color=BLUE)
    top.set_ylabel("number")
    top.set_ylim(0, len(lives) * 1.3)
    top.set_title("Workers start when all are busy, and retire after five idle minutes")

    draw_lanes(bottom, [(*life, lane) for lane, life in lives.items()], PALE, 5)
    draw_lanes(bottom, bars, BLUE, 5)
    # The workers that the watchdog retires in one pass end at almost the same time.
    retired = sorted({round(life[1], 1) for life in lives.values()})
    for time in retired:
        for axes in (top, bottom):
            axes.axvline(time, color=RED, linewidth=1, linestyle=(0, (4, 3)), zorder=3)
    many = sum(1 for life in lives.values() if round(life[1], 1) == retired[0])
    text = f"pass of the watchdog:\n{many} workers have been\nidle for 5 min or more"
    bottom.text(retired[0] + 0.1, len(lives) * 0.62, text, color=RED)
    bottom.text(retired[-1] - 0.12, len(lives) * 0.32, "the next pass\nretires the last", color=RED, ha="right")
    bottom.text(retired[0] + 0.1, 1.4, "worker 0 is used first,\nso it stays", color=SOFT)
    bottom.set_ylabel("worker (order id)")
    bottom.set_xlabel("minutes since the first submission")
    bottom.set_xlim(0, retired[-1] + 0.3)
    bottom.set_ylim(-1, len(lives))
    return figure


def draw_burst_panel(panel, submissions, runs, burst):
    """Draws the number of running tasks of one burst."""
    start = min(submissions[task].begin for task in burst)

    def after(time):
        return 1e3 * (time - start)

    submitted = after(max(submissions[task].end for task in burst))
    started = after(max(runs[task].begin for task in burst))
    done = after(max(runs[task].end for task in burst))
    panel.axvspan(0, submitted, color=RED, linewidth=0)
    draw_count(panel, [(after(runs[task].begin), after(runs[task].end)) for task in burst], 0.5, BLUE, PALE)
    facts = f"submitted in {submitted:.1f} ms\nall run after {started:.0f} ms\ndone after {done:.0f} ms"
    panel.text(25, 150, facts, va="center", linespacing=1.6)
    panel.set_xlabel("ms since the first submission")
    panel.set_xlim(0, 130)
    panel.set_xticks((0, 50, 100))
    panel.set_ylim(0, 330)
    panel.set_yticks((0, 100, 200, 300))


def draw_burst(traces):
    trace = Trace(traces, "burst")
    submissions, runs = trace.tasks("submit"), trace.tasks("run")
    tasks = sorted(runs)
    figure, panels = plt.subplots(1, 2, figsize=(8, 2.9), sharey=True, gridspec_kw={"wspace": 0.12})
    titles = ("300 tasks of 100 ms, new pool", "300 more, 100 ms later")
    for panel, burst, title in zip(panels, (tasks[:300], tasks[300:]), titles):
        draw_burst_panel(panel, submissions, runs, burst)
        panel.set_title(title)
    panels[0].set_ylabel("running tasks")
    panels[0].text(4, 308, "submission", color=RED, fontsize=9)
    return figure


def draw_owner(axes, tasks, trace, after, row, colour):
    """Draws a row for each task of an owner: when it waits, and when it runs or is cancelled. Returns the next row."""
    submissions, runs = trace.tasks("submit"), trace.tasks("run")
    waits, bars, crosses = [], [], []
    for number, task in enumerate(tasks):
        lane = row + number
        end = after(runs[task].begin if task in runs else trace.cancelled[task])
        waits.append((after(submissions[task].begin), end, lane))
        if task in runs:
            bars.append((end, after(runs[task].end), lane))
        else:
            crosses.append((end, lane))
    draw_lanes(axes, waits, SOFT, 0.8)
    draw_lanes(axes, bars, colour, 5)
    if crosses:
        axes.plot(*zip(*crosses), "x", color=colour, markersize=6, markeredgewidth=1.6)
    return row + len(tasks)


def draw_cancel(traces):
    trace = Trace(traces, "cancel")
    submissions, runs = trace.tasks("submit"), trace.tasks("run")
    remove = trace.select("remove", "removed")[0]
    owned = {
        owner: [task for task in submissions if submissions[task].name == owner] for owner in ("removed", "staying")
    }
    start = min(submissions[tasks[0]].begin for tasks in owned.values())

    def after(time):
        return 1e3 * (time - start)

    figure, axes = plt.subplots(figsize=(8, 4.8))
    axes.axvspan(after(remove.begin), after(remove.end), color=WASH, linewidth=0)
    row, ticks = 0, []
    for tasks, colour in zip(owned.values(), (RED, BLUE)):
        ticks.append(row + (len(tasks) - 1) / 2)
        row = draw_owner(axes, tasks, trace, after, row, colour) + 1.5
    middle = (after(remove.begin) + after(remove.end)) / 2
    axes.text(middle, -1.6, "RemoveTmpTask(first owner)", color=RED, ha="center", va="center", fontsize=9)
    axes.text(after(remove.end) + 20, len(owned["removed"]) - 4.5, "never started", color=RED, va="center")
    samples = (
        axes.plot((), (), color=SOFT, linewidth=0.8)[0],
        axes.plot((), (), color=SOFT, linewidth=5)[0],
        axes.plot((), (), "x", color=SOFT, markersize=6, markeredgewidth=1.6)[0],
    )
    axes.legend(samples, ("waits", "runs", "is cancelled"), loc="upper right", title="A task", alignment="left")
    axes.set_title("One owner's tasks are removed while another owner's run on")
    axes.set_yticks(ticks, ["first owner,\n20 tasks", "second owner,\n20 tasks"])
    axes.tick_params(axis="y", length=0)
    axes.set_ylim(row - 1, -2.9)
    axes.set_xlim(0, after(max(run.end for run in runs.values() if run.name == "staying")) * 1.12)
    axes.set_xlabel("ms since the first submission; other tasks leave 12 workers free")
    return figure


def draw_delays(axes, row, delays):
    """Draws the distribution of the delays above its row."""
    bins = [0.5 * step for step in range(31)]
    counts = [sum(low <= delay < low + 0.5 for delay in delays) for low in bins]
    heights = [0.6 * count / max(counts) for count in counts]
    axes.stairs(
        [row - 0.4 + height for height in heights], bins + [15.5], baseline=row - 0.4, fill=True, color=BLUE, linewidth=0
    )
    most = statistics.quantiles(delays, n=100)[98]
    text = f"median {statistics.median(delays):.1f} ms, 99 % within {most:.1f} ms"
    axes.text(0.2, row + 0.42, text, va="center", fontsize=8.5)


def draw_loops(traces):
    trace = Trace(traces, "loops")
    intervals = sorted({span.arguments["interval_ms"] for span in trace.select("loop")})
    start = min(span.begin for span in trace.select("loop"))
    figure, (left, right) = plt.subplots(1, 2, figsize=(8, 3.6), gridspec_kw={"width_ratios": [1.4, 1], "wspace": 0.12})
    for row, interval in enumerate(intervals):
        loops = trace.select("loop", f"every {interval} ms")
        bars = [(1e3 * (loop.begin - start), 1e3 * (loop.end - start), row) for loop in loops]
        draw_lanes(left, [bar for bar in bars if bar[0] < 400], BLUE, 12)
        draw_delays(right, row, [1e3 * (later.begin - loop.end) - interval for loop, later in zip(loops, loops[1:])])
    left.set_title("Loop tasks: runs of 1 to 11 ms")
    left.set_yticks(range(len(intervals)), [f"{interval} ms" for interval in intervals])
    left.set_ylabel("interval")
    left.set_xlabel("ms since the first run")
    left.set_xlim(0, 400)
    right.set_title("How late runs start")
    right.set_yticks([])
    right.set_xlabel("ms after the due time")
    right.set_xlim(0, 15)
    right.set_xticks((0, 5, 10, 15))
    for axes in (left, right):
        axes.set_ylim(-0.5, len(intervals) - 0.4)
    return figure


SCENES = {"workers": draw_workers, "burst": draw_burst, "cancel": draw_cancel, "loops": draw_loops}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("traces")
    parser.add_argument("folder")
    arguments = parser.parse_args()
    os.makedirs(arguments.folder, exist_ok=True)
    with plt.rc_context(STYLE):
        for scene, draw in SCENES.items():
            save(draw(arguments.traces), os.path.join(arguments.folder, scene + ".svg"))


if __name__ == "__main__":
    main()
