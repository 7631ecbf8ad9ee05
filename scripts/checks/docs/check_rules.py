#!/usr/bin/env python3
"""Checks that each rule of docs/limits.md has a test, and that each heading that a test pins exists.

A rule is a heading of the third level. A test pins it with a comment right before it:

    // Pins docs/limits.md, "A task that removes itself".
    TEST(Suite, Test)
"""
import re
import sys

import pages

RULES = "docs/limits.md"
PIN = re.compile(r'^// Pins ([\w/.-]+\.md), "([^"]+)"\.$')
PLACES = re.compile(r"(?:tests|verify)/.*\.(?:cpp|h)")


def read_pins(path):
    """Returns the line, page and heading of each pin, and whether a test follows."""
    with open(path, encoding="utf-8") as file:
        lines = file.read().splitlines()
    for number, line in enumerate(lines):
        pin = PIN.match(line)
        if pin:
            code = next((text for text in lines[number + 1:] if not text.startswith("//")), "")
            yield number + 1, pin[1], pin[2], code.startswith("TEST")
        elif line.lstrip().startswith("// Pins "):
            yield number + 1, "", line.strip(), False


def main():
    headings = {page.path: list(page.headings()) for page in pages.pages()}
    rules = {text for level, text in headings[RULES] if level == 3}
    pinned, errors = set(), []
    for path in filter(PLACES.fullmatch, pages.tracked_files()):
        for line, page, heading, before_test in read_pins(path):
            place = "%s:%d: " % (path, line)
            if not page:
                errors.append(place + "not in the form of a pin: " + heading)
            elif heading not in {text for _, text in headings.get(page, ())}:
                errors.append(place + 'no heading "%s" in %s' % (heading, page))
            elif not before_test:
                errors.append(place + "no test follows")
            elif page == RULES:
                pinned.add(heading)
    errors += ['%s: no test pins "%s"' % (RULES, rule) for rule in sorted(rules - pinned)]
    print("%d rules, %d of them with a test" % (len(rules), len(rules & pinned)))
    print("\n".join(errors), end="\n" if errors else "", file=sys.stderr)
    return 1 if errors or not rules else 0


if __name__ == "__main__":
    sys.exit(main())
