#!/usr/bin/env python3
"""Checks the models with spin, all states of each. See scripts/models.sh."""
import concurrent.futures
import dataclasses
import pathlib
import re
import shutil
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
FOLDER = ROOT / "build" / "models"
MEGABYTES = 1900
JOBS = 2

STUCK = "invalid end state"
CYCLE = "acceptance cycle"


@dataclasses.dataclass
class Check:
    """One search. Without "refuted" it must find nothing, else an error that pan describes with these words."""
    model: str
    defines: tuple = ()
    eventually: bool = False  # the model's LTL formula, else assertions and end states
    fair: bool = False
    refuted: str = ""

    def name(self):
        kind = "eventually" if self.eventually else "always"
        return " ".join([self.model, kind, *(["fair"] if self.fair else []), *self.defines])


CHECKS = [
    Check("shutdown"),
    Check("loop", ("ONE_TASK",), eventually=True, fair=True),
    Check("shutdown", ("WATCHDOG_SLEEPS", "RUN_MAY_HANG")),
    Check("shutdown", ("WATCHDOG_SLEEPS", "NEVER_EXPIRES")),
    Check("shutdown", ("WATCHDOG_SLEEPS", "NEVER_EXPIRES"), eventually=True),
    Check("loop"),
    Check("loop", ("ONE_LOOP_TASK",)),
    Check("loop", ("ONE_LOOP_TASK",), eventually=True, fair=True),
    Check("stop"),
    Check("stop", eventually=True),
    Check("handover"),
    Check("handover", ("MAX_THREAD=0",)),
    Check("handover", ("NEVER_EXPIRES",)),
    Check("handover", ("NEVER_EXPIRES",), eventually=True),
    Check("stop", ("BROKEN_VALIDITY_BEFORE_STATUS",), refuted="!(cancelled[t])"),
    Check("stop", ("BROKEN_NOT_INVALIDATED_FIRST",), refuted="!(mustNotRun[t])"),
    Check("handover", ("BROKEN_IDLE_BEFORE_UNBOUND",), refuted="(bound[(_pid-1)]==3)"),
    Check("handover", ("MAX_THREAD=0", "BROKEN_LIMIT_IGNORED"), refuted="((known[0]+known[1])<=(0+1))"),
    Check("handover", ("NEVER_EXPIRES", "BROKEN_END_NOTIFIED_WITHOUT_LOCK"), refuted=STUCK),
    Check("handover", ("NEVER_EXPIRES", "BROKEN_JOB_FORGOTTEN"), eventually=True, refuted=CYCLE),
    Check("loop", ("BROKEN_IDLE_BEFORE_TIME",), refuted="(age[t]>=interval[t])"),
    Check("loop", ("BROKEN_QUEUED_BEFORE_WAITING",), refuted="!(cancelled[t])"),
    Check("loop", ("ONE_LOOP_TASK", "BROKEN_INTERVAL_IGNORED"), refuted="(age[t]>=interval[t])"),
    Check("loop", ("ONE_LOOP_TASK", "BROKEN_COUNT_BEFORE_INTERVAL"), eventually=True, fair=True, refuted=CYCLE),
    Check("loop", ("ONE_TASK", "BROKEN_VALIDITY_IGNORED"), eventually=True, fair=True, refuted=CYCLE),
    Check("shutdown", ("BROKEN_GATE_IGNORED",), refuted="!(poolFreed)"),
    Check("shutdown", ("BROKEN_WORKER_NOT_JOINED",), refuted="alive[(_pid-1)]"),
    Check("shutdown", ("WATCHDOG_SLEEPS", "RUN_MAY_HANG", "BROKEN_CLOSE_WAITS_FOR_EVER"), refuted=STUCK),
    Check("shutdown", ("WATCHDOG_SLEEPS", "NEVER_EXPIRES", "BROKEN_FLAG_OUTSIDE_LOCK"), refuted=STUCK),
]


def find_missing_functions():
    """The functions that steps name, in a comment that holds nothing else, and that the sources do not define."""
    sources = "\n".join(path.read_text() for path in sorted((ROOT / "QuenPlugins/ZelTaskPool").glob("*.cpp")))
    missing, names = [], set()
    for path in sorted(HERE.rglob("*.pml")):
        found = re.findall(r"/\* ([\w:~]+) \*/", path.read_text())
        names.update(found)
        missing += [(path.relative_to(ROOT), name) for name in found
                    if not re.search(r"^(\w.*[ *&])?" + re.escape(name) + r"\(", sources, re.MULTILINE)]
    print("Steps name %d functions of the library" % len(names))
    return missing if names else [(HERE, "nothing")]


def run(command, folder):
    return subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)


def build(check, folder):
    """Makes the program that searches the model."""
    defines = ["-D" + define for define in check.defines]
    kind = ["-DNFAIR=3"] if check.fair else [] if check.eventually else ["-DSAFETY", "-DNOCLAIM"]
    for command in (["spin", *defines, "-a", str(HERE / (check.model + ".pml"))],
                    ["gcc", "-O2", "-w", "-DMEMLIM=%d" % MEGABYTES, *kind, "-o", "pan", "pan.c"]):
        made = run(command, folder)
        if made.returncode != 0:
            raise RuntimeError(made.stdout)


def find_error(text):
    """What pan says that it found. Its other lines name kinds of errors, too: those that it looks for."""
    found = re.search(r"^pan:1: (.*) \(at depth \d+\)$", text, re.MULTILINE)
    return found[1] if found else ""


def judge(check, text):
    """What is wrong with the search, or nothing."""
    errors = re.search(r"errors: (\d+)", text)
    if check.refuted:
        return "" if errors and errors[1] != "0" and check.refuted in find_error(text) else "is not refuted"
    if errors is None or errors[1] != "0":
        return "does not hold"
    if "not completed" in text or "max search depth" in text or "MEMLIM" in text:
        return "was not searched to the end"
    return ""


def search(check):
    folder = FOLDER / check.name().replace(" ", "-")
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    begun = time.monotonic()
    build(check, folder)
    options = ["-a", *(["-f"] if check.fair else [])] if check.eventually else []
    text = run(["./pan", "-m100000", *options], folder).stdout
    (folder / "pan.log").write_text(text)
    return text, time.monotonic() - begun


def report(check, text, seconds):
    states = re.search(r"(\d+) states, stored", text)
    memory = re.search(r"([\d.]+)\s+total actual memory usage", text)
    wrong = judge(check, text)
    verdict = wrong.upper() or ("refuted: " + find_error(text) if check.refuted else "holds")
    print("%-65s %10s states %5.0f MB %4.0f s  %s" % (
        check.name(), "{:,}".format(int(states[1])) if states else "?",
        float(memory[1]) if memory else 0, seconds, verdict), flush=True)
    return not wrong


def main():
    missing = find_missing_functions()
    for path, name in missing:
        print("%s names %s, which is gone" % (path, name), file=sys.stderr)
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        searches = [(check, pool.submit(search, check)) for check in CHECKS]
        good = [report(check, *found.result()) for check, found in searches]
    if missing or not all(good):
        print("What pan says is in %s; \"spin -k FILE.trail -p -g FILE\" prints a trail" % FOLDER, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
