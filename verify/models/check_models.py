#!/usr/bin/env python3
"""Checks all states of each model with spin. See scripts/checks/models.sh."""
import collections
import concurrent.futures
import dataclasses
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
FOLDER = ROOT / "build" / "models"
MEGABYTES = 1900
JOBS = 2

STUCK = "invalid end state"
CYCLE = "acceptance cycle"


@dataclasses.dataclass
class Check:
    """One search. It must find nothing in at least this number of states. A variant with a mistake must be refuted with
    an error that contains these words."""
    model: str
    defines: tuple = ()
    eventually: bool = False  # checks the model's LTL formula instead of assertions and end states
    fair: bool = False
    least: int = 0
    mistake: str = ""
    refuted: str = ""

    def name(self):
        kind = "eventually" if self.eventually else "always"
        return " ".join([self.model, kind, *(["fair"] if self.fair else []), *self.defines])


# The longest search comes first. Each variant with a mistake has a twin here without it.
CHECKS = [
    Check("shutdown", least=7_800_000),
    Check("shutdown", ("WATCHDOG_SLEEPS", "RUN_MAY_HANG"), least=3_900_000),
    Check("shutdown", ("WATCHDOG_SLEEPS", "NEVER_EXPIRES"), least=3_100_000),
    Check("shutdown", ("WATCHDOG_SLEEPS", "NEVER_EXPIRES"), eventually=True, least=3_100_000),
    Check("loop", least=4_700_000),
    Check("loop", ("ONE_LOOP_TASK",), least=240_000),
    Check("loop", ("ONE_LOOP_TASK",), eventually=True, fair=True, least=780_000),
    Check("loop", ("ONE_TASK",), eventually=True, fair=True, least=200_000),
    Check("stop", least=3_500_000),
    Check("stop", eventually=True, least=7_900_000),
    Check("registry", least=80_000),
    Check("handover", least=640_000),
    Check("handover", ("MAX_THREAD=0",), least=150_000),
    Check("handover", ("NEVER_EXPIRES",), least=640_000),
    Check("handover", ("NEVER_EXPIRES",), eventually=True, least=1_600_000),
    Check("stop", ("BROKEN_VALIDITY_BEFORE_STATUS",), refuted="!(cancelled[t])",
          mistake="a run reads the validity before it stores the status"),
    Check("stop", ("BROKEN_NOT_INVALIDATED_FIRST",), refuted="!(mustNotRun[t])",
          mistake="the removal of an owner stops its tasks one by one, without invalidating all of them first"),
    Check("handover", ("BROKEN_IDLE_BEFORE_UNBOUND",), refuted="(bound[(_pid-1)]==3)",
          mistake="a worker goes onto the idle list before its task is unbound"),
    Check("handover", ("MAX_THREAD=0", "BROKEN_LIMIT_IGNORED"), refuted="((known[0]+known[1])<=(0+1))",
          mistake="a worker is created regardless of the limit"),
    Check("handover", ("NEVER_EXPIRES", "BROKEN_END_NOTIFIED_WITHOUT_LOCK"), refuted=STUCK,
          mistake="the end of a worker is notified without its lock"),
    Check("handover", ("NEVER_EXPIRES", "BROKEN_JOB_FORGOTTEN"), eventually=True, refuted=CYCLE,
          mistake="a worker that fails to get onto the idle list does not try again"),
    Check("registry", ("BROKEN_STALE_REFERENCE",), refuted="(found==entry)",
          mistake="a kept reference is trusted while the record exists"),
    Check("registry", ("BROKEN_DELETION_KEEPS_ERA",), refuted="(found==entry)",
          mistake="a record that is deleted or replaced keeps its era"),
    Check("registry", ("BROKEN_LOOK_UP_KEEPS_ERA",), refuted="(found==entry)",
          mistake="a record that is handed out keeps its era"),
    Check("registry", ("BROKEN_SIZE_IGNORED",), refuted="(found==entry)",
          mistake="the size of the registry is not compared"),
    Check("registry", ("BROKEN_SIZE_NOTED_FIRST",), refuted="(found==entry)",
          mistake="the new size is noted before the new era begins"),
    Check("registry", ("BROKEN_ANNOUNCED_BEFORE_ERA",), refuted="(found==kept)",
          mistake="a change by the library is announced before the library knows the era"),
    Check("registry", ("BROKEN_END_NOT_ANNOUNCED",), refuted="(found==kept)",
          mistake="the end of a change by the library is not announced"),
    Check("loop", ("BROKEN_IDLE_BEFORE_TIME",), refuted="(age[t]>=interval[t])",
          mistake="the status becomes idle before the time of the run is stored"),
    Check("loop", ("BROKEN_QUEUED_BEFORE_WAITING",), refuted="!(cancelled[t])",
          mistake="the id is queued before the status becomes waiting"),
    Check("loop", ("ONE_LOOP_TASK", "BROKEN_INTERVAL_IGNORED"), refuted="(age[t]>=interval[t])",
          mistake="the scheduler treats each interval as the shortest"),
    Check("loop", ("ONE_LOOP_TASK", "BROKEN_COUNT_BEFORE_INTERVAL"), eventually=True, fair=True, refuted=CYCLE,
          mistake="the change of an interval is counted before the interval is stored"),
    Check("loop", ("ONE_TASK", "BROKEN_VALIDITY_IGNORED"), eventually=True, fair=True, refuted=CYCLE,
          mistake="the scheduler ignores the validity"),
    Check("shutdown", ("BROKEN_GATE_IGNORED",), refuted="!(poolFreed)",
          mistake="an abandoned worker uses the pool as if it were not abandoned"),
    Check("shutdown", ("BROKEN_ABANDONED_IN_TWO_STEPS",), refuted="!(poolFreed)",
          mistake="the gate checks the run and abandons the worker in two steps"),
    Check("shutdown", ("WATCHDOG_SLEEPS", "NEVER_EXPIRES", "BROKEN_GATE_NOTIFIED_WITHOUT_LOCK"), refuted=STUCK,
          mistake="the end of a run is notified without the gate's lock"),
    Check("shutdown", ("BROKEN_WORKER_NOT_JOINED",), refuted="alive[(_pid-1)]",
          mistake="a worker is freed without waiting for its thread"),
    Check("shutdown", ("WATCHDOG_SLEEPS", "RUN_MAY_HANG", "BROKEN_CLOSE_WAITS_FOR_EVER"), refuted=STUCK,
          mistake="the shutdown waits for a run without a bound"),
    Check("shutdown", ("WATCHDOG_SLEEPS", "NEVER_EXPIRES", "BROKEN_FLAG_OUTSIDE_LOCK"), refuted=STUCK,
          mistake="the pool's run flag is cleared outside the queue's lock"),
]


def find_missing_functions():
    """The functions that comments at the models' steps name, but the sources do not define."""
    sources = "\n".join(path.read_text() for path in sorted((ROOT / "QuenPlugins/ZelTaskPool").glob("*.cpp")))
    missing, names = [], set()
    for path in sorted(HERE.rglob("*.pml")):
        found = re.findall(r"/\* ([\w:~]+) \*/", path.read_text())
        names.update(found)
        missing += [(path.relative_to(ROOT), name) for name in found
                    if not re.search(r"^(\w.*[ *&])?" + re.escape(name) + r"\(", sources, re.MULTILINE)]
    print("The models name %d functions of the library" % len(names))
    return missing if names else [(HERE, "nothing")]


def run(command, folder):
    return subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)


def build(check, folder):
    """Builds the program that searches the model."""
    defines = ["-D" + define for define in check.defines]
    speed = "-O0" if check.refuted else "-O2"  # pan finds a mistake sooner than the optimiser finishes
    kind = ["-DNFAIR=3"] if check.fair else [] if check.eventually else ["-DSAFETY", "-DNOCLAIM"]
    for command in (["spin", *defines, "-a", str(HERE / (check.model + ".pml"))],
                    ["gcc", speed, "-w", "-DMEMLIM=%d" % MEGABYTES, *kind, "-o", "pan", "pan.c"]):
        made = run(command, folder)
        if made.returncode != 0:
            raise RuntimeError(made.stdout)


def find_error(text):
    """The error that pan found. Other lines also name kinds of errors, but only those that it searches for."""
    found = re.search(r"^pan:1: (.*) \(at depth \d+\)$", text, re.MULTILINE)
    return found[1] if found else ""


def judge(check, text):
    """Why the search fails, or an empty text."""
    errors = re.search(r"errors: (\d+)", text)
    if check.refuted:
        return "" if errors and errors[1] != "0" and check.refuted in find_error(text) else "is not refuted"
    if errors is None or errors[1] != "0":
        return "does not hold"
    if "not completed" in text or "max search depth" in text or "MEMLIM" in text:
        return "was not searched to the end"
    if count_states(text) < check.least:
        return "visits fewer than {:,} states".format(check.least)
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


def count_states(text):
    states = re.search(r"(\d+) states, stored", text)
    return int(states[1]) if states else 0


def report(check, text, seconds):
    memory = re.search(r"([\d.]+)\s+total actual memory usage", text)
    wrong = judge(check, text)
    verdict = wrong.upper() or ("refuted: " + find_error(text) if check.refuted else "holds")
    mistake = "\n    mistake: " + check.mistake if check.refuted else ""
    print("%-75s %9s states %5.0f MB %4.0f s  %s%s" % (
        check.name(), "{:,}".format(count_states(text)),
        float(memory[1]) if memory else 0, seconds, verdict, mistake), flush=True)
    return not wrong


def sum_states(texts):
    """The states of each model, over all searches without a mistake."""
    sums = collections.Counter()
    for check, text in zip(CHECKS, texts):
        if not check.refuted:
            sums[check.model] += count_states(text)
    return ", ".join("%s {:,}".format(states) % model for model, states in sorted(sums.items()))


def find_unproved_mistakes(texts):
    """Variants without a twin. A twin is the same search without the mistake. It shows that the mistake causes the
    error. It must be in the list, find nothing, and not count as refuted."""
    found = {check.name(): text for check, text in zip(CHECKS, texts)}
    unproved = []
    for check in filter(lambda check: check.refuted, CHECKS):
        defines = tuple(define for define in check.defines if not define.startswith("BROKEN_"))
        without = found.get(dataclasses.replace(check, defines=defines).name(), "")
        if "errors: 0" not in without or not judge(check, without):
            unproved.append(check.name())
    return unproved


def main():
    wrong = ["%s names %s, which the library does not have" % item for item in find_missing_functions()]
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        searches = [(check, pool.submit(search, check)) for check in CHECKS]
        good = [report(check, *found.result()) for check, found in searches]
    texts = [found.result()[0] for _, found in searches]
    wrong += [name + " fails without its mistake, too, or has no search without it"
              for name in find_unproved_mistakes(texts)]
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    for line in wrong:
        print(line, file=sys.stderr)
    if not all(good):
        print("pan's output is in %s; \"spin -k FILE.trail -p -g FILE\" prints a trail" % FOLDER, file=sys.stderr)
    print("%d searches, states: %s; %d mistakes refuted; %.0f s of CPU" % (
        sum(not check.refuted for check in CHECKS), sum_states(texts),
        sum(bool(check.refuted) and passed for check, passed in zip(CHECKS, good)),
        used.ru_utime + used.ru_stime))
    return 1 if wrong or not all(good) else 0


if __name__ == "__main__":
    sys.exit(main())
