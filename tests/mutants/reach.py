"""Which functions of a product each test reaches, and how long each takes: seen once, then kept."""
import hashlib
import json
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from products import FOLDERS
from workshop import run


def survey(workshop, tests, recorder, cache, jobs, say):
    """Returns (reach, failures): (file, line) -> names of tests, and the tests that fail on an unchanged product."""
    key = fingerprint(workshop, tests)
    if cache.exists():
        kept = json.loads(cache.read_text())
        if kept["key"] == key:
            for test in tests.judges:
                test.seconds = kept["seconds"][test.name]
            return {(file, line): set(names) for file, line, names in kept["reach"]}, kept["failures"]
    original = workshop.original()
    failures = on_all_tests(tests, original, workshop.temporary, jobs, time_one, say)
    failed = [name for name, reason in failures.items() if reason]
    reach = reached(workshop, tests, recorder, jobs, say)
    cache.parent.mkdir(parents=True, exist_ok=True)
    cache.write_text(json.dumps({"key": key, "seconds": {test.name: test.seconds for test in tests.judges},
                                 "failures": failed,
                                 "reach": [[*place, sorted(names)] for place, names in reach.items()]}))
    return reach, failed


def fingerprint(workshop, tests):
    """Changes with the sources and with the test programs."""
    content = hashlib.sha256()
    for file in sorted(workshop.tree.rglob("*.[ch]*")):
        content.update(file.read_bytes())
    programs = {word for test in tests.judges for word in test.command
                if Path(word).is_file() and not (tests.is_library and word in tests.files)}
    for program in sorted(programs):
        content.update(Path(program).read_bytes())
    return content.hexdigest()


def on_all_tests(tests, library, temporary, jobs, what, say):
    temporary.mkdir(exist_ok=True)
    with ThreadPoolExecutor(jobs) as pool:
        results = {}
        for test, result in zip(tests.judges, pool.map(lambda test: what(tests, test, library, temporary),
                                                       tests.judges)):
            results[test.name] = result
            say(len(results), len(tests.judges))
        return results


def time_one(tests, test, library, temporary):
    started = time.monotonic()
    reason = tests.passes(test, library, temporary, limit=120)
    test.seconds = time.monotonic() - started
    return reason


def reached(workshop, tests, recorder, jobs, say):
    objects = {}
    options = ["-O0", "-g", "-finstrument-functions", "-finstrument-functions-exclude-file-list=/usr/"]
    for source, command in workshop.recipe.sources.items():
        objects[source] = workshop.folder / ("reach-%s.o" % source.replace("/", "-"))
        run([*command, "-w", *options, "-c", source, "-o", str(objects[source])], cwd=workshop.tree)
    recorded = workshop.folder / "recorder.o"
    library = ["-DMUTANTS_LIBRARY=\"%s\"" % name for name in workshop.recipe.outputs.values() if tests.is_library]
    run(["g++", "-std=gnu++17", "-O1", "-fPIC", *library, "-c", str(recorder), "-o", str(recorded)])
    instrumented = workshop.link(objects, [recorded])

    def mark(tests, test, library, temporary):
        prefix = "marks-%s-" % hashlib.sha1(test.name.encode()).hexdigest()
        tests.passes(test, library, temporary, limit=120, more=["MUTANTS_REACH=%s" % (workshop.folder / prefix)])
        places = []
        for marks in workshop.folder.glob(prefix + "*"):
            places += [(marks.name[len(prefix):], offset) for offset in marked_in(marks.read_bytes())]
            marks.unlink()
        return places

    marked = on_all_tests(tests, instrumented, workshop.temporary, jobs, mark, say)
    lines = {}
    for file in workshop.recipe.outputs.values():
        offsets = sorted({offset for places in marked.values() for of, offset in places if of == file})
        lines.update(zip([(file, offset) for offset in offsets], lines_of(instrumented / file, offsets)))
    reach = {}
    for name, places in marked.items():
        for place in places:
            reach.setdefault(lines[place], set()).add(name)
    return reach


def marked_in(content):
    offset = content.find(1)
    while offset >= 0:
        yield offset
        offset = content.find(1, offset + 1)


def lines_of(product, offsets):
    """File and line at which the function at each offset begins."""
    done = subprocess.run(["addr2line", "-e", str(product)], input="\n".join(map(hex, offsets)), check=True,
                          capture_output=True, text=True).stdout.splitlines()
    places = []
    for line in done:
        file, _, number = line.split(" ")[0].rpartition(":")
        part = next((index for index, name in enumerate(Path(file).parts) if name in FOLDERS), 0)
        places.append(("/".join(Path(file).parts[part:]), int(number) if number.isdigit() else 0))
    return places
