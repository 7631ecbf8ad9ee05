#!/usr/bin/env python3
"""The era of CLS_Task's registry under the C++ memory model.

A host has changed the registry. Two threads then hold its lock together, as readers. The first one begins a new era and
notes the new size. If the second one sees that size, it must see the new era, or it would trust a reference that is out
of date. The size is compared and noted in one place each; the check finds both in the library's source.
"""
import pathlib
import sys

from memory_model import exchange, find_executions, load, store

OLD_ERA, NEW_ERA, OLD_SIZE, NEW_SIZE = 1, 2, 0, 1
SOURCE = pathlib.Path(__file__).resolve().parents[3] / "QuenPlugins/ZelTaskPool/CLS_Task.cpp"
ACCESSES = ("m_uiSize.load(std::memory_order_acquire)",
            "m_uiSize.store(m_mapTasks.size(), std::memory_order_release)")


def count_mistakes(order):
    """The executions in which the second reader sees the new size and the old era."""
    first = [exchange("era", NEW_ERA, "rlx"), store("size", NEW_SIZE, order)]
    second = [load("size", "size", order), load("era", "era", "rlx", ("size", (NEW_SIZE,)))]
    executions = list(find_executions([first, second], {"era": OLD_ERA, "size": OLD_SIZE}))
    mistakes = sum(each.registers.get("era") == OLD_ERA for each in executions)
    print("The size is %-24s %3d executions, %2d violations" % (order, len(executions), mistakes))
    return mistakes


def main():
    good = count_mistakes("acq_rel") == 0 and count_mistakes("rlx") > 0
    source = SOURCE.read_text()
    wrong = [access for access in ACCESSES if source.count(access) != 1]
    if source.count("m_uiSize.") != len(ACCESSES):
        wrong.append("another access to m_uiSize")
    for access in wrong:
        print("CLS_Task.cpp: not once, or not expected: " + access, file=sys.stderr)
    return 0 if good and not wrong else 1


if __name__ == "__main__":
    sys.exit(main())
