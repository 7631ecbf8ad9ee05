"""Runs the check of the unpacked archive on folders with one fault each:

    faulty_package_test.py FOLDER CHECK

FOLDER has the libraries of faulty_library_test.py, which are not stripped. CHECK is check_package.py.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

FOLDER, CHECK = sys.argv[1:]
NAME = "libZelTaskPool.dylib"
NOT_STRIPPED = {NAME + " (x86_64), names for debuggers alone", NAME + " (x86_64), paths that are not the system's"}


def library(fault):
    return os.path.join(FOLDER, fault, NAME)


class FaultyPackageTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.package = os.path.join(folder.name, "package")
        self.symbols = os.path.join(folder.name, NAME + ".dSYM")
        self.place(library("run-path"), self.package + "/lib")
        self.place(library("run-path"), self.symbols + "/Contents/Resources/DWARF")
        self.write("page.md", "[here](page.md#part), [there](https://example.org/x)")

    def place(self, source, folder):
        os.makedirs(folder, exist_ok=True)
        shutil.copy(source, folder)

    def write(self, name, text):
        with open(os.path.join(self.package, name), "w", encoding="utf-8") as file:
            file.write(text)

    def check(self):
        """The exit status, the wrong points with their texts, and the errors."""
        result = subprocess.run([sys.executable, CHECK, self.package, "--symbols", self.symbols, "--arch", "x86_64",
                                 "--without", "/home/builder"], capture_output=True, text=True)
        wrong = (line[6:].partition(": ") for line in result.stdout.splitlines() if line.startswith("WRONG "))
        return result.returncode, {point: detail for point, _, detail in wrong}, result.stderr

    def check_points(self, *points):
        status, wrong, errors = self.check()
        self.assertEqual((1, NOT_STRIPPED.union(points), ""), (status, set(wrong), errors))
        return wrong

    def test_a_library_that_is_not_stripped_is_refused(self):
        wrong = self.check_points()
        self.assertIn(".cpp.o", wrong[NAME + " (x86_64), names for debuggers alone"])
        self.assertIn(".cpp.o", wrong[NAME + " (x86_64), paths that are not the system's"])

    def test_a_folder_of_the_builder_is_found_in_any_file(self):
        self.write("text", "built in /home/builder/x")
        self.write("option", "built with -I/home/builder/x")
        self.write("other", "not in build/home/builder, /home/builders, /home/builder.d")
        found = self.check_points("files that name /home/builder")["files that name /home/builder"]
        self.assertEqual("{0}/option, {0}/text instead of none".format(self.package), found)

    def test_a_link_that_leads_nowhere_is_found(self):
        self.write("page.md", "[gone](docs/gone.md#part)")
        self.assertEqual("docs/gone.md in page.md instead of none",
                         self.check_points("links that lead nowhere")["links that lead nowhere"])

    def test_the_symbols_of_another_build_are_refused(self):
        self.place(library("young-system"), self.symbols + "/Contents/Resources/DWARF")
        self.check_points(NAME + " (x86_64), UUID of the debug symbols")

    def test_a_library_that_changed_after_the_signing_is_refused(self):
        with open(os.path.join(self.package, "lib", NAME), "r+b") as file:
            file.seek(0x2345)
            byte = file.read(1)[0]
            file.seek(0x2345)
            file.write(bytes([byte ^ 1]))
        self.check_points(NAME + " (x86_64), what the signature does not match")

    @unittest.skipUnless(os.path.exists(library("private-runtime")), "no library with a runtime of its own was built")
    def test_a_library_with_a_runtime_of_its_own_is_refused(self):
        self.place(library("private-runtime"), self.package + "/lib")
        self.place(library("private-runtime"), self.symbols + "/Contents/Resources/DWARF")
        self.check_points(NAME + " (x86_64), libraries")

    def test_symbols_that_are_not_there_are_refused(self):
        shutil.rmtree(self.symbols)
        status, _, errors = self.check()
        self.assertEqual(2, status)
        self.assertIn("cannot be read", errors)

    def test_a_package_without_a_library_is_refused(self):
        shutil.rmtree(self.package + "/lib")
        self.assertEqual(2, self.check()[0])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
