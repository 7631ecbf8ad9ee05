#!/usr/bin/env python3
"""Adapts the links of installed pages to the files that are installed with them:

    fit_links.py PAGES HEADERS

PAGES is the folder of the pages and the files they link to, HEADERS that of the headers; both have the paths of the
sources. A link to a header leads to HEADERS. A link to a file that is not installed becomes its text.
"""
import os
import re
import sys

LINK = re.compile(r"\[([^\[\]]*)\]\(([^)#:\s]+)((?:#[^)]*)?)\)")


def fit(link, place, pages, headers):
    text, target, anchor = link.groups()
    path = os.path.normpath(os.path.join(place, target))
    if os.path.exists(path):
        return link.group()
    header = os.path.join(headers, os.path.relpath(path, pages))
    if os.path.exists(header):
        return "[%s](%s%s)" % (text, os.path.relpath(header, place), anchor)
    return text


def main():
    pages, headers = sys.argv[1:]
    for place, _, names in os.walk(pages):
        for path in (os.path.join(place, name) for name in names if name.endswith(".md")):
            with open(path, encoding="utf-8") as file:
                page = file.read()
            with open(path, "w", encoding="utf-8") as file:
                file.write(LINK.sub(lambda link: fit(link, place, pages, headers), page))


if __name__ == "__main__":
    main()
