"""Turns the results that scripts/bench collects into a page with tables and plots.

Usage: report.py RESULTS DOCS    writes DOCS/benchmarks.md, DOCS/benchmarks/*.svg and DOCS/benchmarks/results.json
"""
import json
import sys
from pathlib import Path

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.fonttype"] = "none"  # text stays text
matplotlib.rcParams["svg.hashsalt"] = "authchipdriver"  # the same results make the same file
matplotlib.rcParams["font.size"] = 9
import matplotlib.pyplot as plt  # noqa: E402

SHORT_OPERATIONS_GOAL = 1.12
LONG_OPERATIONS_GOAL = 1.04
INSTRUCTIONS_GOAL = 350
LIBRARY_SHARE_GOAL = 0.5  # per cent
STARTUP_GOAL = 1.5
CAPTURE_GOAL = 5e3  # nanoseconds added to a message
LONG_OPERATIONS = {"getAccessoryCertificateData", "newSignature"}
UNGUARDED_OPERATIONS = {"rawReadOf128Bytes", "rawWriteOf128Bytes"}  # neither of 1 to 4 bytes nor of the long ones
OURS, PEER = "#1f6f8b", "#c05a1c"


# Reading the results.

def read_benchmarks(folder):
    """The counters of every google-benchmark, by name."""
    benchmarks = {}
    for file in sorted(folder.glob("*.json")):
        content = json.loads(file.read_text())
        if isinstance(content, list):
            continue
        for row in content["benchmarks"]:
            prefix = "time zone set/" if file.stem.endswith("-tz") else ""
            name = prefix + row["name"].removesuffix("/manual_time").split("/iterations:")[0]
            keep = {"iterations"}
            benchmarks[name] = {
                key: value for key, value in row.items()
                if key in keep or key.endswith(("_ns", "_survives", "_bytes")) or key.startswith(("ratio", "turns"))
            }
    return benchmarks


def read_pairs(file):
    pairs = {}
    if file.exists():
        for line in file.read_text().splitlines():
            key, _, value = line.partition(" ")
            pairs.setdefault(key, []).append(value)
    return pairs


def read_instructions(file):
    """Instructions by generation and operation, then by kind of object."""
    kinds = {"libauthchipdriver": "own", "libQt5Core": "Qt", "liblog4cplus": "log4cplus", "libstdc++": "C++ library",
             "libc": "C library"}
    sums = {}
    for line in file.read_text().splitlines():
        generation, operation, image, count = line.split()
        kind = next((kind for prefix, kind in kinds.items() if image.startswith((prefix + ".", prefix + "-"))), "fake")
        row = sums.setdefault((generation, operation), {})
        row[kind] = row.get(kind, 0) + int(count)
    return sums


class Results:
    def __init__(self, folder):
        self.benchmarks = read_benchmarks(folder)
        self.counts = json.loads((folder / "counts.json").read_text())
        self.library = read_instructions(folder / "instructions-library.txt")
        self.floor = read_instructions(folder / "instructions-floor.txt")
        self.machine = read_pairs(folder / "machine.txt")
        self.sizes = {name: read_pairs(folder / f"size-{name}.txt") for name in ("native", "armhf")}

    def group(self, prefix):
        """The benchmarks below a prefix, by the rest of their names."""
        return {name[len(prefix):]: row for name, row in self.benchmarks.items() if name.startswith(prefix)}

    def as_json(self):
        return {"machine": self.machine, "benchmarks": self.benchmarks, "counts": self.counts, "sizes": self.sizes,
                "instructions": [{"generation": key[0], "operation": key[1], "library": row, "floor": self.floor[key]}
                                 for key, row in self.library.items()]}


# Words and tables.

def duration(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def number(value):
    return f"{value:.3f}" if 0.1 <= value < 10 else f"{value:.3g}" if value < 1000 else f"{value:.0f}"


def ratio(row):
    return f"**{number(row['ratio'])}** ({number(row['ratio_low'])} to {number(row['ratio_high'])})"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "|".join("---" for _ in head) + "|"]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines) + "\n"


RATIO_HEAD = ["ratio: median (quartiles)", "library", "peer"]


def ratio_cells(row):
    return [ratio(row), duration(row["ours_ns"]), duration(row["peer_ns"])]


def listed(names):
    return "none" if not names else names[0] if len(names) == 1 else ", ".join(names[:-1]) + " and " + names[-1]


def factors(rows):
    """From the smallest to the largest ratio: "1.02 to 1.05"."""
    ratios = sorted(row["ratio"] for row in rows)
    lowest, highest = number(ratios[0]), number(ratios[-1])
    return lowest if lowest == highest else f"{lowest} to {highest}"


def goal_of(operation):
    if operation in UNGUARDED_OPERATIONS:
        return None
    return LONG_OPERATIONS_GOAL if operation in LONG_OPERATIONS else SHORT_OPERATIONS_GOAL


def verdict(value, goal):
    return "" if goal is None else "met" if value <= goal else "**missed**"


# Plots.

class Plots:
    def __init__(self, docs):
        self.folder = docs / "benchmarks"
        self.folder.mkdir(parents=True, exist_ok=True)

    def save(self, figure, name, text):
        figure.tight_layout()
        figure.savefig(self.folder / f"{name}.svg", metadata={"Date": None, "Creator": None})
        plt.close(figure)
        return f"![{text}](benchmarks/{name}.svg)\n"

    def floor(self, rows):
        figure, axes = plt.subplots(figsize=(8, 6))
        names = list(rows)[::-1]
        for place, name in enumerate(names):
            row = rows[name]
            goal = goal_of(name.split("/")[1])
            missed = goal is not None and row["ratio"] > goal
            axes.plot([row["ratio_low"], row["ratio_high"]], [place, place], color="#999999", linewidth=4)
            axes.plot(row["ratio"], place, "o", color=PEER if missed else OURS)
            if goal is not None:
                axes.plot(goal, place, "|", color="black", markersize=10)
        axes.set_yticks(range(len(names)), [name.replace("/", " ") for name in names])
        axes.axvline(1, color="#cccccc", linewidth=1)
        axes.set_xlabel("time of the library / time of the bare system calls  (bar: quartiles, stroke: goal)")
        return self.save(figure, "floor", "Time of every operation as a multiple of its bare system calls")

    def lines(self, name, text, xlabel, ylabel, series, logarithmic=(False, False), from_zero=True):
        """@p series: label -> (xs, ys, colour or None)."""
        figure, axes = plt.subplots(figsize=(6, 3.4))
        for label, (xs, ys, colour) in series.items():
            axes.plot(xs, ys, "o-", label=label, color=colour, markersize=4)
        if logarithmic[0]:
            axes.set_xscale("log", base=2)
            ticks = sorted({x for xs, _, _ in series.values() for x in xs})
            axes.set_xticks(ticks, [str(tick) for tick in ticks])
        if logarithmic[1]:
            axes.set_yscale("log")
        elif from_zero:
            axes.set_ylim(0, 1.1 * max(y for _, ys, _ in series.values() for y in ys))
        axes.set_xlabel(xlabel)
        axes.set_ylabel(ylabel)
        axes.grid(alpha=0.3)
        axes.legend(fontsize=8)
        return self.save(figure, name, text)

    def bus(self, rows):
        figure, axes = plt.subplots(figsize=(8, 4.5))
        parts = (("wire_ns", "wire", "#7fb3c8"), ("chip_ns", "chip", "#d9c27a"), ("pause_ns", "pause", "#c05a1c"),
                 ("library_ns", "library", "#222222"))
        names = [name for name in rows if "/3.0/" in f"/{name}" and "400 kHz" in name][::-1]
        for place, name in enumerate(names):
            total = sum(rows[name][key] for key, _, _ in parts)
            left = 0
            for key, label, colour in parts:
                share = 100 * rows[name][key] / total
                axes.barh(place, share, left=left, color=colour, label=label if place == 0 else None)
                left += share
        axes.set_yticks(range(len(names)), [name.split("/", 1)[1].replace("/", " ") for name in names])
        axes.set_xlim(0, 100)
        axes.set_xlabel("share of the total, per cent (400 kHz)")
        axes.legend(ncols=4, loc="upper center", bbox_to_anchor=(0.5, 1.12), fontsize=8)
        return self.save(figure, "bus", "Where the time of an operation goes on a bus of 400 kHz")


def growth(rows):
    """Benchmarks named by a number: the numbers, the library's times and the peer's."""
    points = sorted((int(name), row) for name, row in rows.items())
    return [x for x, _ in points], [row["ours_ns"] for _, row in points], [row["peer_ns"] for _, row in points]


# The sections of the page.

def introduction(results):
    def value(key):
        return results.machine.get(key, ["unknown"])[0]

    noisy = float(value("load_before").split()[0]) + float(value("load_after").split()[0]) > 1.5
    packages = ", ".join(results.machine.get("package", []))
    text = [
        "# What the library costs\n",
        "Every figure is a ratio of two things that took turns in one run of one program (some 50 µs of the one, then of "
        "the other, hundreds of times), as the median of the ratios of all turns with the lower and the upper quartile "
        "behind it. Times stand beside it for scale only. `scripts/bench` makes this page anew on any machine.\n",
        table(["", ""], [
            ["measured", value("date") + (" (**a quick run: worth little**)" if value("quick") == "yes" else "")],
            ["machine", f"{value('machine')}; {value('cores')} x {value('cpu')}; {value('memory')}"],
            ["kernel, system", f"{value('kernel')}; {value('system')}"],
            ["compiler", value("compiler")],
            ["load before, after", f"{value('load_before')}; {value('load_after')}"],
            ["packages", packages],
        ]),
    ]
    if noisy:
        text.append(
            "**The machine was not quiet:** other builds and tests ran on the same cores, as the load shows. Ratios of "
            "turns bear that well; where the quartiles lie far apart, and in all that needs several processors at once "
            "(crowds of threads and processes), read them as an order of magnitude.\n")
    return text


def floor_section(results, plots):
    rows = results.group("floor/")
    missed = [name for name, row in rows.items() if verdict(row["ratio"], goal_of(name.split("/")[1])).startswith("**")]
    cells = []
    for name, row in rows.items():
        generation, operation = name.split("/")
        goal = goal_of(operation)
        cells.append([generation, f"`{operation}`", *ratio_cells(row), goal or "", verdict(row["ratio"], goal)])
    text = [
        "## Beside the bare system calls\n",
        "The peer is a loop that replays the messages of the operation (semop, write, read, semop) and does nothing "
        "else. Both work on the same instant device: each transfer enters the kernel once, on `/dev/zero`, and then gets "
        "the chip's bytes. Logging is off. On a real bus the same transfers take a hundred microseconds and more, see "
        "[below](#on-a-bus).\n",
        plots.floor(rows),
        table(["chip", "operation", *RATIO_HEAD, "goal", ""], cells),
    ]
    if missed:
        text.append(f"{len(rows) - len(missed)} of {len(rows)} operations are within their goal or have none; not: "
                    + ", ".join(f"`{name}`" for name in missed)
                    + ". The instructions below say what the difference is made of.\n")
    buffers = results.group("floor with buffers/")
    text.append("Signing is the one that allocates: its interface asks for a new buffer for each message that carries "
                "data, and for a block with the answer. Beside a loop that allocates those, too:\n")
    text.append(table(["chip", "operation", *RATIO_HEAD],
                      [[*name.replace("newSignature", "`newSignature`").split("/"), *ratio_cells(row)]
                       for name, row in buffers.items()]))
    entries = {(row["generation"], row["operation"]): row["leastSystemCalls"] for row in results.counts}
    for name, row in buffers.items():
        generation, operation = name.split("/")
        bare = rows[name]["peer_ns"]
        text.append(f"On {generation} the bare exchange enters the kernel {entries[generation, operation]} times, in "
                    f"{bare / entries[generation, operation]:.0f} ns each on this machine; the goal leaves "
                    f"{(LONG_OPERATIONS_GOAL - 1) * bare:.0f} ns beside that. The library takes "
                    f"{rows[name]['ours_ns'] - bare:.0f} ns, {row['peer_ns'] - bare:.0f} of them for the buffers.\n")
    return text


def instruction_section(results):
    kinds = ["own", "Qt", "log4cplus", "C++ library", "C library"]
    cells = []
    for (generation, operation), row in results.library.items():
        floor = results.floor[(generation, operation)]
        added = [row.get("own", 0), row.get("Qt", 0), row.get("log4cplus", 0), row.get("C++ library", 0),
                 row.get("C library", 0) - floor.get("C library", 0)]
        total = sum(row.values())
        cells.append([generation, f"`{operation}`", f"**{number(total / sum(floor.values()))}**", total,
                      sum(floor.values()), *added])
    worst = max(row.get("own", 0) for (_, operation), row in results.library.items() if operation.endswith("Version"))
    return [
        "## Instructions\n",
        "Counted by callgrind for one call in user space, the same on every run. The two sums hold the fake device, "
        "which is the same on both sides; the columns to the right are what the library adds, by whose code it is.\n",
        table(["chip", "operation", "ratio", "library", "floor", *kinds], cells),
        f"A version query executes {worst} instructions of our own (goal: at most {INSTRUCTIONS_GOAL}, "
        f"{'met' if worst <= INSTRUCTIONS_GOAL else '**missed**'}). Where the rest comes from:\n",
        "- **Qt**: acquire() and release() of the system-wide semaphore around the two semop calls, the same for every "
        "operation.\n"
        "- **log4cplus**: one check of the level for each disabled line, 24 instructions.\n"
        "- **C and C++ library**: the allocations: a fresh buffer for each message that carries data (register number "
        "and data must leave in one message) and the block of the answer. They are why signing costs more above its "
        "floor than a query does: four messages with data on 2.0B (two lengths, challenge, command) and two on 3.0.\n"
        "- **own**: gates of the console statements, assertions, retry loops, byte order.\n",
        "The test `Instructions.PerOperationAreThoseOfTheTable` of the ordinary suite holds our own count and that of "
        "Qt, log4cplus and the C++ library within 3 % of a table per compiler version.\n",
    ]


def count_section(results):
    cells = [[row["generation"], f"`{row['operation']}`",
              "not traceable" if row["systemCalls"] is None else row["systemCalls"], row["leastSystemCalls"],
              row["allocations"], row["leastAllocations"]] for row in results.counts]
    return [
        "## System calls and allocations\n",
        "Counted exactly, from outside (ptrace) and in the allocator. The least is what the exchange needs: a lock, its "
        "messages, an unlock; the block of the answer. What is above it is the buffer of each message with data.\n",
        table(["chip", "operation", "system calls", "least", "allocations", "least"], cells),
    ]


def bus_section(results, plots):
    rows = results.group("bus/")
    keys = ("wire_ns", "chip_ns", "pause_ns", "library_ns")
    cells = []
    worst = 0
    for name, row in rows.items():
        frequency, generation, operation = name.split("/")
        total = sum(row[key] for key in keys)
        shares = [100 * row[key] / total for key in keys]
        if frequency == "400 kHz":
            worst = max(worst, shares[3])
        cells.append([frequency, generation, operation, duration(total),
                      *(f"{share:.2f} %" for share in shares[:3]), f"{shares[3]:.4f} %", duration(row["library_ns"])])
    return [
        "## On a bus\n",
        "The chip and the bus are simulated and pass their time on a clock that nobody waits for, so wire, chip and "
        "pause are exact: the wire carries nine bits per byte, the chip refuses its address while it signs, and the "
        "pause is what is still slept of a retry's 10 ms when the chip is ready. The library's time is real: all that "
        "passes between the system calls, with half the cost of looking at the clock in it.\n",
        plots.bus(rows),
        table(["bus", "chip", "operation", "total", "wire", "chip", "pause", "library", "library"], cells),
        f"The library's largest share at 400 kHz is {worst:.2f} % (goal: under {LIBRARY_SHARE_GOAL} %, "
        f"{'met' if worst < LIBRARY_SHARE_GOAL else '**missed**'}).\n",
    ]


def peer_section(results):
    cells = []
    for name, row in results.group("peers/").items():
        exchange, _, peer = name.partition("/")
        if not peer:
            exchange, peer = "version query", exchange
        cells.append([exchange, peer, *ratio_cells(row)])
    return [
        "## Other ways to talk to the chip\n",
        "The same exchange on the same instant device. The scripts take no lock, and their reads are combined "
        "transfers, one entry into the kernel where the library makes two; the shell script starts a process for each "
        "query. Certificate and signing is the whole of an authentication on 3.0.\n",
        table(["exchange", "peer", *RATIO_HEAD], cells),
    ]


def capture_section(results):
    rows = results.group("capture/")
    if not rows:
        return []
    cells = [[name, *ratio_cells(row), duration(row["added_per_message_ns"])] for name, row in rows.items()]
    worst = max(row["added_per_message_ns"] for row in rows.values())
    return [
        "## What a capture costs\n",
        "The same host on the instant device with and without `authchip capture`. Each message is appended to the file "
        "with one system call; without a capture nothing is loaded, and nothing is paid.\n",
        table(["exchange", RATIO_HEAD[0], "with a capture", "without", "added to a message"], cells),
        f"A capture adds {duration(worst)} to a message (goal: at most {duration(CAPTURE_GOAL)}, "
        f"{'met' if worst <= CAPTURE_GOAL else '**missed**'}).\n",
    ]


def startup_section(results):
    rows = results.group("tool/startup/")
    whole = rows["i2cget, and loading and unloading the library"]
    return [
        "## How quickly the tool starts\n",
        "`authchip info` from its start to its end, where there is no node, beside `i2cget` in the same place plus what "
        "the library takes in any process: to be loaded, and to remove its lock and end its threads at the end.\n",
        table(["peer", RATIO_HEAD[0], "`authchip`", "peer"], [[name, *ratio_cells(row)] for name, row in rows.items()]),
        f"The tool takes {ratio(whole)} of the time that both take from start to end (goal: at most {STARTUP_GOAL}, "
        f"{'met' if whole['ratio'] <= STARTUP_GOAL else '**missed**'}).\n",
    ]


def lock_section(results, plots):
    free = results.group("locks/free/")
    fought = {}
    for name, row in results.group("locks/fought over/").items():
        peer, _, processes = name.rpartition("/")
        fought.setdefault(peer, {})[int(processes)] = row
    ours = next(iter(free.values()))
    cells = [[peer, *ratio_cells(row), "yes" if row["peer_survives"] else "**no**"] for peer, row in free.items()]
    cells.append(["ours (QSystemSemaphore)", "", duration(ours["ours_ns"]), "",
                  "yes" if ours["ours_survives"] else "**no**"])
    counts = sorted({count for rows in fought.values() for count in rows})
    fought_cells = [[peer, *(f"{ratio(rows[count])}<br>{duration(rows[count]['ours_ns'])} : "
                             f"{duration(rows[count]['peer_ns'])}" for count in counts)]
                    for peer, rows in fought.items()]
    series = {peer: (sorted(rows), [rows[count]["peer_ns"] for count in sorted(rows)], None)
              for peer, rows in fought.items()}
    # One system call costs hundreds of nanoseconds: what is this quick does not enter the kernel.
    in_memory = {peer: row for peer, row in free.items() if row["ratio"] > 10}
    surviving = [peer for peer, row in in_memory.items() if row["peer_survives"]]
    dearest = max(row["ours_ns"] for rows in fought.values() for row in rows.values())
    all_ours = [sorted(rows[count]["ours_ns"] for rows in fought.values()) for count in counts]
    series["ours (QSystemSemaphore)"] = (counts, [values[len(values) // 2] for values in all_ours], "black")
    return [
        "## The system-wide lock\n",
        "Nobody else wants the lock (lock and unlock once):\n",
        table(["peer", *RATIO_HEAD, "survives a killed holder"], cells),
        "So many processes want it, all the time, with nothing to do while they hold it (per lock and unlock, whoever "
        "made it):\n",
        table(["peer", *(f"{count} processes" for count in counts)], fought_cells),
        plots.lines("locks", "Locks that several processes fight over", "processes", "ns per lock and unlock", series,
                    (True, True)),
        f"A lock in shared memory ({listed(list(in_memory))}) does not enter the kernel while nobody else wants it; a "
        f"SysV semaphore enters it twice and takes {factors(in_memory.values())} times as long. Of the locks in shared "
        f"memory these survive a killed holder: {listed(surviving)}; they need memory that all processes have agreed on. "
        "When two processes collide, a SysV semaphore wakes the next one at every release and puts itself to sleep. "
        f"The dearest lock and unlock of ours in the table took {duration(dearest)}; a bus transfer inside the lock takes "
        "100 µs and more.\n",
    ]


def wrapper_section(results, plots):
    rows = results.group("wrappers/")
    crowd_title = "queue of so many producers and consumers/"
    crowd = {}
    cells = []
    for name, row in rows.items():
        if name.startswith(crowd_title):
            peer, _, producers = name[len(crowd_title):].rpartition("/")
            crowd.setdefault(peer, {})[int(producers)] = row
        else:
            what, _, peer = name.partition("/")
            cells.append([what, peer, *ratio_cells(row)])
    for name, row in results.group("sockets/").items():
        what, _, peer = name.partition("/")
        cells.append([what, peer, *ratio_cells(row)])
    counts = sorted({count for peers in crowd.values() for count in peers})
    crowd_cells = [[peer, *(f"{ratio(peers[count])}<br>{duration(peers[count]['ours_ns'])} : "
                            f"{duration(peers[count]['peer_ns'])}" for count in counts)]
                   for peer, peers in crowd.items()]
    series = {peer: (sorted(peers), [peers[count]["peer_ns"] for count in sorted(peers)], None)
              for peer, peers in crowd.items()}
    all_ours = [sorted(peers[count]["ours_ns"] for peers in crowd.values()) for count in counts]
    series["ours (QueueVoid)"] = (counts, [values[len(values) // 2] for values in all_ours], "black")
    alone = {name: row for name, row in rows.items() if name.startswith("queue alone/")}
    with_zone = results.group("time zone set/wrappers/")
    qt = {kind: [row for name, row in rows.items() if name.startswith(kind) and name.endswith(peer)]
          for kind, peer in (("mutex", "/QMutex"), ("event", "/two QSemaphores"))}
    return [
        "## Wrappers and sockets\n",
        "Alone: one thread does both halves (lock and unlock, set and wait, push and pop). Between two threads: the mutex "
        "is wanted by both, the event goes there and back.\n",
        table(["what", "peer", *RATIO_HEAD], cells),
        "So many producers and as many consumers (time for as many values as there are producers):\n",
        table(["peer", *(f"{count} and {count}" for count in counts)], crowd_cells),
        plots.lines("queue", "A queue between producers and consumers", "producers, and as many consumers",
                    "ns per value of each producer", series, (True, True)),
        f"`Mutex` takes {factors(qt['mutex'])} times as long as the Qt class, `EventVoid` {factors(qt['event'])} times, "
        f"`QueueVoid` alone {factors(alone.values())} times as long as its peers. Each pop() looks twice at the local time "
        "of day, for the remaining time that it reports, and local time makes the C library look at the time zone's file "
        f"each time unless the environment variable TZ is set. With TZ set to `:/etc/localtime` it is "
        f"{factors(with_zone.values())} times. That reading of the clock is part of what pop() promises:\n",
        table(["what", "peer", *RATIO_HEAD],
              [[*name.split("/"), *ratio_cells(row)]
               for name, row in with_zone.items()]),
    ]


def logger_section(results):
    cells = [[*name.split("/"), *ratio_cells(row)] for name, row in results.group("loggers/").items()]
    return [
        "## Log statements\n",
        "Open gates write to `/dev/null` and write each line out at once, as does spdlog here. The integer test is what "
        "a closed gate cannot do without.\n",
        table(["statement", "peer", *RATIO_HEAD], cells),
        "A closed console gate is one call through the dynamic linker and one comparison, a closed driver line asks "
        "log4cplus for the level in force.\n",
    ]


def size_section(results):
    row = results.benchmarks["size/time to load/Qt Core and log4cplus alone"]

    def megabytes(value):
        return f"{float(value) / 1000:.1f} kB"

    native, armhf = results.sizes["native"], results.sizes["armhf"]

    def cell(sizes, key, form):
        return form(sizes[key][0]) if key in sizes else "not measured"

    def load_of_armhf():
        if "ratio" not in armhf:
            return "not measured"
        values = {key: float(values[0]) for key, values in armhf.items()}
        return f"{ratio(values)}: {duration(values['ours_ns'])} beside {duration(values['peer_ns'])}"

    return [
        "## Size and start\n",
        "The peer of loading is to load what the library needs, Qt Core and log4cplus, and nothing else; each in a new "
        "process. A host that uses Qt anyway pays the difference.\n",
        table(["", "native", "armhf (load and memory: **under an emulator**)"], [
            ["file, stripped", cell(native, "stripped_bytes", megabytes), cell(armhf, "stripped_bytes", megabytes)],
            ["file, as built", cell(native, "built_bytes", megabytes), cell(armhf, "built_bytes", megabytes)],
            ["relocations", cell(native, "relocations", str), cell(armhf, "relocations", str)],
            ["private dirty memory, the library's own", megabytes(row["own_private_dirty_bytes"]),
             cell(armhf, "own_private_dirty_bytes", megabytes)],
            ["private dirty memory, with all it needs", megabytes(row["ours_private_dirty_bytes"]),
             cell(armhf, "ours_private_dirty_bytes", megabytes)],
            ["private dirty memory, of what it needs alone", megabytes(row["peer_private_dirty_bytes"]),
             cell(armhf, "peer_private_dirty_bytes", megabytes)],
            ["time to load, ratio",
             f"{ratio(row)}: {duration(row['ours_ns'])} beside {duration(row['peer_ns'])}", load_of_armhf()],
        ]),
    ]


def growth_section(results, plots):
    text = [
        "## Growth\n",
        "What an operation costs may grow with the bytes that it moves and with nothing else. The bare system calls "
        "stand beside it again.\n",
    ]
    for name, what, xlabel in (("certificate length", "getAccessoryCertificateData", "bytes of the certificate"),
                               ("challenge length", "newSignature", "bytes of the challenge"),
                               ("response length", "newSignature", "bytes of the signature")):
        xs, ours, floor = growth(results.group(f"growth/{name}/"))
        text.append(plots.lines(name.replace(" ", "-"), f"Time of {what} and the {name}", xlabel, "ns per call",
                                {what: (xs, ours, OURS), "bare system calls": (xs, floor, PEER)}))
    xs, ours, floor = growth(results.group("growth/certificate length/"))
    text.append(f"From {xs[0]} to {xs[-1]} bytes of certificate the library's time grows by "
                f"{(ours[-1] - ours[0]) / (xs[-1] - xs[0]):.2f} ns per byte, that of the bare system calls by "
                f"{(floor[-1] - floor[0]) / (xs[-1] - xs[0]):.2f}: it is a page of 128 bytes that costs, by its two "
                "entries into the kernel.\n")
    series = {}
    cells = []
    for kind, colours in (("threads", (OURS, PEER)), ("processes", ("#68b0cc", "#e3a06f"))):
        rows = results.group(f"growth/{kind}/")
        xs, ours, floor = growth(rows)
        series[f"library, {kind}"] = (xs, ours, colours[0])
        series[f"bare system calls, {kind}"] = (xs, floor, colours[1])
        cells += [[kind, x, *ratio_cells(rows[str(x)])] for x in xs]
    text.append(plots.lines("crowds", "Time of a version query and the number that share the bus",
                            "threads or processes that query all the time", "ns per query, whoever makes it", series,
                            (True, True)))
    text.append(table(["by", "how many", *RATIO_HEAD], cells))
    text.append("Each turn of a crowd is 512 queries. Two things can happen: one member is through before the next "
                "begins, and nobody waits; or they meet, and from then on a SysV semaphore is handed from sleeper to "
                "sleeper, so that each query waits for the scheduler, the longer the busier the processors are with "
                "other work. That is where the wide quartiles come from. It is the same for the bare system calls, "
                "which use the same kind of semaphore, and with a bus that is busy for 100 µs per query the members "
                "meet all the time and wait for the bus.\n")
    return text


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    results = Results(Path(sys.argv[1]))
    docs = Path(sys.argv[2])
    plots = Plots(docs)
    page = [
        *introduction(results), *floor_section(results, plots), *instruction_section(results), *count_section(results),
        *bus_section(results, plots), *peer_section(results), *capture_section(results),
        *startup_section(results), *lock_section(results, plots),
        *wrapper_section(results, plots), *logger_section(results), *size_section(results),
        *growth_section(results, plots),
    ]
    (docs / "benchmarks.md").write_text("\n".join(page))
    (docs / "benchmarks" / "results.json").write_text(json.dumps(results.as_json(), indent=1) + "\n")


if __name__ == "__main__":
    main()
