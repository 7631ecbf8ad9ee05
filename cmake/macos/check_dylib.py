#!/usr/bin/env python3
"""Checks that a Mac can load a library, that it exports the right names, and that it shares its runtime with a host.

    check_dylib.py LIBRARY --exports FILE --version 1.2.3 [--compatibility 1.0.0] [--arch x86_64]
                   [--oldest 11.0.0] [--imports FILE]...

--exports FILE   the names that the library must export, no more and no less, one a line ('#' begins a comment)
--imports FILE   the names that the oldest system has, as such a list or as a stub library; without one, imports
                 are not checked

Prints one line for each point. Exit status 1 if a point is wrong, 2 if the file cannot be read.
"""
import argparse
import os
import re
import sys

import macho

RUNTIME = "/usr/lib/libc++.1.dylib"
SYSTEM = "/usr/lib/libSystem.B.dylib"
# One name of each part of the C++ runtime. A library with a copy of a part does not import its name.
SHARED = {"___gxx_personality_v0", "__ZTISt9exception", "__ZNSt3__16thread4joinEv"}


class Report:
    def __init__(self):
        self.failed = False

    def tell(self, right, point, detail):
        self.failed |= not right
        print("%s %s: %s" % ("right" if right else "WRONG", point, detail))

    def compare(self, point, wanted, found):
        self.tell(wanted == found, point, found if wanted == found else "%s instead of %s" % (found, wanted))


def listing(names):
    return ", ".join(sorted(names)) or "none"


def read_names(path):
    with open(path) as file:
        text = file.read()
    if path.endswith(".tbd"):
        return set(re.findall(r"'(_[^']*)'", text))
    return {line.strip() for line in text.splitlines() if line.strip() and not line.startswith("#")}


def check_identity(report, library, arguments):
    report.compare("kind", "two-level library", "%s %s" % (
        "two-level" if library.flags & macho.FLAG_TWO_LEVEL else "flat",
        "library" if library.type == macho.TYPE_DYLIB else "file of type %d" % library.type))
    undefined = not library.flags & macho.FLAG_NO_UNDEFINED
    report.tell(not undefined, "names left undefined", "some" if undefined else "none")
    identity = library.dylibs(macho.LC_ID_DYLIB)
    name = identity[0] if identity else macho.Dylib("none", "none", "none")
    report.compare("install name", "@rpath/" + os.path.basename(arguments.library), name.name)
    report.compare("current version", arguments.version, name.current)
    report.compare("compatibility version", arguments.compatibility, name.compatibility)
    report.compare("oldest macOS", arguments.oldest, library.oldest_system())


def check_loads(report, library):
    loads = library.dylibs(*macho.LOADS)
    report.compare("libraries", listing([RUNTIME, SYSTEM]), listing(load.name for load in loads))
    optional = library.dylibs(macho.LC_REEXPORT_DYLIB, macho.LC_LOAD_WEAK_DYLIB, macho.LC_LAZY_LOAD_DYLIB)
    report.compare("libraries that are optional or passed on", "none", listing(load.name for load in optional))
    report.compare("run paths", "none", listing(
        macho.text_at(body, 12) for body in library.of(macho.LC_RPATH)))


def check_signature(report, library):
    report.compare("what the signature does not match", "none", listing(library.signature_faults()))


def check_memory(report, library):
    segments = library.segments()
    report.compare("writable code", "none", listing(segment.name for segment in segments if segment.changes_code))
    touched = library.fixed_up_segments() & {"__TEXT"}
    touched |= {segment.name for segment in segments if segment.has_relocations}
    report.compare("relocations in code", "none", listing(touched))
    # If there were any, the loader would never unmap the library.
    report.compare("thread-local variables", "none", "some" if library.flags & macho.FLAG_THREAD_LOCAL else "none")


def check_exports(report, library, path):
    wanted, found = read_names(path), library.exports()
    missing, more = wanted - set(found), set(found) - wanted
    report.compare("exports that are missing", "none", listing(missing))
    report.compare("exports that are not on the list", "none", listing(more))
    passed_on = {name for name, flags in found.items() if flags & macho.EXPORT_IS_REEXPORT}
    report.compare("exports passed on from other libraries", "none", listing(passed_on))
    report.tell(bool(found), "exports in all", len(found))


def check_imports(report, library, paths):
    loads = [load.name for load in library.dylibs(*macho.LOADS)]
    imports = library.imports()
    bound = [entry for entry in imports if 1 <= entry.ordinal <= len(loads)]
    shared = {entry.name for entry in bound if loads[entry.ordinal - 1] == RUNTIME}
    report.compare("names of the C++ runtime that do not come from it", "none", listing(SHARED - shared))
    astray = {entry.name for entry in imports.difference(bound) if entry.ordinal != macho.WEAK_LOOKUP}
    two_level = library.flags & macho.FLAG_TWO_LEVEL
    report.compare("names searched in every library", "none", listing(astray) if two_level else "all")
    report.compare("names that may be missing", "none", listing(entry.name for entry in imports if entry.weak))
    if paths and two_level:
        known = set().union(*(read_names(path) for path in paths))
        unknown = {entry.name for entry in imports} - known
        report.compare("names that the oldest macOS may lack", "none", listing(unknown))
    report.tell(bool(imports), "imports in all", len(imports))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("library")
    parser.add_argument("--exports", required=True)
    parser.add_argument("--version", required=True)
    parser.add_argument("--compatibility", default="1.0.0")
    parser.add_argument("--arch", default="x86_64", choices=sorted(macho.CPU_TYPES))
    parser.add_argument("--oldest", default="11.0.0")
    parser.add_argument("--imports", action="append", default=[])
    arguments = parser.parse_args()
    try:
        library = macho.MachO(arguments.library, arguments.arch)
        report = Report()
        check_identity(report, library, arguments)
        check_loads(report, library)
        check_signature(report, library)
        check_memory(report, library)
        check_exports(report, library, arguments.exports)
        check_imports(report, library, arguments.imports)
    except (OSError, ValueError, IndexError, macho.struct.error) as error:
        print("%s: cannot be read: %s" % (arguments.library, error), file=sys.stderr)
        return 2
    return 1 if report.failed else 0


if __name__ == "__main__":
    sys.exit(main())
