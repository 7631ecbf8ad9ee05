#!/usr/bin/env python3
"""The handshake of CLS_Task::Running and CLS_Task::Stop under the C++ memory model.

A run stores the status and then reads the validity. Stop stores the validity and then reads the status. The callable
uses its captures. The caller of Stop destroys them if the task was not executing. These two uses must not race in any
execution. Then no callable starts after Stop has returned, and the caller sees everything that the last run did.

Stop polls again while the task is executing. The check includes a second poll; further polls are like it. The task may
be requeued between two runs. The requeue is one more exchange of the status, which continues the release sequence of
the run's end. So a thread that reads it sees as much as a thread that reads IDLE.
"""
import pathlib
import re
import sys

from memory_model import INITIAL, exchange, find_executions, load, store

WAITING, RUNNING, IDLE = 1, 3, 0
OPERATIONS = ("Running's store of RUNNING", "Running's read of the validity", "Running's store of IDLE",
              "Stop's store of the validity", "Stop's read of the status")
STORES_IDLE = 2
LEAST_EXECUTIONS = 5

SOURCES = pathlib.Path(__file__).resolve().parents[3] / "QuenPlugins/ZelTaskPool"
WORDS = r"\bm_(?:iTaskStatus|bValid)\b"
# All accesses of these functions to the two words, in this order.
ACCESSES = {
    "explicit CLS_Run(": ["m_clsTask.m_iTaskStatus.exchange(TASK_STATUS_RUNNING);"],
    "~CLS_Run(": ["m_clsTask.m_iTaskStatus.exchange(TASK_STATUS_IDLE);"],
    "bool CLS_Task::Running(": [],
    "void CLS_Task::InvokeCallable(": ["if (m_bValid && m_funTask)"],
    "bool CLS_Task::StopUntil(": ["m_bValid.exchange(false);", "if (m_iTaskStatus < STATUS_EXECUTING)"],
}


def make_handshake(orders, looks):
    stores_running, reads_validity, stores_idle, stores_validity, reads_status = orders
    running = [exchange("status", RUNNING, stores_running), load("mayRun", "validity", reads_validity),
               store("captured", 1, "na", ("mayRun", (1,))), exchange("status", IDLE, stores_idle)]
    stop = [exchange("validity", 0, stores_validity), load("found", "status", reads_status),
            store("captured", 2, "na", ("found", (IDLE, WAITING)))]
    if looks == 2:
        stop += [load("found again", "status", reads_status, ("found", (RUNNING,))),
                 store("captured", 2, "na", ("found again", (IDLE, WAITING)))]
    return [running, stop]


def find_all(orders, looks):
    return list(find_executions(make_handshake(orders, looks), {"status": WAITING, "validity": 1, "captured": 0}))


def name_source(execution, number):
    source = execution.events[execution.source[number]]
    return "at the beginning" if source.thread == INITIAL else "by " + ("Running", "Stop")[source.thread]


def describe(execution):
    """The execution, one line per step."""
    names = {"status": {IDLE: "IDLE", WAITING: "WAITING", RUNNING: "RUNNING"}, "validity": {0: "false", 1: "true"}}
    lines = []
    for number, event in enumerate(execution.events):
        if event.thread == INITIAL:
            continue
        step, values = event.step, names.get(event.step.place, {})
        if step.kind == "U":
            text = "stores %s = %s" % (step.place, values[step.value])
        elif step.kind == "R":
            text = "reads %s = %s, stored %s" % (step.place, values[event.read], name_source(execution, number))
        else:
            text = ("calls the callable, which uses its captures",
                    "returns; the captures are destroyed")[event.thread]
        lines.append("    %-8s %s" % (("Running", "Stop")[event.thread], text))
    return "\n".join(lines)


def find_weaker_accesses():
    """Statements that access one of the two words with an explicit memory order."""
    sources = "".join((SOURCES / name).read_text() for name in ("CLS_Task.h", "CLS_Task.cpp"))
    return [" ".join(statement.split()) for statement in re.split(r"[;{}]", sources)
            if re.search(WORDS, statement) and "memory_order" in statement]


def find_other_accesses():
    """Functions whose accesses to the two words differ from the handshake here."""
    source = (SOURCES / "CLS_Task.cpp").read_text()
    wrong = []
    for function, expected in ACCESSES.items():
        body = re.search(r"^( *)" + re.escape(function) + r"[^;]*\n\1\{\n(.*?)^\1\}$", source, re.M | re.S)
        lines = [line.strip() for line in body[2].splitlines() if re.search(WORDS, line)] if body else None
        if lines != expected:
            wrong.append("%s...) has %s instead of %s" % (function, lines, expected))
    return wrong


def report(name, orders, looks=1):
    executions = find_all(orders, looks)
    if len(executions) < LEAST_EXECUTIONS:
        sys.exit("%s: only %d executions, expected at least %d" % (name, len(executions), LEAST_EXECUTIONS))
    bad = [execution for execution in executions if execution.races]
    print("%-58s %3d executions, %2d violations" % (name, len(executions), len(bad)))
    return bad


def weaken(number, order):
    return tuple(order if n == number else "sc" for n in range(len(OPERATIONS)))


def main():
    strong, weaker = ("sc",) * len(OPERATIONS), ("acq_rel",) * len(OPERATIONS)
    good = not report("All sequentially consistent", strong)
    good = not report("All sequentially consistent, and Stop polls twice", strong, looks=2) and good
    weak = report("All acquire, release or both", weaker)
    good = bool(report("All acquire, release or both, and Stop polls twice", weaker, looks=2)) and good
    for number, operation in enumerate(OPERATIONS):
        violated = bool(report(operation + " alone is weaker", weaken(number, "acq_rel")))
        good = violated == (number != STORES_IDLE) and good
    good = bool(report(OPERATIONS[STORES_IDLE] + " alone is relaxed", weaken(STORES_IDLE, "rlx"))) and good
    if weak:
        # The shortest violation: a run begins, and Stop reads the status from before the run.
        print("One of the violations with acquire and release:")
        print(describe(min(weak, key=lambda execution: execution.registers["found"] != WAITING)))
    wrong = ["a weaker access: " + access for access in find_weaker_accesses()] + find_other_accesses()
    for access in wrong:
        print("CLS_Task: " + access, file=sys.stderr)
    return 0 if good and weak and not wrong else 1


if __name__ == "__main__":
    sys.exit(main())
