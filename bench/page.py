"""Writes the tables of the performance page. Each is between two comments and shows a file of this folder."""
import os
import sys

import comparison
import data
import task_costs

BENCH = os.path.dirname(os.path.abspath(__file__))
PAGE = os.path.join(BENCH, "..", "docs", "performance.md")
# The function that writes the tables of each file.
WRITERS = {"comparison.json": comparison.write, "costs.json": task_costs.write}


def write_block(name):
    """Returns the comments with the tables between them; without tables if nothing is published."""
    path = os.path.join(BENCH, name)
    tables = f"\n{WRITERS[name](data.read(path))}\n" if os.path.exists(path) else ""
    return f"<!-- from bench/{name} -->\n{tables}<!-- end of bench/{name} -->"


def fill(text):
    """Returns the text of the page with current tables."""
    for name in WRITERS:
        start, end = f"<!-- from bench/{name} -->", f"<!-- end of bench/{name} -->"
        if text.count(start) != 1 or text.count(end) != 1:
            raise SystemExit(f"docs/performance.md must contain each of these once: {start} {end}")
        before, _, rest = text.partition(start)
        text = before + write_block(name) + rest.partition(end)[2]
    return text


def read_page():
    with open(PAGE, encoding="utf-8") as file:
        return file.read()


def publish():
    text = fill(read_page())
    with open(PAGE, "w", encoding="utf-8") as file:
        file.write(text)


def store(name, results, folder):
    """Writes the results and their tables to the folder. Publishes them if no folder is given."""
    if folder is None:
        data.write(results, os.path.join(BENCH, name))
        publish()
        return
    os.makedirs(folder, exist_ok=True)
    data.write(results, os.path.join(folder, name))
    tables = name.replace(".json", ".md")
    with open(os.path.join(folder, tables), "w", encoding="utf-8") as file:
        file.write(WRITERS[name](results))
    print(f"Written to {os.path.relpath(folder)}: {name}, {tables}", file=sys.stderr)


def is_current():
    text = read_page()
    return fill(text) == text
