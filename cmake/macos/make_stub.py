#!/usr/bin/env python3
"""Writes libc++.1.tbd, the stub of the C++ runtime for the cross-build. It lists the names that the runtime of the
oldest macOS has. Other names do not link, so the library cannot use newer ones by mistake.

    make_stub.py --abi FOLDER --runtime FILE...

--abi FOLDER     libcxx/lib/abi of LLVM's sources: the runtime's names on macOS, with the version that added each
--runtime FILE   built libraries of the runtime; they show which names are weak, so that a program may replace them
"""
import argparse
import ast
import glob
import os
import re
import subprocess
import textwrap

STUB = os.path.join(os.path.dirname(os.path.abspath(__file__)), "libc++.1.tbd")
OLDEST = 9  # the version of LLVM before the one in macOS 11
HEAD = """--- !tapi-tbd
# The names that the C++ runtime of macOS 11 exports. Written by make_stub.py.
tbd-version:     4
targets:         [ x86_64-macos, arm64-macos ]
install-name:    '/usr/lib/libc++.1.dylib'
current-version: 904.4
compatibility-version: 1
exports:
  - targets:         [ x86_64-macos, arm64-macos ]
"""


def read_names(path):
    with open(path) as file:
        entries = [ast.literal_eval(line) for line in file]
    return {entry["name"] for entry in entries if entry["is_defined"]}


def read_younger_names(path):
    """Returns the names without leading underscores, which the log writes inconsistently."""
    names, version = set(), None
    with open(path) as file:
        for line in file:
            if match := re.match(r"Version (\d+)", line):
                version = int(match[1])
            if (match := re.search(r"Symbol added: _*(\S+)", line)) and (version or OLDEST) > OLDEST:
                names.add(match[1])
    return names


def read_weak_names(paths):
    output = subprocess.run(["llvm-nm-19", "-m", *paths], capture_output=True, text=True, check=True).stdout
    return {line.split()[-1] for line in output.splitlines() if "weak external" in line}


def block(key, names):
    text = ", ".join("'%s'" % name for name in sorted(names))
    lines = textwrap.fill(text, 118, initial_indent=" " * 8, subsequent_indent=" " * 8, break_long_words=False,
                          break_on_hyphens=False)
    return "    %-17s[\n%s ]\n" % (key + ":", lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--abi", required=True)
    parser.add_argument("--runtime", required=True, nargs="+")
    arguments = parser.parse_args()
    younger = read_younger_names(os.path.join(arguments.abi, "CHANGELOG.TXT"))
    listed = read_names(glob.glob(os.path.join(arguments.abi, "x86_64-apple-darwin.*.abilist"))[0])
    names = {name for name in listed if name.lstrip("_") not in younger}
    weak = names & read_weak_names(arguments.runtime)
    with open(STUB, "w") as file:
        file.write(HEAD + block("symbols", names - weak) + block("weak-symbols", weak) + "...\n")
    print("%d names, %d of them weak" % (len(names), len(weak)))


if __name__ == "__main__":
    main()
