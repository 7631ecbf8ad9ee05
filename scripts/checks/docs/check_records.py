#!/usr/bin/env python3
"""Checks that each text of docs/log-records.md stands in the source file that the page names for it.

An entry begins with the text as bold code, and names the file as code. In the text, <...> and numbers vary. What stands
between them is made of whole string literals of the file.
"""
import os
import re
import sys

import pages

PAGE = "docs/log-records.md"
VARIES = re.compile(r"<[^<>]*>|\b\d\w*")
LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')


def find_sources():
    """Each source file of the library, by its name."""
    return {os.path.basename(path): path for path in pages.tracked_files()
            if re.fullmatch(r"Quen(?:Include|Plugins)/.*\.cpp", path)}


def read_literals(path):
    with open(path, encoding="utf-8") as file:
        lines = [line for line in file if not line.lstrip().startswith(("#", "//"))]
    return {literal for literal in LITERAL.findall("".join(lines)) if literal}


def is_made_of(text, literals):
    return not text or any(text.startswith(literal) and is_made_of(text[len(literal):], literals)
                           for literal in literals)


def stands_in(text, path):
    literals = read_literals(path)
    return all(is_made_of(part, literals) for part in VARIES.split(text))


def main():
    sources = find_sources()
    entries, errors = 0, []
    for line, text, codes in pages.Page(PAGE).bold_codes():
        entries += 1
        place = '%s:%d: "%s" ' % (PAGE, line, text)
        names = [code for code in codes if code.endswith(".cpp")]
        if len(names) != 1 or names[0] not in sources:
            errors.append(place + "names no source file of the library")
        elif not stands_in(text, sources[names[0]]):
            found = [name for name, path in sources.items() if stands_in(text, path)]
            errors.append(place + "is not in %s, but in: %s" % (names[0], ", ".join(found) or "no file"))
    print("%d texts of log records" % entries)
    print("\n".join(errors), end="\n" if errors else "", file=sys.stderr)
    return 1 if errors or not entries else 0


if __name__ == "__main__":
    sys.exit(main())
