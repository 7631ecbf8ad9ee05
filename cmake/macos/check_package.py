#!/usr/bin/env python3
"""Checks the unpacked archive for macOS and its debug symbols.

    check_package.py FOLDER --symbols DSYM [--arch x86_64]... [--without PATH]...

--symbols DSYM   the debug symbols of FOLDER/lib/NAME, in a folder NAME.dSYM
--arch ARCH      an architecture that each library must contain; may be given more than once
--without PATH   a folder that no file may mention

Prints one line for each point. Exit status 1 if a point is wrong, 2 if a file cannot be read.
"""
import argparse
import glob
import os
import re
import sys

import macho
from check_dylib import RUNTIME, SYSTEM, Report, listing

# An absolute path that is a whole zero-terminated string.
PATH = re.compile(rb"(?<=\0)/[\w.+@-]+(?:/[\w.+@-]+)+(?=\0)")
OF_THE_SYSTEM = ("/dev/", "/usr/lib/")
LINK = re.compile(r"\]\(([^)#:\s]+)(?:#[^)]*)?\)")


def files_below(folder):
    return sorted(os.path.join(place, name) for place, _, names in os.walk(folder) for name in names)


def read(path):
    with open(path, "rb") as file:
        return file.read()


def check_library(report, path, arch):
    library = macho.MachO(path, arch)
    what = "%s (%s), " % (os.path.basename(path), arch)
    report.compare(what + "libraries", listing([RUNTIME, SYSTEM]),
                   listing(load.name for load in library.dylibs(*macho.LOADS)))
    report.compare(what + "what the signature does not match", "none", listing(library.signature_faults()))
    report.compare(what + "names for debuggers alone", "none", listing(set(library.private_symbols())))
    paths = {path.decode() for path in PATH.findall(library.data)}
    report.compare(what + "paths that are not the system's", "none",
                   listing(path for path in paths if not path.startswith(OF_THE_SYSTEM)))


def check_symbols(report, folder, symbols, archs):
    name = os.path.basename(symbols).removesuffix(".dSYM")
    for arch in archs:
        library = macho.MachO(os.path.join(folder, "lib", name), arch)
        debugged = macho.MachO(os.path.join(symbols, "Contents/Resources/DWARF", name), arch)
        report.tell(bool(library.uuid()), "%s (%s), UUID" % (name, arch), library.uuid() or "none")
        report.compare("%s (%s), UUID of the debug symbols" % (name, arch), library.uuid(), debugged.uuid())
        report.tell(b"CLS_QuenTaskPoolLifetime.cpp" in debugged.data,
                    "%s (%s), debug symbols" % (name, arch), "%d bytes" % len(debugged.data))


def check_paths(report, files, paths):
    for path in paths:
        # Matches whole paths: "build/root" does not contain "/root", but "-I/root" does.
        pattern = re.compile(rb"(?:(?<![\w./@}-])|(?<=-[FIL]))" + re.escape(path.rstrip("/").encode()) + rb"(?![\w.-])")
        report.compare("files that name " + path, "none", listing(file for file in files if pattern.search(read(file))))


def check_links(report, folder, files):
    broken = set()
    count = 0
    for page in (file for file in files if file.endswith(".md")):
        for target in LINK.findall(read(page).decode()):
            count += 1
            if not os.path.exists(os.path.join(os.path.dirname(page), target)):
                broken.add("%s in %s" % (target, os.path.relpath(page, folder)))
    report.compare("links that lead nowhere", "none", listing(broken))
    report.tell(count > 0, "links", count)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder")
    parser.add_argument("--symbols", required=True)
    parser.add_argument("--arch", action="append", required=True, choices=sorted(macho.CPU_TYPES))
    parser.add_argument("--without", action="append", default=[])
    arguments = parser.parse_args()
    report = Report()
    try:
        files = files_below(arguments.folder)
        libraries = glob.glob(os.path.join(arguments.folder, "lib", "*.dylib"))
        report.tell(bool(libraries), "libraries", listing(map(os.path.basename, libraries)))
        for library in sorted(libraries):
            for arch in arguments.arch:
                check_library(report, library, arch)
        check_symbols(report, arguments.folder, arguments.symbols, arguments.arch)
        check_paths(report, files + files_below(arguments.symbols), arguments.without)
        check_links(report, arguments.folder, files)
    except (OSError, ValueError, IndexError, macho.struct.error) as error:
        print("%s: cannot be read: %s" % (arguments.folder, error), file=sys.stderr)
        return 2
    return 1 if report.failed else 0


if __name__ == "__main__":
    sys.exit(main())
