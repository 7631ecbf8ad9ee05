"""Runs the check of the built file on libraries with one fault each:

    faulty_library_test.py FOLDER FAULT,... CHECK [OPTION...]

FOLDER has a folder with such a library for each fault. CHECK and its options are those for the real library.
"""
import os
import subprocess
import sys
import tempfile
import unittest

FOLDER = sys.argv[1]
FAULTS = sys.argv[2].split(",")
CHECK = sys.argv[3:]
RUNTIME = "/usr/lib/libc++.1.dylib"
SYSTEM = "/usr/lib/libSystem.B.dylib"
SHARED = "__ZNSt3__16thread4joinEv, __ZTISt9exception, ___gxx_personality_v0"

# The lines that the check marks as wrong for each fault.
WRONG = {
    "export-missing": ["exports that are missing: _UnInit instead of none"],
    "export-too-many": ["exports that are not on the list: _ZelAddition instead of none"],
    "flat": [
        "kind: flat library instead of two-level library",
        "names left undefined: some",
        "names of the C++ runtime that do not come from it: %s instead of none" % SHARED,
        "names searched in every library: all instead of none",
    ],
    "install-name": ["install name: /opt/lib/libZelTaskPool.dylib instead of @rpath/libZelTaskPool.dylib"],
    "name-of-nobody": [
        "exports that are not on the list: _ZelAddition instead of none",
        "names searched in every library: _ZelTestMissingName instead of none",
        "names that the oldest macOS may lack: _ZelTestMissingName instead of none",
    ],
    "private-runtime": [
        "libraries: %s instead of %s, %s" % (SYSTEM, SYSTEM, RUNTIME),
        "thread-local variables: some instead of none",
        "names of the C++ runtime that do not come from it: %s instead of none" % SHARED,
    ],
    "private-types": ["names of the C++ runtime that do not come from it: __ZTISt9exception instead of none"],
    "run-path": ["run paths: /opt/lib instead of none"],
    "thread-local": [
        "thread-local variables: some instead of none",
        "exports that are not on the list: _ZelAddition instead of none",
        "names that the oldest macOS may lack: __tlv_bootstrap instead of none",
    ],
    "young-name": [
        "exports that are not on the list: _ZelAddition instead of none",
        "names that the oldest macOS may lack: _os_sync_wake_by_address_any instead of none",
    ],
    "young-system": ["oldest macOS: 12.0.0 instead of 11.0.0"],
}

# The start of a line that is optional. Which names a private runtime takes from the system is unknown here.
MAY_COME = {"private-runtime": "names that the oldest macOS may lack: "}


def wrong_lines(fault, output):
    lines = [line[6:] for line in output.splitlines() if line.startswith("WRONG ")]
    return [line for line in lines if not line.startswith(MAY_COME.get(fault, "\n"))]


def check(path):
    return subprocess.run([*CHECK, path], capture_output=True, text=True)


class FaultyLibraryTest(unittest.TestCase):
    def test_each_fault_is_refused_and_named(self):
        for fault in FAULTS:
            with self.subTest(fault):
                result = check(os.path.join(FOLDER, fault, "libZelTaskPool.dylib"))
                found = (result.stderr, result.returncode, wrong_lines(fault, result.stdout))
                self.assertEqual(("", 1, WRONG[fault]), found)

    def test_a_file_that_is_cut_off_is_refused(self):
        with open(os.path.join(FOLDER, "run-path", "libZelTaskPool.dylib"), "rb") as file:
            data = file.read()
        with tempfile.NamedTemporaryFile() as file:
            file.write(data[:-100])
            file.flush()
            result = check(file.name)
        self.assertEqual((2, ""), (result.returncode, result.stdout))
        self.assertIn("cannot be read: it is cut off", result.stderr)

    def test_a_byte_that_changed_after_the_signing_is_noticed(self):
        with open(os.path.join(FOLDER, "run-path", "libZelTaskPool.dylib"), "rb") as file:
            data = bytearray(file.read())
        data[0x2345] ^= 1
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "libZelTaskPool.dylib")
            with open(path, "wb") as file:
                file.write(data)
            result = check(path)
        self.assertEqual(("", 1), (result.stderr, result.returncode))
        self.assertIn("what the signature does not match: page 0x2000 instead of none", wrong_lines("", result.stdout))

    def test_a_file_of_another_kind_is_refused(self):
        result = check(__file__)
        self.assertEqual((2, ""), (result.returncode, result.stdout))
        self.assertIn("cannot be read", result.stderr)

    def test_a_file_that_is_not_there_is_refused(self):
        result = check(os.path.join(FOLDER, "none"))
        self.assertEqual((2, ""), (result.returncode, result.stdout))
        self.assertIn("cannot be read", result.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
