#!/usr/bin/env python3
"""Writes the tables and pictures that show measurements, from the stored results.

    publish.py            writes bench/RESULTS.md and docs/pictures from bench/results.json, and the tables of
                          docs/performance.md from bench/comparison.json and bench/costs.json
    publish.py --check    fails if a table or picture does not match its results; needs no matplotlib
"""
import hashlib
import os
import sys

import data
import page
import tables

BENCH = os.path.dirname(os.path.abspath(__file__))
PICTURES = os.path.join(BENCH, "..", "docs", "pictures")
# The picture of each workload.
PICTURE_NAMES = {"W1": "blocking-tasks.svg", "W3": "start-delay.svg", "W4": "empty-tasks.svg"}


def read_text(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def name_source(path):
    """Returns the note in the pictures about their source."""
    digest = hashlib.sha256(read_text(path).encode()).hexdigest()
    return f"Drawn from results.json, SHA-256 {digest[:16]}"


def publish(folder=BENCH, pictures=PICTURES):
    """Writes the table to the folder of results.json, and the pictures to their folder."""
    path = os.path.join(folder, "results.json")
    results = data.read(path)
    with open(os.path.join(folder, "RESULTS.md"), "w", encoding="utf-8") as file:
        file.write(tables.write(results))
    try:
        import figures
    except ImportError as error:
        print(f"left out: pictures ({error}; the package is python3-matplotlib)", file=sys.stderr)
        return
    paths = {workload: os.path.join(pictures, name) for workload, name in PICTURE_NAMES.items()}
    figures.draw(results, paths, name_source(path))


def find_outdated():
    """Returns the published files that do not match their results."""
    path = os.path.join(BENCH, "results.json")
    outdated = []
    if read_text(os.path.join(BENCH, "RESULTS.md")) != tables.write(data.read(path)):
        outdated.append("bench/RESULTS.md")
    for name in PICTURE_NAMES.values():
        if name_source(path) not in read_text(os.path.join(PICTURES, name)):
            outdated.append("docs/pictures/" + name)
    if not page.is_current():
        outdated.append("docs/performance.md")
    return outdated


def main():
    if sys.argv[1:] not in ([], ["--check"]):
        sys.exit(__doc__.strip())
    if not sys.argv[1:]:
        publish()
        page.publish()
        return 0
    outdated = find_outdated()
    for path in outdated:
        print(f"{path} does not show the results: run bench/publish.py", file=sys.stderr)
    return 1 if outdated else 0


if __name__ == "__main__":
    sys.exit(main())
