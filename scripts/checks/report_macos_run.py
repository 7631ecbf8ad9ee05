#!/usr/bin/env python3
"""Says how many tests ran as Mach-O programs, and which ones left themselves out and why.

    scripts/checks/report_macos_run.py RESULTS        the JUnit file that ctest wrote
"""

import re
import sys
import xml.etree.ElementTree


def reason_of(case):
    """What the test said when it skipped itself, or what ctest says."""
    said = re.search(r": Skipped\n(.+)", case.findtext("system-out") or "")
    return said.group(1) if said else case.get("status")


def main():
    cases = xml.etree.ElementTree.parse(sys.argv[1]).getroot().findall("testcase")
    skipped = [case for case in cases if case.find("skipped") is not None or case.get("status") == "disabled"]
    print(f"Run as Mach-O programs: {len(cases) - len(skipped)} tests")
    for case in skipped:
        print(f"Left out: {case.get('name')}: {reason_of(case)}")


main()
