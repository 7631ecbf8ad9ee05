#!/usr/bin/env python3
"""The era of CLS_Task's registry under the C++ memory model.

After a host has changed the registry, a thread begins a new era. The thread then stores a word that tells the others:
the noted size, or the announcement of a change by the library. A thread that sees the new value of the word must see
the new era. Otherwise, it would trust a reference that is out of date. The check finds the accesses to both words in
the library's source.
"""
import pathlib
import sys

from memory_model import exchange, find_executions, load, store

OLD_ERA, NEW_ERA, OLD_WORD, NEW_WORD = 1, 2, 0, 1
SOURCE = pathlib.Path(__file__).resolve().parents[3] / "QuenPlugins/ZelTaskPool/CLS_Task.cpp"
ACCESSES = {
    "m_uiSize": ("m_uiSize.load(std::memory_order_acquire)",
                 "m_uiSize.store(m_mapTasks.size(), std::memory_order_release)"),
    "m_bChanging": ("m_bChanging.load(std::memory_order_acquire)",
                    "m_bChanging.store(true, std::memory_order_release)",
                    "m_bChanging.store(false, std::memory_order_relaxed)"),
}


def count_mistakes(order):
    """The executions in which the second thread sees the new word and the old era."""
    first = [exchange("era", NEW_ERA, "rlx"), store("word", NEW_WORD, order)]
    second = [load("word", "word", order), load("era", "era", "rlx", ("word", (NEW_WORD,)))]
    executions = list(find_executions([first, second], {"era": OLD_ERA, "word": OLD_WORD}))
    mistakes = sum(each.registers.get("era") == OLD_ERA for each in executions)
    print("The word is %-24s %3d executions, %2d violations" % (order, len(executions), mistakes))
    return mistakes


def find_wrong_accesses(source):
    """The expected accesses that the source lacks, and its unexpected ones."""
    for word, accesses in ACCESSES.items():
        yield from (access for access in accesses if source.count(access) != 1)
        if source.count(word + ".") != len(accesses):
            yield "another access to " + word


def main():
    good = count_mistakes("acq_rel") == 0 and count_mistakes("rlx") > 0
    wrong = list(find_wrong_accesses(SOURCE.read_text()))
    for access in wrong:
        print("CLS_Task.cpp: not found exactly once, or unexpected: " + access, file=sys.stderr)
    return 0 if good and not wrong else 1


if __name__ == "__main__":
    sys.exit(main())
