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
WIDE_QUARTILES = 1.5  # upper / lower, from which on the page explains them
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


# What the text derives from the results.

def shortest_wire(results):
    """Nanoseconds on the wire of the shortest operation, on a bus of 400 kHz."""
    return min(row["wire_ns"] for name, row in results.group("bus/").items() if name.startswith("400 kHz/"))


def allocating_operations(results):
    return [f"`{row['operation']}` ({row['generation']})" for row in results.counts if row["allocations"] > 0]


def signing_allocations(results):
    return " and ".join(f"{row['allocations']} allocations on {row['generation']}" for row in results.counts
                        if row["operation"] == "newSignature")


def more_than_least(results):
    above = [row for row in results.counts if row["allocations"] > row["leastAllocations"]
             or (row["systemCalls"] or 0) > row["leastSystemCalls"]]
    return "No operation needs more." if not above else "The rest is the buffer of each message with data."


def kind_range(results, kind):
    """How many instructions of a kind the operations that have any execute: "202 instructions"."""
    counts = sorted({row[kind] for row in results.library.values() if row.get(kind)})
    if not counts:
        return "none"
    return f"{counts[0]} instructions" if len(counts) == 1 else f"{counts[0]} to {counts[-1]} instructions"


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
        "Every figure is the ratio of two things that take turns in one run of one program: about 50 µs of the one, then "
        "of the other, hundreds of times. The figure is the median of the ratios of all turns, followed by the lower and "
        "the upper quartile. Times are there for scale only. `scripts/bench` writes this page again on any machine.\n",
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
            "**The machine was not quiet:** as the load shows, other programs ran on the same cores. This hardly affects "
            "ratios of turns. Where the quartiles are far apart, and where several processors are needed at once (crowds "
            "of threads and processes), the ratios show only an order of magnitude.\n")
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
        "The peer is a loop that only replays the messages of the operation (semop, write, read, semop). Both use the same "
        "instant device: each transfer enters the kernel once, on `/dev/zero`, and then gets the chip's bytes. Logging is "
        f"off. On a bus of 400 kHz the shortest of these operations takes {duration(shortest_wire(results))} on the wire, "
        "see [below](#on-a-bus).\n",
        plots.floor(rows),
        table(["chip", "operation", *RATIO_HEAD, "goal", ""], cells),
    ]
    if missed:
        text.append(f"{len(rows) - len(missed)} of {len(rows)} operations meet their goal or have none. These do not: "
                    + ", ".join(f"`{name}`" for name in missed)
                    + ". The instructions below show where the difference comes from.\n")
    buffers = results.group("floor with buffers/")
    text.append(f"The operations that allocate are {listed(allocating_operations(results))}: their interface needs a new "
                "buffer for each message with data, and signing a block for the answer. The same for signing, beside a loop "
                "that also allocates these:\n")
    text.append(table(["chip", "operation", *RATIO_HEAD],
                      [[*name.replace("newSignature", "`newSignature`").split("/"), *ratio_cells(row)]
                       for name, row in buffers.items()]))
    entries = {(row["generation"], row["operation"]): row["leastSystemCalls"] for row in results.counts}
    for name, row in buffers.items():
        generation, operation = name.split("/")
        bare = rows[name]["peer_ns"]
        text.append(f"On {generation} the bare exchange enters the kernel {entries[generation, operation]} times, which "
                    f"takes {bare / entries[generation, operation]:.0f} ns each on this machine. The goal allows "
                    f"{(LONG_OPERATIONS_GOAL - 1) * bare:.0f} ns more. The library takes "
                    f"{rows[name]['ours_ns'] - bare:.0f} ns more, {row['peer_ns'] - bare:.0f} of them for the buffers.\n")
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
        "Counted by callgrind for one call in user space; the same in every run. Both sums include the fake device, which "
        "is the same on both sides. The columns to the right show what the library adds, by the owner of the code.\n",
        table(["chip", "operation", "ratio", "library", "floor", *kinds], cells),
        f"A version query executes {worst} instructions of our own (goal: at most {INSTRUCTIONS_GOAL}, "
        f"{'met' if worst <= INSTRUCTIONS_GOAL else '**missed**'}). Where the rest comes from:\n",
        f"- **Qt**: acquire() and release() of the system-wide semaphore around the two semop calls; {kind_range(results, 'Qt')} "
        "in every operation.\n"
        f"- **log4cplus**: one check of the level for each disabled line; {kind_range(results, 'log4cplus')}.\n"
        "- **C and C++ library**: the allocations. Each message with data needs a new buffer, because register number and "
        f"data must be one message, and signing needs the block of the answer: {signing_allocations(results)}.\n"
        "- **own**: gates of the console statements, assertions, retry loops, byte order.\n",
        "The test `Instructions.PerOperationAreThoseOfTheTable` of the normal suite compares our own count and those of "
        "Qt, log4cplus and the C++ library with a table for each compiler version, to 3 %.\n",
    ]


def count_section(results):
    cells = [[row["generation"], f"`{row['operation']}`",
              "not traceable" if row["systemCalls"] is None else row["systemCalls"], row["leastSystemCalls"],
              row["allocations"], row["leastAllocations"]] for row in results.counts]
    return [
        "## System calls and allocations\n",
        "Counted exactly, with ptrace and in the allocator. The least is what the exchange needs: a lock, its messages, an "
        "unlock, and the block of the answer. " + more_than_least(results) + "\n",
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
        "The chip and the bus are simulated on a clock that only counts, so wire, chip and pause are exact. The wire "
        "carries nine bits per byte. The chip refuses its address while it signs. The pause is the rest of a retry's sleep "
        "after the chip is ready. The library's time is real: the time between the system calls, including half the cost "
        "of reading the clock.\n",
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
        "The same exchange on the same instant device. The scripts take no lock. They read with combined transfers, which "
        "enter the kernel once; the library enters it twice. The shell script starts a process for each query. "
        "\"Certificate and signing\" is a whole authentication on 3.0.\n",
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
        "The same host on the instant device, with and without `authchip capture`. Each message is appended to the file with "
        "one system call. Without a capture nothing is loaded, so it costs nothing.\n",
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
    # A system call costs hundreds of nanoseconds, so locks this fast do not enter the kernel.
    in_memory = {peer: row for peer, row in free.items() if row["ratio"] > 10}
    surviving = [peer for peer, row in in_memory.items() if row["peer_survives"]]
    dearest = max(row["ours_ns"] for rows in fought.values() for row in rows.values())
    all_ours = [sorted(rows[count]["ours_ns"] for rows in fought.values()) for count in counts]
    series["ours (QSystemSemaphore)"] = (counts, [values[len(values) // 2] for values in all_ours], "black")
    return [
        "## The system-wide lock\n",
        "No other process wants the lock (lock and unlock once):\n",
        table(["peer", *RATIO_HEAD, "survives a killed holder"], cells),
        "Several processes want it all the time, and do nothing while they hold it (time per lock and unlock of any "
        "process):\n",
        table(["peer", *(f"{count} processes" for count in counts)], fought_cells),
        plots.lines("locks", "Locks that several processes want at once", "processes", "ns per lock and unlock", series,
                    (True, True)),
        f"A lock in shared memory ({listed(list(in_memory))}) does not enter the kernel while no other process wants it. A "
        f"SysV semaphore enters it twice and takes {factors(in_memory.values())} times as long. Of the locks in shared "
        f"memory, these survive a killed holder: {listed(surviving)}. They need memory that all processes share. When two "
        "processes collide, each release of a SysV semaphore wakes the next process; the releasing one then sleeps. Our "
        f"slowest lock and unlock in the table took {duration(dearest)}. The shortest operation inside the lock takes "
        f"{duration(shortest_wire(results))} on a bus of 400 kHz.\n",
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
        "Alone: one thread does both halves (lock and unlock, set and wait, push and pop). Between two threads: both want "
        "the mutex; the event goes to the other thread and back.\n",
        table(["what", "peer", *RATIO_HEAD], cells),
        "Several producers and as many consumers (time until each producer has passed one value):\n",
        table(["peer", *(f"{count} and {count}" for count in counts)], crowd_cells),
        plots.lines("queue", "A queue between producers and consumers", "producers, and as many consumers",
                    "ns per value of each producer", series, (True, True)),
        f"`Mutex` takes {factors(qt['mutex'])} times as long as the Qt class, `EventVoid` {factors(qt['event'])} times, and "
        f"`QueueVoid` alone {factors(alone.values())} times as long as its peers. Each pop() reads the local time of day "
        "twice, because it reports the remaining time. For this the C library checks the file of the time zone each time, "
        f"unless the environment variable TZ is set. With TZ set to `:/etc/localtime` it is {factors(with_zone.values())} "
        "times. The interface of pop() needs these two readings:\n",
        table(["what", "peer", *RATIO_HEAD],
              [[*name.split("/"), *ratio_cells(row)]
               for name, row in with_zone.items()]),
    ]


def logger_section(results):
    cells = [[*name.split("/"), *ratio_cells(row)] for name, row in results.group("loggers/").items()]
    return [
        "## Log statements\n",
        "Open gates write each line to `/dev/null` at once, and so does spdlog here. The integer test is the least that a "
        "closed gate needs.\n",
        table(["statement", "peer", *RATIO_HEAD], cells),
        "A closed console gate is one call through the dynamic linker and one comparison. A closed driver line asks "
        "log4cplus for the current level.\n",
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
        "The peer loads only what the library needs, Qt Core and log4cplus; each in a new process. For a host that uses Qt "
        "anyway, only the difference counts.\n",
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
        "The cost of an operation may grow only with the bytes that it moves. The peer is again the bare system calls.\n",
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
                f"{(floor[-1] - floor[0]) / (xs[-1] - xs[0]):.2f}. The cost is that of the pages of 128 bytes, each with "
                "two entries into the kernel.\n")
    series = {}
    cells = []
    for kind, colours in (("threads", (OURS, PEER)), ("processes", ("#68b0cc", "#e3a06f"))):
        rows = results.group(f"growth/{kind}/")
        xs, ours, floor = growth(rows)
        series[f"library, {kind}"] = (xs, ours, colours[0])
        series[f"bare system calls, {kind}"] = (xs, floor, colours[1])
        cells += [[kind, x, *ratio_cells(rows[str(x)])] for x in xs]
    text.append(plots.lines("crowds", "Time of a version query and the number that share the bus",
                            "threads or processes that query all the time", "ns per query of any of them", series,
                            (True, True)))
    text.append(table(["by", "how many", *RATIO_HEAD], cells))
    text.append(crowd_explanation(results))
    return text


def crowd_explanation(results):
    crowds = [row for kind in ("threads", "processes") for row in results.group(f"growth/{kind}/").values()]
    widest = max(row["ratio_high"] / row["ratio_low"] for row in crowds)
    text = ("Each turn of a crowd has 512 queries. Either each member finishes before the next one begins, and none waits. Or "
            "they meet, and then the SysV semaphore goes from one sleeping member to the next, so that each query waits for "
            "the scheduler; the bare system calls use the same kind of semaphore. ")
    if widest > WIDE_QUARTILES:
        text += (f"Which of the two happens differs from turn to turn: the upper quartile is up to {number(widest)} times the "
                 "lower one. ")
    return text + ("On a bus that is busy for 100 µs per query, the members always meet and wait for the bus.\n")


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
