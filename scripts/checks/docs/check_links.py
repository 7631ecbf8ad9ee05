#!/usr/bin/env python3
"""Checks that the files, headings and tests that the pages name exist.

  - A link within the project leads to one of its files or folders; an anchor leads to a heading there.
  - Code that begins with a folder of the project is a path that exists. The suffix of a class's file may be missing.
  - Code of the form `Suite.Test` is a test.
  - External links are counted, but not followed.
"""
import os
import re
import sys

import pages

TEST = re.compile(r"[A-Z]\w*\.[A-Z]\w*")
TEST_SOURCE = re.compile(r"\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)")


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def test_names(files):
    names = set()
    for path in files:
        if path.startswith(("tests/", "verify/")) and path.endswith(".cpp"):
            names.update(map(".".join, TEST_SOURCE.findall(read(path))))
    # A function makes the tests of sources that must not compile, with the same test names for each source.
    refused = read("tests/refused/CMakeLists.txt")
    kinds = re.findall(r"add_test\(NAME \$\{NAME\}\.(\w+)", refused)
    names.update("%s.%s" % (source, kind)
                 for source in re.findall(r"zel_add_refused_test\((\w+)", refused) for kind in kinds)
    return names


class Checker:
    def __init__(self):
        files = pages.tracked_files()
        self.pages = {page.path: page for page in pages.pages()}
        self.tests = test_names(files)
        self.paths = set(files)
        for path in files:
            while "/" in path:
                path = os.path.dirname(path)
                self.paths.add(path)
        folders = sorted({path.split("/")[0] for path in files if "/" in path})
        self.path = re.compile(r"(?<![\w./@}-])(?:%s)/[\w./-]*" % "|".join(map(re.escape, folders)))
        self.counts = dict.fromkeys(("links", "anchors", "external links", "paths", "tests"), 0)
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
        if TEST.fullmatch(code):
            self._count("tests", code in self.tests, page, line, "no such test: " + code)

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
