"""One picture a workload: what an operation costs over the number of values, both logarithmic."""
import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402  the backend comes first

from workloads import ALONE, OURS, QUERY, STORE, WORKLOADS  # noqa: E402

FLOORS = ("F0", "F1", "F2", "F3", "R", "floor")
COLOURS = {"LMDB": "tab:blue", "SQLite": "tab:green", "TDB": "tab:purple", "GKeyFile": "tab:brown",
           "dconf": "tab:cyan", STORE: "tab:orange"}


def style(name):
    if name == OURS:
        return {"color": "tab:red", "linewidth": 2.6, "marker": "o", "zorder": 3}
    if name in (QUERY, ALONE):
        return {"color": "tab:red", "linestyle": ":", "marker": "."}
    if name in FLOORS:
        return {"color": "black", "linestyle": ":" if name != "F1" else "-.", "marker": "_"}
    return {"color": COLOURS[name], "linewidth": 1.2, "marker": ".", "alpha": 0.9}


def draw(figures, directory):
    """Pictures of the workloads that have more than one size; the names of the files."""
    # The same figures make the same picture.
    matplotlib.rcParams.update({"svg.hashsalt": "vqreg", "svg.fonttype": "none", "font.size": 9})
    drawn = []
    for workload in WORKLOADS:
        lines = figures.get(workload.name, {})
        if OURS not in lines or len(lines[OURS]) < 2:
            continue
        picture, axes = plt.subplots(figsize=(6.4, 4.0), layout="constrained")
        for name, line in lines.items():
            sizes = sorted(line)
            axes.plot(sizes, [line[size] for size in sizes], label=name, **style(name))
        axes.set_yscale("log")
        axes.set_xscale("linear" if workload.how == "levels" else "log")
        axes.set_xlabel(workload.axis)
        axes.set_ylabel({"ns": "nanoseconds"}.get(workload.unit, workload.unit))
        axes.set_title(workload.title)
        axes.grid(True, which="major", alpha=0.3)
        axes.legend(fontsize="small")
        name = f"{workload.name}.svg"
        picture.savefig(directory / name, metadata={"Date": None, "Creator": None})
        plt.close(picture)
        drawn.append(name)
    return drawn
