#!/usr/bin/env python3
"""Compiles and runs the blocks of the pages, unchanged, in the project's folder.

The language of a block, and for code the comment right before it, determine what is done:

    <!-- is PATH -->              a whole program: PATH has the same text and compiles
    <!-- within PATH -->          a part of a program: PATH includes it as BLOCK and compiles
    <!-- builds NAME=PATH ... --> a CMakeLists.txt or its essential part: builds with PATH as the source NAME
    <!-- not built: REASON -->    code that cannot be built here

    console          bash runs each line after "$ "; it must print what follows
    text, mermaid    not checked

A file in docs/snippets that needs another compiler or more options begins with "// build: COMMAND"; indented lines
continue the command. Code without a comment is an error.
"""
import collections
import os
import re
import shutil
import subprocess
import sys

import pages

FOLDER = "build/docs"
PREFIX = FOLDER + "/prefix"  # where the library is installed
COMPILE = "g++ -std=c++17"
OPTIONS = "-I. -Wall -Wextra -Werror -fsyntax-only"
CODE = ("c", "cmake", "cpp", "java")


class Failure(Exception):
    pass


def run(command):
    result = subprocess.run(["bash", "-c", command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, env=dict(os.environ, LC_ALL="C.UTF-8"), text=True, timeout=300)
    return result.returncode, result.stdout


def compile_file(path, options=""):
    with open(path, encoding="utf-8") as file:
        own = re.match(r"// build: (.*(?:\n//   .*)*)", file.read())
    command = own.group(1).replace("\n//", "") if own else COMPILE
    status, output = run(" ".join((command, OPTIONS, options, path)))
    if status != 0:
        raise Failure(output)


def check_is(block, path):
    with open(path, encoding="utf-8") as file:
        if file.read() != block.text:
            raise Failure("the block differs from %s\n" % path)
    compile_file(path)


def check_within(block, path):
    part = "%s/%s.%d" % (FOLDER, block.page.path.replace("/", "."), block.line)
    with open(part, "w", encoding="utf-8") as file:
        file.write('#line %d "%s"\n%s' % (block.line + 1, block.page.path, block.text))
    compile_file(path, "-DBLOCK='\"%s\"'" % part)


def check_builds(block, sources):
    project = "%s/%s.%d.project" % (FOLDER, block.page.path.replace("/", "."), block.line)
    shutil.rmtree(project, ignore_errors=True)
    os.makedirs(project)
    text = block.text
    if "cmake_minimum_required" not in text:
        text = "cmake_minimum_required(VERSION 3.22)\nproject(page LANGUAGES CXX)\n" + text
    with open(project + "/CMakeLists.txt", "w", encoding="utf-8") as file:
        file.write(text)
    for source in sources.split():
        name, _, path = source.partition("=")
        shutil.copyfile(path, "%s/%s" % (project, name))
    status, output = run("cd %s && cmake -S . -B build -DCMAKE_PREFIX_PATH=%s && cmake --build build"
                         % (project, os.path.abspath(PREFIX)))
    if status != 0:
        raise Failure(output)


def check_console(block):
    # Text before the first "$ " would not be the output of a command.
    if not block.text.startswith("$ "):
        raise Failure("a console block must begin with \"$ \"\n")
    for step in re.split(r"^\$ ", block.text, flags=re.MULTILINE)[1:]:
        command, _, expected = step.partition("\n")
        _, output = run(command)
        if output != expected:
            raise Failure("%s\nprints\n%sinstead of\n%s" % (command, output, expected))


def check(block):
    """Checks the block. Returns what was done with it."""
    verb, _, rest = block.note.partition(" ")
    if block.language == "console":
        check_console(block)
        return "run"
    if block.language in ("text", "mermaid"):
        return "shown"
    if block.language not in CODE:
        raise Failure("unknown language '%s'\n" % block.language)
    if verb == "is":
        check_is(block, rest)
        return "compiled"
    if verb == "within":
        check_within(block, rest)
        return "compiled"
    if verb == "builds":
        check_builds(block, rest)
        return "compiled"
    if block.note.startswith("not built: "):
        return "not built"
    raise Failure("the comment that says how to build it is missing\n")


def unused_files(blocks):
    """Returns the snippets that no page uses."""
    used = {block.note.partition(" ")[2] for block in blocks}
    return [path for path in pages.tracked_files()
            if re.fullmatch(r"docs/snippets/.*\.c(pp)?", path) and path not in used]


def main():
    os.makedirs(FOLDER, exist_ok=True)
    counts = collections.Counter()
    blocks = [block for page in pages.pages() for block in page.blocks()]
    for path in unused_files(blocks):
        counts["WRONG", "unused"] += 1
        print("%s: no page uses it" % path, file=sys.stderr)
    for block in blocks:
        try:
            result = check(block)
        except Failure as failure:
            result = "WRONG"
            print("%s: %s" % (block.place(), failure), end="", file=sys.stderr)
        counts[result, block.language] += 1
        if result == "not built":
            print("%s: %s" % (block.place(), block.note))
    for (result, language), count in sorted(counts.items()):
        print("%-9s %-8s %2d" % (result, language, count))
    return 1 if any(result == "WRONG" for result, _ in counts) else 0


if __name__ == "__main__":
    sys.exit(main())
