#!/usr/bin/env python3
"""Checks the models with spin, all states of each. See scripts/checks/models.sh."""
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
    """One search. Without "refuted" it must find nothing, else an error that pan describes with these words."""
    model: str
    defines: tuple = ()
    eventually: bool = False  # the model's LTL formula, else assertions and end states
    fair: bool = False
    refuted: str = ""

    def name(self):
        kind = "eventually" if self.eventually else "always"
        return " ".join([self.model, kind, *(["fair"] if self.fair else []), *self.defines])


# The longest search first. Where a mistake is looked for, the same search without it is here, too.
CHECKS = [
    Check("shutdown"),
    Check("shutdown", ("WATCHDOG_SLEEPS", "RUN_MAY_HANG")),
    Check("shutdown", ("WATCHDOG_SLEEPS", "NEVER_EXPIRES")),
    Check("shutdown", ("WATCHDOG_SLEEPS", "NEVER_EXPIRES"), eventually=True),
    Check("loop"),
    Check("loop", ("ONE_LOOP_TASK",)),
    Check("loop", ("ONE_LOOP_TASK",), eventually=True, fair=True),
    Check("loop", ("ONE_TASK",), eventually=True, fair=True),
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
    speed = "-O0" if check.refuted else "-O2"  # a mistake is found sooner than the optimiser is done
    kind = ["-DNFAIR=3"] if check.fair else [] if check.eventually else ["-DSAFETY", "-DNOCLAIM"]
    for command in (["spin", *defines, "-a", str(HERE / (check.model + ".pml"))],
                    ["gcc", speed, "-w", "-DMEMLIM=%d" % MEGABYTES, *kind, "-o", "pan", "pan.c"]):
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


def count_states(text):
    states = re.search(r"(\d+) states, stored", text)
    return int(states[1]) if states else 0


def report(check, text, seconds):
    memory = re.search(r"([\d.]+)\s+total actual memory usage", text)
    wrong = judge(check, text)
    verdict = wrong.upper() or ("refuted: " + find_error(text) if check.refuted else "holds")
    print("%-75s %9s states %5.0f MB %4.0f s  %s" % (
        check.name(), "{:,}".format(count_states(text)),
        float(memory[1]) if memory else 0, seconds, verdict), flush=True)
    return not wrong


def find_wrong_figures(texts):
    """What the pages should say, and do not: each search and its states, each mistake, and the states of each model."""
    rows, sums = [], collections.Counter()
    for check, text in zip(CHECKS, texts):
        rows.append("| `%s` | " % check.name() + ("" if check.refuted else "{:,} |".format(count_states(text))))
        sums[check.model] += 0 if check.refuted else count_states(text)
    expected = {"verify/models/README.md": rows,
                "docs/reliability.md": ["%s {:,}".format(states) % model for model, states in sums.items()]}
    return [(page, row) for page, found in expected.items() for row in found if row not in (ROOT / page).read_text()]


def find_unproved_mistakes(texts):
    """Variants of which nothing shows that their mistake is what is refuted: the same search without it must be there,
    find nothing, and not pass for refuted."""
    found = {check.name(): text for check, text in zip(CHECKS, texts)}
    unproved = []
    for check in filter(lambda check: check.refuted, CHECKS):
        defines = tuple(define for define in check.defines if not define.startswith("BROKEN_"))
        without = found.get(dataclasses.replace(check, defines=defines).name(), "")
        if "errors: 0" not in without or not judge(check, without):
            unproved.append(check.name())
    return unproved


def main():
    wrong = ["%s names %s, which is gone" % item for item in find_missing_functions()]
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        searches = [(check, pool.submit(search, check)) for check in CHECKS]
        good = [report(check, *found.result()) for check, found in searches]
    texts = [found.result()[0] for _, found in searches]
    wrong += ["%s lacks: %s" % item for item in find_wrong_figures(texts)]
    wrong += [name + " would be refuted without its mistake, or is not searched without it"
              for name in find_unproved_mistakes(texts)]
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    print("%d searches, %d mistakes, %.0f s of CPU" % (
        sum(not check.refuted for check in CHECKS), sum(bool(check.refuted) for check in CHECKS),
        used.ru_utime + used.ru_stime))
    for line in wrong:
        print(line, file=sys.stderr)
    if not all(good):
        print("What pan says is in %s; \"spin -k FILE.trail -p -g FILE\" prints a trail" % FOLDER, file=sys.stderr)
    return 1 if wrong or not all(good) else 0


if __name__ == "__main__":
    sys.exit(main())
