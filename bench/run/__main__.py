"""Measures the library beside floors and rivals; scripts/bench builds them and calls this."""
import argparse
import contextlib
import datetime
import json
import os
import pathlib
import platform
import sys

import measuring
import regression
import serving
import tables
from workloads import RIVALS, SIZES, WORKLOADS

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent
COMMITTED = PROJECT / "bench" / "figures.json"
QUICK_SIZES = [10, 1_000, 10_000]
PAGE = PROJECT / "docs" / "performance.md"
PICTURES = PROJECT / "docs" / "performance"


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", type=pathlib.Path, required=True, metavar="DIRECTORY",
                        help="where figures and pictures go")
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--quick", action="store_true", help="coarse and without the largest stores, in less than a minute")
    what.add_argument("--check", action="store_true",
                      help="fail when a ratio against a floor has doubled since bench/figures.json, "
                           "a query takes a tenth more instructions, or one through "
                           "VQRegStore.h a twentieth more than by hand")
    what.add_argument("--publish", action="store_true",
                      help="make figures and pictures those of bench/figures.json and docs")
    parser.add_argument("--only", action="append", metavar="WORKLOAD",
                        choices=[workload.name for workload in WORKLOADS],
                        help="only this workload; may be repeated")
    parser.add_argument("--sizes", type=int, nargs="+", metavar="VALUES")
    options = parser.parse_args()
    options.sizes = options.sizes or (QUICK_SIZES if options.quick else SIZES)
    return options


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = {line.split(":", 1)[1].strip() for line in file if line.startswith("model name")}
    return {"processor": ", ".join(sorted(models)), "processors": os.cpu_count(),
            "kernel": platform.release(), "libc": " ".join(platform.libc_ver()),
            "load": os.getloadavg()[0], "date": datetime.date.today().isoformat()}


def read_figures(path):
    """As they were before JSON made texts of the sizes."""
    with open(path, encoding="utf-8") as file:
        content = json.load(file)
    content["figures"] = {workload: {name: {int(size): figure for size, figure in line.items()}
                                     for name, line in lines.items()}
                          for workload, lines in content["figures"].items()}
    content["instructions"] = {int(size): count
                               for size, count in content["instructions"].items()}
    return content


def write_figures(path, content):
    rounded = {workload: {name: {size: float(f"{figure:.4g}") for size, figure in line.items()}
                          for name, line in lines.items()}
               for workload, lines in content["figures"].items()}
    with open(path, "w", encoding="utf-8") as file:
        json.dump({**content, "figures": rounded}, file, indent=1)
        file.write("\n")


def write_page(content):
    """Puts the tables between the two marks of the page."""
    text = PAGE.read_text(encoding="utf-8")
    begin, end = "<!-- figures -->\n", "<!-- end of figures -->"
    head, rest = text.split(begin)
    table = tables.markdown(content["figures"], content["machine"])
    PAGE.write_text(head + begin + table + "\n" + end + rest.split(end)[1], encoding="utf-8")


def draw(figures, directory):
    try:
        import pictures
    except ImportError:
        print("No pictures: python3-matplotlib is not installed")
        return
    print("Pictures:", " ".join(str(directory / name)
                                for name in pictures.draw(figures, directory)))


def measure(options, memory, disk):
    for name in RIVALS:
        if not measuring.available(options.programs, name):
            print(f"{name} is left out: it is not installed, or there is no session bus")
    content = {"machine": machine()}
    pace = measuring.QUICK if options.quick else measuring.FULL
    content["figures"] = measuring.measure_all(options.programs, memory, disk, options.sizes, pace,
                                               options.only)
    content["instructions"] = {}
    if not options.only:
        content["instructions"] = regression.instructions(options.programs, memory)
    write_figures(options.output / "figures.json", content)
    print(tables.costs(content["figures"]))
    print(tables.goals(content["figures"]))
    for size, count in content["instructions"].items():
        print(f"instructions of a query, {size:,} values: {count:.0f}")
    draw(content["figures"], options.output)
    if options.publish:
        PICTURES.mkdir(exist_ok=True)
        write_figures(COMMITTED, content)
        draw(content["figures"], PICTURES)
        write_page(content)


def main():
    options = arguments()
    options.output.mkdir(parents=True, exist_ok=True)
    with contextlib.ExitStack() as stack:
        # The named objects and the fast stores live in /dev/shm.
        memory = stack.enter_context(serving.Ground("/dev/shm"))
        disk = stack.enter_context(serving.Ground(options.output))
        if options.check:
            committed = read_figures(COMMITTED)
            return 0 if regression.check(options.programs, memory, disk, committed["figures"],
                                         committed["instructions"]) else 1
        stack.enter_context(serving.Bus(memory))
        measure(options, memory, disk)
    return 0


sys.exit(main())
