#!/usr/bin/env python3
"""Prints how much of the product the tests execute. Fails if they execute too little.

    check_coverage.py EXPORT LINES NOT_COVERED

EXPORT       the output of llvm-cov export
LINES        the same with -format lcov
NOT_COVERED  the permitted gaps, one per line ('#' begins a comment), as
             file | kind | text in the source | what is missing | reason

A reason that begins with "by chance:" is for a gap that some runs have.

All functions, lines and branches must be covered, except for those listed; MC/DC in at least 98 % of the conditions.
Prints each unlisted gap in the form of the list, and each listed gap that is covered. Exit status 1 in both cases.
"""
import collections
import json
import os
import sys

LEAST_MCDC = 98.0
BY_CHANCE = "by chance:"
KINDS = ("functions", "lines", "branches", "mcdc")


class Sources:
    """Texts of the source, without line breaks. They identify a place even if lines are added above it."""

    def __init__(self):
        self.lines = {}

    def text(self, path, first_line, first_column, last_line, last_column):
        if path not in self.lines:
            with open(path, encoding="utf-8") as file:
                self.lines[path] = file.read().split("\n")
        lines = self.lines[path][first_line - 1 : last_line]
        lines[-1] = lines[-1][: last_column - 1]
        lines[0] = lines[0][first_column - 1 :]
        return " ".join(" ".join(lines).split())

    def line(self, path, number):
        return self.text(path, number, 1, number, 1000)


class Coverage:
    """The places to cover, by kind, and whether they are covered. Instances of one template count as one place."""

    def __init__(self):
        self.covered = {kind: {} for kind in KINDS}
        self.texts = {}
        self.sources = Sources()

    def add(self, kind, place, text, missing, covered):
        key = place + (missing,)
        self.covered[kind][key] = covered or self.covered[kind].get(key, False)
        self.texts[kind, key] = " | ".join((os.path.relpath(place[0]), kind, text, missing))

    def read_export(self, export):
        paths = {file["filename"] for file in export["files"]}
        for function in export["functions"]:
            path = function["filenames"][0]
            if path not in paths:
                continue
            line, column = function["regions"][0][:2]
            text = self.sources.line(path, line)
            self.add("functions", (path, line, column), text, "never called", function["count"] > 0)
        for file in export["files"]:
            for branch in file["branches"]:
                place = (file["filename"],) + tuple(branch[:4])
                text = self.sources.text(*place)
                self.add("branches", place, text, "never true", branch[4] > 0)
                self.add("branches", place, text, "never false", branch[5] > 0)
            for record in file["mcdc_records"]:
                place = (file["filename"],) + tuple(record[:4])
                text = self.sources.text(*place)
                for number, covered in enumerate(record[-1], 1):
                    self.add("mcdc", place, text, "condition %d" % number, covered)

    def read_lines(self, lines):
        path = None
        for line in lines:
            if line.startswith("SF:"):
                path = line[3:].strip()
            elif line.startswith("DA:"):
                number, count = (int(field) for field in line[3:].split(",")[:2])
                self.add("lines", (path, number), self.sources.line(path, number), "never executed", count > 0)

    def missing(self):
        return collections.Counter(
            self.texts[kind, key] for kind in KINDS for key, covered in self.covered[kind].items() if not covered)


def read_listed(path):
    """Counts the entries: those that no run covers, and those that some runs cover. Exits if one has no reason."""
    listed, by_chance = collections.Counter(), collections.Counter()
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            if not line.strip() or line.startswith("#"):
                continue
            entry, _, reason = line.strip().rpartition(" | ")
            # The text may contain the separator.
            if entry.count(" | ") < 3 or not reason:
                sys.exit("%s:%d: expected file | kind | text | what is missing | reason" % (path, number))
            (by_chance if reason.startswith(BY_CHANCE) else listed)[entry] += 1
    return listed, by_chance


def print_each(title, entries):
    for entry in sorted(entries.elements()):
        print("%s: %s" % (title, entry))


def main(export_path, lines_path, listed_path):
    coverage = Coverage()
    with open(export_path, encoding="utf-8") as file:
        coverage.read_export(json.load(file)["data"][0])
    with open(lines_path, encoding="utf-8") as file:
        coverage.read_lines(file)
    listed, by_chance = read_listed(listed_path)
    missing = coverage.missing() - by_chance

    failed = missing != listed
    for kind in KINDS:
        total = len(coverage.covered[kind])
        covered = sum(coverage.covered[kind].values())
        percent = 100.0 * covered / total if total else 0.0
        print("%-9s %4d of %4d, %6.2f %%" % (kind, covered, total, percent))
        failed |= total == 0 or (kind == "mcdc" and percent < LEAST_MCDC)
    print("listed in %s with a reason: %d" % (os.path.relpath(listed_path), sum((listed + by_chance).values())))
    print_each("NOT COVERED", missing - listed)
    print_each("LISTED BUT COVERED", listed - missing)
    return 1 if failed else 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
