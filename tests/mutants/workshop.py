"""A copy of the project in which sources are changed, one thing at a time.

The copy is built once, as whoever writes a test builds it, without optimisation. A change compiles the
objects it reaches and links the programs that contain them, with the commands of that build, in place;
everything is put back afterwards with its time, so that the build never notices. A run that is killed
meanwhile is put in order by the next one: originals wait in a directory of their own.
"""
import concurrent.futures
import contextlib
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess

LEFT_BEHIND = {"build", ".git", ".cache"}
OPTIONS = ["-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DVQREGLIB_UNITY=ON",
           "-DVQREGLIB_TESTS=ON", "-DVQREGLIB_BENCH=OFF", "-DVQREGLIB_EXAMPLES=OFF"]
STANDARD = re.compile(r"#include <[a-z_]+>")
LIBRARY = "CMakeFiles/vqreg_objects.dir/"


class Unbuildable(Exception):
    """The compiler refuses the change."""


class Workshop:
    def __init__(self, project, place, jobs):
        self.project, self.place, self.jobs = project, place, jobs
        self.source, self.build, self.originals = place / "source", place / "build", place / "originals"
        self.linked = set()

    def prepare(self):
        self.put_back()
        self.copy()
        linker = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=gold"]
        linker = linker if shutil.which("ld.gold") else []
        self.run(["cmake", "-S", self.source, "-B", self.build, *OPTIONS, *linker])
        self.run(["ninja", "-C", self.build, f"-j{self.jobs}"])
        self.links = self.read_links()
        self.compiles = self.read_compiles()
        self.precompile()
        self.reaches = self.read_reaches()

    def run(self, command):
        done = subprocess.run([str(each) for each in command], stdout=subprocess.PIPE, check=False,
                              stderr=subprocess.STDOUT, text=True)
        if done.returncode != 0:
            raise SystemExit(f"{done.stdout[-4000:]}\nThis failed: {command[0]} in {self.place}")

    def copy(self):
        """What has changed since, with new times; the rest keeps its objects."""
        wanted = set()
        for folder, below, files in os.walk(self.project):
            relative = pathlib.Path(folder).relative_to(self.project)
            below[:] = [name for name in below if not (relative == pathlib.Path(".") and name in LEFT_BEHIND)]
            wanted.update(relative / name for name in files)
        for relative in wanted:
            there, here = self.project / relative, self.source / relative
            if here.exists() and here.read_bytes() == there.read_bytes():
                continue
            here.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(there, here)
        for here in [path for path in self.source.rglob("*") if path.is_file()]:
            if here.relative_to(self.source) not in wanted:
                here.unlink()

    def read_links(self):
        """Of each program and library: the command that links it."""
        text = subprocess.run(["ninja", "-C", str(self.build), "-t", "commands"], check=True,
                              stdout=subprocess.PIPE, text=True).stdout
        links = {}
        for line in text.splitlines():
            if LIBRARY not in line or " -c " in line:
                continue
            words = shlex.split(line)
            if "-o" in words:
                end = words.index("&&", words.index("-o")) if "&&" in words[words.index("-o"):] else None
                links[words[words.index("-o") + 1]] = words[:end] if words[0] != ":" else words[2:end]
        return links

    def read_compiles(self):
        """Of each object of the library: the command that makes it."""
        entries = json.loads((self.build / "compile_commands.json").read_text())
        commands = [shlex.split(entry["command"]) for entry in entries]
        return {words[words.index("-o") + 1]: words for words in commands
                if words[words.index("-o") + 1].startswith(LIBRARY)}

    def precompile(self):
        """Half of what an object takes goes into headers of the system, which no change reaches."""
        options = {tuple(words[1:words.index("-o")]) for words in self.compiles.values()}
        sources = [path for folder in ("portable", "RegLib") for path in (self.source / folder).rglob("*.*")]
        found = {line for path in sources for line in path.read_text(encoding="utf-8").splitlines()
                 if STANDARD.fullmatch(line)}
        if len(options) != 1 or not found:
            return
        header = self.place / "system.h"
        header.write_text("\n".join(sorted(found)) + "\n")
        compiler = next(iter(self.compiles.values()))[0]
        self.run([compiler, *options.pop(), "-x", "c++-header", header, "-o", f"{header}.gch"])
        for words in self.compiles.values():
            words[1:1] = ["-include", str(header)]

    def read_reaches(self):
        """Of each file: the objects of the library that are made with it."""
        text = subprocess.run(["ninja", "-C", str(self.build), "-t", "deps"], check=True,
                              stdout=subprocess.PIPE, text=True).stdout
        reaches, target = {}, None
        for line in text.splitlines():
            if line and not line[0].isspace():
                target = line.split(":", 1)[0]
            elif line.strip() and target in self.compiles:
                path = pathlib.Path(os.path.normpath(self.build / line.strip()))
                if path.is_relative_to(self.source):
                    reaches.setdefault(str(path.relative_to(self.source)), []).append(target)
        return reaches

    def take(self, path):
        """Before `path`, in the build or the source, is written anew."""
        kept = self.originals / path.relative_to(self.place)
        if not kept.exists():
            kept.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(path, kept.with_name(kept.name + ".part"))
            os.replace(kept.with_name(kept.name + ".part"), kept)

    def put_back(self):
        if self.originals.exists():
            for kept in [path for path in self.originals.rglob("*") if path.is_file()]:
                if not kept.name.endswith(".part"):
                    os.replace(kept, self.place / kept.relative_to(self.originals))
            shutil.rmtree(self.originals)

    @contextlib.contextmanager
    def changed(self, place):
        """With the change made and compiled; programs are linked when they are asked for (`link`)."""
        path = self.source / place.file
        self.take(path)
        try:
            path.write_text(place.apply(path.read_text(encoding="utf-8")), encoding="utf-8")
            self.linked = set()
            objects = self.reaches.get(place.file, [])
            for made in objects:
                self.take(self.build / made)
            with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
                list(pool.map(self.make, [self.compiles[made] for made in objects]))
            yield objects
        finally:
            self.put_back()

    def make(self, command):
        done = subprocess.run(command, cwd=self.build, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, check=False)
        if done.returncode != 0:
            raise Unbuildable(done.stdout)

    def link(self, program, objects):
        """Links a program if it contains one of the objects."""
        command = self.links.get(program, [])
        if set(objects) & set(command) and program not in self.linked:
            self.linked.add(program)
            (self.build / program).parent.mkdir(exist_ok=True)
            self.take(self.build / program)
            (self.build / program).unlink()
            self.make(command)

    def link_libraries(self, objects):
        """What tests meet without being linked with the objects: the shared library, the command."""
        for program in self.links:
            if not program.startswith(("bin/unit_", "bin/fuzz_", "bin/process", "bin/tools")):
                self.link(program, objects)
