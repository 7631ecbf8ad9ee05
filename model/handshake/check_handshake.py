#!/usr/bin/env python3
"""The handshake of CLS_Task::Running and CLS_Task::Stop under the C++ memory model.

A run stores the status and then reads the validity; Stop stores the validity and then reads the status. The callable
uses what it captured; whoever called Stop destroys that when the task was not executing. No execution may let these two
race: then no callable starts after Stop has returned, and the caller sees all that the last run did.
"""
import pathlib
import re
import sys

from memory_model import INITIAL, exchange, find_executions, load, store

WAITING, RUNNING, IDLE = 1, 3, 0
OPERATIONS = ("Running's store of the status", "Running's read of the validity",
              "Stop's store of the validity", "Stop's read of the status")


def make_handshake(orders):
    stores_status, reads_validity, stores_validity, reads_status = orders
    running = [exchange("status", RUNNING, stores_status), load("mayRun", "validity", reads_validity),
               store("captured", 1, "na", ("mayRun", (1,))), exchange("status", IDLE, stores_status)]
    stop = [exchange("validity", 0, stores_validity), load("found", "status", reads_status),
            store("captured", 2, "na", ("found", (IDLE, WAITING)))]
    return [running, stop]


def find_all(orders):
    return list(find_executions(make_handshake(orders), {"status": WAITING, "validity": 1, "captured": 0}))


def name_source(execution, number):
    source = execution.events[execution.source[number]]
    return "at the beginning" if source.thread == INITIAL else "by " + ("Running", "Stop")[source.thread]


def describe(execution):
    """The execution, a line for each step."""
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
            text = ("calls the callable, which uses what it captured",
                    "returns; what was captured is destroyed")[event.thread]
        lines.append("    %-8s %s" % (("Running", "Stop")[event.thread], text))
    return "\n".join(lines)


def find_weaker_accesses():
    """Where the library gives an access to one of the two words an order of its own."""
    source = pathlib.Path(__file__).resolve().parents[2] / "QuenPlugins/ZelTaskPool/CLS_Task.cpp"
    return re.findall(r"m_(?:iTaskStatus|bValid)\.\w+\([^;]*memory_order[^;]*;", source.read_text())


def report(name, orders):
    executions = find_all(orders)
    bad = [execution for execution in executions if execution.races]
    print("%-58s %3d executions, %2d violate it" % (name, len(executions), len(bad)))
    return bad


def main():
    sc = ("sc",) * 4
    good = not report("All four sequentially consistent", sc)
    weak = report("All four acquire, release or both", ("acq_rel",) * 4)
    for number, operation in enumerate(OPERATIONS):
        orders = sc[:number] + ("acq_rel",) + sc[number + 1:]
        good = bool(report(operation + " alone is weaker", orders)) and good
    if weak:
        # The shortest: a run that begins, and a Stop that reads the status from before it.
        print("One of the violations with acquire and release:")
        print(describe(min(weak, key=lambda execution: execution.registers["found"] != WAITING)))
    weaker = find_weaker_accesses()
    for access in weaker:
        print("The library has a weaker access: " + access, file=sys.stderr)
    return 0 if good and weak and not weaker else 1


if __name__ == "__main__":
    sys.exit(main())
