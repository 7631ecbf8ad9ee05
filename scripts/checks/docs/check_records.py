#!/usr/bin/env python3
"""Checks that each text of docs/log-records.md is in the source file that the page names for it.

    check_records.py [--write]

An entry begins with the text as bold code, and names the file as code. In the text, <...> and numbers vary. The parts
between them must consist of whole string literals of the file. --write corrects the names on the page after a text has
moved to another file.
"""
import os
import re
import sys

import pages

PAGE = "docs/log-records.md"
VARIES = re.compile(r"<[^<>]*>|\b\d\w*")
LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')


def read_literals():
    """Returns the string literals of each source file of the library, by the file's name."""
    literals = {}
    for path in pages.tracked_files():
        if re.fullmatch(r"Quen(?:Include|Plugins)/.*\.cpp", path):
            with open(path, encoding="utf-8") as file:
                code = "".join(line for line in file if not line.lstrip().startswith(("#", "//")))
            literals[os.path.basename(path)] = set(LITERAL.findall(code)) - {""}
    return literals


def is_made_of(text, literals):
    return not text or any(text.startswith(literal) and is_made_of(text[len(literal):], literals)
                           for literal in literals)


def find_files(text, literals):
    return [name for name, found in literals.items()
            if all(is_made_of(part, found) for part in VARIES.split(text))]


def correct(lines, first, old, new):
    """Replaces the file's name in the entry that begins on this line."""
    number = next(i for i in range(first, len(lines)) if old in lines[i])
    lines[number] = lines[number].replace(old, new)


def main():
    literals = read_literals()
    with open(PAGE, encoding="utf-8") as file:
        lines = file.read().split("\n")
    entries, errors = 0, []
    for line, text, codes in pages.Page(PAGE).bold_codes():
        entries += 1
        place = '%s:%d: "%s" ' % (PAGE, line, text)
        named = [code for code in codes if code.endswith(".cpp")]
        files = find_files(text, literals)
        if len(named) != 1:
            errors.append(place + "does not name one source file")
        elif named[0] not in files:
            if sys.argv[1:] == ["--write"] and len(files) == 1:
                correct(lines, line, "`%s`" % named[0], "`%s`" % files[0])
            else:
                errors.append(place + "is not in %s, but in: %s" % (named[0], ", ".join(files) or "no file"))
    if sys.argv[1:] == ["--write"]:
        with open(PAGE, "w", encoding="utf-8") as file:
            file.write("\n".join(lines))
    print("%d texts of log records" % entries)
    print("\n".join(errors), end="\n" if errors else "", file=sys.stderr)
    return 1 if errors or not entries else 0


if __name__ == "__main__":
    sys.exit(main())
