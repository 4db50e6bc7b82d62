"""Measures the library beside floors and rivals; scripts/bench builds them and calls this."""
import argparse
import datetime
import json
import os
import pathlib
import platform
import sys

import measuring
import serving
import tables
from workloads import PROGRAMS, RIVALS, SIZES


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", type=pathlib.Path, required=True,
                        help="directory for figures and pictures")
    parser.add_argument("--quick", action="store_true", help="coarse, in less than a minute")
    parser.add_argument("--only", action="append", metavar="WORKLOAD",
                        help="only this workload; may be repeated")
    parser.add_argument("--sizes", type=int, nargs="+", default=SIZES, metavar="VALUES")
    return parser.parse_args()


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = {line.split(":", 1)[1].strip() for line in file if line.startswith("model name")}
    return {"processor": ", ".join(sorted(models)), "processors": os.cpu_count(),
            "kernel": platform.release(), "libc": " ".join(platform.libc_ver()),
            "load before": os.getloadavg()[0],
            "date": datetime.date.today().isoformat()}


def main():
    options = arguments()
    pace = measuring.QUICK if options.quick else measuring.FULL
    options.output.mkdir(parents=True, exist_ok=True)
    for name in RIVALS:
        if not measuring.available(options.programs, name):
            print(f"{name} is left out: it is not installed, or has no place to run")
    about = machine()
    # The named objects and the fast stores live in /dev/shm.
    with serving.Ground("/dev/shm") as memory, serving.Ground(options.output) as disk:
        figures = measuring.measure_all(options.programs, memory, disk, options.sizes, pace,
                                        options.only)
    with open(options.output / "figures.json", "w", encoding="utf-8") as file:
        json.dump({"machine": about, "figures": figures}, file, indent=1)
    print(tables.costs(figures))
    print(tables.goals(figures))


main()
