#!/usr/bin/env python3
"""Checks that links, anchors and paths in the pages lead to existing files and headings.

A link within the project must lead to a file or folder, and an anchor to a heading there. Code that begins with a
folder of the project must be an existing path; the suffix of a header may be missing. External links are only counted.
"""
import os
import re
import sys

import pages


class Checker:
    def __init__(self):
        files = pages.tracked_files()
        self.pages = {page.path: page for page in pages.pages()}
        self.paths = set(files)
        for path in files:
            while "/" in path:
                path = os.path.dirname(path)
                self.paths.add(path)
        folders = sorted({path.split("/")[0] for path in files if "/" in path})
        self.path = re.compile(r"(?<![\w./@}-])(?:%s)/[\w./-]*" % "|".join(map(re.escape, folders)))
        self.counts = dict.fromkeys(("links", "anchors", "external links", "paths"), 0)
        self.errors = []

    def _count(self, kind, good, page, line, what):
        self.counts[kind] += 1
        if not good:
            self.errors.append("%s:%d: %s" % (page.path, line, what))

    def check_target(self, page, line, target):
        if re.match(r"\w+:", target):
            self.counts["external links"] += 1
            return
        path, _, anchor = target.partition("#")
        path = os.path.normpath(os.path.join(os.path.dirname(page.path), path)) if path else page.path
        self._count("links", path in self.paths, page, line, "no such file: " + target)
        if anchor:
            there = self.pages.get(path)
            self._count("anchors", there and anchor in there.anchors(), page, line, "no such heading: " + target)

    def check_code(self, page, line, code):
        for path in self.path.findall(code):
            path = path.rstrip("./")
            exists = path in self.paths or path + ".h" in self.paths
            self._count("paths", exists, page, line, "no such path: " + path)

    def check(self):
        for page in self.pages.values():
            for line, target in page.targets():
                self.check_target(page, line, target)
            for line, code in page.codes():
                self.check_code(page, line, code)
        print("%d pages: %s" % (len(self.pages), ", ".join("%d %s" % (n, kind) for kind, n in self.counts.items())))
        print("\n".join(self.errors), end="\n" if self.errors else "", file=sys.stderr)
        return 1 if self.errors else 0


if __name__ == "__main__":
    sys.exit(Checker().check())
