"""Compiles mutants and links the test programs with them, in a separate copy of the build."""
import os
import re
import shlex
import shutil
import subprocess

from mutants import COMPILER

PRODUCT = re.compile(r"(QuenInclude|QuenPlugins/ZelTaskPool)/\S+\.cpp$")
LOCK_CHECK = ["-Wno-everything", "-Wthread-safety", "-Wthread-safety-beta"]
COVERAGE = ["-fprofile-instr-generate", "-fcoverage-mapping", "-mllvm", "-runtime-counter-relocation"]


def run(command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


class Build:
    """The commands and objects of the build, and the parts of the product that each program needs."""

    def __init__(self, root, folder):
        self.root = root
        self.folder = folder
        self.compiles = {}  # source, from the root -> options of its compiler
        self.objects = {}  # object, from the folder -> source
        self.includes = {}  # source -> headers of the project
        self.includers = {}  # object of a test -> the product's files in it, and its command
        self.links = {}  # linked file with objects of the product -> command
        self.needs = {}  # program -> the files in self.links that it is or uses

    def make(self, jobs):
        linker = "-fuse-ld=lld-19"
        run(["cmake", "-S", str(self.root), "-B", str(self.folder), "-G", "Ninja",
             "-DCMAKE_CXX_COMPILER=" + COMPILER, "-DCMAKE_BUILD_TYPE=",
             "-DCMAKE_EXE_LINKER_FLAGS=" + linker, "-DCMAKE_SHARED_LINKER_FLAGS=" + linker])
        subprocess.run(["cmake", "--build", str(self.folder), "-j", str(jobs)], check=True)
        self.read_compiles()
        self.read_links()
        self.make_precompiled()

    def ninja(self, *arguments):
        return run(["ninja", "-C", str(self.folder), "--quiet", "-t", *arguments])

    def read_dependencies(self):
        """Object -> the product's files that it contains."""
        dependencies, current = {}, set()
        for line in self.ninja("deps").splitlines():
            if ": #deps" in line:
                current = dependencies.setdefault(line.split(":")[0], set())
                continue
            path = os.path.relpath(self.folder / line.strip(), self.root)
            if path.startswith("Quen"):
                current.add(path)
        return dependencies

    def read_compiles(self):
        dependencies = self.read_dependencies()
        for line in self.ninja("commands", "all").splitlines():
            if " -c " not in line:
                continue
            words = shlex.split(line)
            words = words[next(i for i, word in enumerate(words) if word.endswith(COMPILER)) + 1:]
            source = os.path.relpath(words[-1], self.root)
            target = words[words.index("-o") + 1]
            included = dependencies.get(target, set())
            options = [word for word in words[:words.index("-MD")] if not word.startswith("-W")]
            # A test that compiles a source itself is not part of the product.
            if PRODUCT.match(source) and not target.startswith(("tests/", "verify/")):
                self.compiles[source] = options
                self.objects[target] = source
                self.includes[source] = included
            elif included:
                self.includers[target] = (included, [COMPILER, *options, "-w", "-c", words[-1], "-o"])

    def read_links(self):
        for line in self.ninja("commands", "all").splitlines():
            words = shlex.split(line)
            if "-o" in words and "-c" not in words and any(word in self.objects for word in words):
                words = [word for word in words if word not in (":", "&&")]
                self.links[words[words.index("-o") + 1]] = words
        programs = [str(path.relative_to(self.folder)) for path in self.folder.glob("bin/tests/*")
                    if path.is_file() and os.access(path, os.X_OK)]
        for program in programs:
            inputs = {line.strip() for line in self.ninja("inputs", program).splitlines()}
            self.needs[program] = sorted((inputs | {program}) & set(self.links))

    def make_precompiled(self):
        """Precompiles the standard library's headers, which take most of a compilation."""
        headers = set()
        for source, includes in self.includes.items():
            for file in {source} | includes:
                text = (self.root / file).read_text(encoding="ascii")
                headers.update(re.findall(r"^#include (<[a-z_]+>)$", text, re.MULTILINE))
        header = self.folder / "standard.h"
        header.write_text("".join("#include %s\n" % name for name in sorted(headers)), encoding="ascii")
        options = next(iter(self.compiles.values()))
        for name, more in (("standard.pch", []), ("standard-fast.pch", ["-O2"])):
            run([COMPILER, *options, *more, "-xc++-header", str(header), "-o", str(self.folder / name)])

    def affected(self, file):
        """The sources to compile when a file changes."""
        return [source for source in self.compiles if file == source or file in self.includes[source]]


class Workplace:
    """A copy of a build in which one mutant at a time replaces the original."""

    def __init__(self, build, number):
        self.build = build
        self.folder = build.folder.with_name("job-%d" % number)
        self.changed = self.folder / "changed"
        self.replaced = {}  # object -> the one to link in its place
        self.pending = {}  # object of a test to compile before linking -> command
        self.options = []  # for the linker
        self.fresh = set()  # the files that are already linked
        self.copy()

    def copy(self):
        """Programs contain paths, so the path of the copy must have the same length."""
        before, after = os.fsencode(self.build.folder), os.fsencode(self.folder)
        assert len(before) == len(after)
        shutil.rmtree(self.folder, ignore_errors=True)
        for path in self.build.folder.rglob("*"):
            target = self.folder / path.relative_to(self.build.folder)
            if path.is_symlink():
                # The library's other names point to the file that is linked here.
                target.symlink_to(os.readlink(path))
            elif path.is_dir():
                target.mkdir(parents=True, exist_ok=True)
            elif path.suffix != ".pch":
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(path.read_bytes().replace(before, after))
                shutil.copymode(path, target)

    def path(self, text):
        return text.replace(str(self.build.folder), str(self.folder))

    def compile(self, source, *more, output=None, fast=False):
        """The compiler's messages; None if it rejects the source."""
        precompiled = self.build.folder / ("standard-fast.pch" if fast else "standard.pch")
        changed = self.changed / source
        command = [COMPILER, "-I" + str(self.changed), *self.build.compiles[source], *LOCK_CHECK, *more,
                   "-include-pch", str(precompiled), *(["-O2"] if fast else []), "-o", str(output),
                   "-c", str(changed if changed.exists() else self.build.root / source)]
        result = subprocess.run(command, cwd=self.folder, capture_output=True, text=True)
        return result.stderr if result.returncode == 0 else None

    def begin(self, options=()):
        shutil.rmtree(self.changed, ignore_errors=True)
        self.changed.mkdir()
        self.replaced = {}
        self.pending = {}
        self.options = list(options)
        self.fresh = set()

    def write(self, mutant):
        text = (self.build.root / mutant.file).read_text(encoding="ascii")
        path = self.changed / mutant.file
        path.parent.mkdir(parents=True)
        path.write_text(text[:mutant.begin] + mutant.new + text[mutant.end:], encoding="ascii")

    def object(self, source):
        return self.changed / (source.replace("/", "-") + ".o")

    def take(self, mutant):
        """Compiles a mutant. Returns "compiled", or why the mutant is useless."""
        self.begin()
        self.write(mutant)
        refused = False
        for name, source in self.build.objects.items():
            if source in self.build.affected(mutant.file):
                messages = self.compile(source, output=self.object(source))
                if messages is None:
                    return "not compiled"
                refused |= "[-Wthread-safety" in messages
                self.replaced[name] = str(self.object(source))
        if PRODUCT.match(mutant.file):
            self.take_includers({mutant.file})
        return "refused" if refused else "compiled"

    def is_same_code(self, mutant):
        """Whether the mutant and the original have the same optimised code."""
        before, after = self.changed / "before.o", self.changed / "after.o"
        for source in self.build.affected(mutant.file):
            self.compile(source, output=after, fast=True)
            (self.changed / mutant.file).rename(self.changed / "kept")
            self.compile(source, output=before, fast=True)
            (self.changed / "kept").rename(self.changed / mutant.file)
            if before.read_bytes() != after.read_bytes():
                return False
        return True

    def take_counters(self):
        """Replaces every object with one that counts what is executed."""
        self.begin(COVERAGE)
        for name, source in self.build.objects.items():
            if self.compile(source, *COVERAGE, output=self.object(source)) is None:
                raise RuntimeError("cannot compile %s with counters" % source)
            self.replaced[name] = str(self.object(source))
        self.take_includers(set(self.build.compiles), COVERAGE)

    def take_includers(self, changed, options=()):
        """Schedules the tests that include a changed file to be compiled when they are linked."""
        self.fresh = set()
        for name, (files, command) in self.build.includers.items():
            if files & changed:
                self.pending[name] = [
                    command[0], *options, "-I" + str(self.changed), *map(self.path, command[1:])]

    def compile_pending(self, names):
        """Compiles the objects of tests that contain sources of the product."""
        for name in set(names) & set(self.pending):
            output = self.changed / (name.replace("/", "-") + ".o")
            command = [*self.pending.pop(name), str(output)]
            if subprocess.run(command, cwd=self.folder, capture_output=True).returncode != 0:
                return False
            self.replaced[name] = str(output)
        return True

    def link(self, program):
        """Links what a program needs with the current objects. Returns False on failure."""
        for target in self.build.needs.get(program, []):
            if target in self.fresh:
                continue
            if not self.compile_pending(self.build.links[target]):
                return False
            words = [self.replaced.get(word, self.path(word)) for word in self.build.links[target]]
            (self.folder / target).unlink(missing_ok=True)
            if subprocess.run(words + self.options, cwd=self.folder, capture_output=True).returncode != 0:
                return False
            self.fresh.add(target)
        return True
