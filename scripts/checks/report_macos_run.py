#!/usr/bin/env python3
"""Prints how many tests ran as Mach-O programs, and which were skipped and why.

    scripts/checks/report_macos_run.py RESULTS        ctest's JUnit file
"""

import re
import sys
import xml.etree.ElementTree


def reason_of(case):
    """The reason that the test printed when it skipped itself, otherwise the status from ctest."""
    said = re.search(r": Skipped\n(.+)", case.findtext("system-out") or "")
    return said.group(1) if said else case.get("status")


def main():
    cases = xml.etree.ElementTree.parse(sys.argv[1]).getroot().findall("testcase")
    skipped = [case for case in cases if case.find("skipped") is not None or case.get("status") == "disabled"]
    print(f"Run as Mach-O programs: {len(cases) - len(skipped)} tests")
    for case in skipped:
        print(f"Skipped: {case.get('name')}: {reason_of(case)}")


main()
