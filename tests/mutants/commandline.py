"""scripts/mutate: its options, its run and its report."""
import argparse
import os
import queue
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import zlib
from collections import namedtuple
from pathlib import Path

import judge
import page
import reach
import syntax
from batch import Batch, batches
from further import Further
from operators import OPERATORS, mutants_of
from products import LIBRARY, PROGRAMS
from results import Results
from reviewed import Reviewed, identities
from workshop import Bench, Recipe, Workshop, digest, users_of

ROOT = Path(__file__).resolve().parent.parent.parent
KEPT = ROOT / "build" / "mutants"  # from run to run

ENOUGH_OF_PROGRAMS = 0.95  # of their mutants; of the library's, all are to be noticed
INTERRUPTED = 130
TESTS_BEFORE_COMPARING = 15  # then it pays to see first whether the machine code is another

Verdict = namedtuple("Verdict", "outcome by")  # outcome: refused, same, noticed or unnoticed


def refuse(message):
    print("scripts/mutate: %s; --help lists the options" % message, file=sys.stderr)
    sys.exit(2)


def options_of(arguments):
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--changed", nargs="?", const="")
    parser.add_argument("--file", action="append", default=[])
    parser.add_argument("--line")
    parser.add_argument("--operator", action="append", default=[], choices=OPERATORS)
    parser.add_argument("--function", action="append", default=[])
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--programs", action="store_true")
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--list-operators", action="store_true")
    parser.add_argument("--further", action="store_true")
    parser.add_argument("--page", action="store_true")
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)))
    parser.add_argument("--no-build", action="store_true")
    parser.add_argument("--progress", action="store_true", default=sys.stderr.isatty())
    parser.add_argument("--no-progress", dest="progress", action="store_false")
    parser.error = refuse
    options = parser.parse_args(arguments)
    if options.line and not re.fullmatch(r"\d+(-\d+)?", options.line):
        parser.error("--line takes a number or a range, not '%s'" % options.line)
    if options.programs and not options.list and os.geteuid() != 0:
        parser.error("--programs needs root: it shows the changed programs to each test in the place of the built ones")
    if options.every < 1:
        parser.error("--every takes a number from 1 on, not '%d'" % options.every)
    return options


# Choosing.

def all_mutants(recipe):
    """Every mutant of a product's sources, and of the library's headers, file by file."""
    units, found = {}, []
    for pattern in recipe.product.sources:
        headers = sorted(ROOT.glob(pattern + ".h")) if recipe.product.headers else []
        for path in sorted(ROOT.glob(pattern + ".cpp")) + headers:
            name = str(path.relative_to(ROOT))
            users = users_of(recipe, name)
            if not users:
                continue
            if users[0] not in units:
                units[users[0]] = syntax.parse(ROOT / users[0], recipe.clang_arguments(users[0]))
            found += mutants_of(syntax.Source(units[users[0]], path, name))
    return found


def chosen(recipe, mutants, options, names, results):
    lines = changed_lines(options.changed, recipe) if options.changed is not None else None
    first, last = None, None
    if options.line:
        first, _, last = options.line.partition("-")
        first, last = int(first), int(last or first)
    for mutant in mutants:
        name = mutant.source.name
        if zlib.crc32(names[mutant].encode()) % options.every != 0:
            continue
        if options.file and not any(text in name for text in options.file):
            continue
        if options.function and not any(text in mutant.function for text in options.function):
            continue
        if options.again and (results.of(mutant, names[mutant]) or ("unnoticed",))[0] != "unnoticed":
            continue
        if options.operator and mutant.operator not in options.operator:
            continue
        if first is not None and not first <= mutant.line <= last:
            continue
        end = mutant.line + mutant.original.count("\n")
        if lines is not None and not any(line in lines.get(name, ()) for line in range(mutant.line, end + 1)):
            continue
        yield mutant


def changed_lines(base, recipe):
    """File -> the lines that differ from a base."""
    for candidate in [base] if base else ["origin/main", "main"]:
        known = subprocess.run(["git", "-C", str(ROOT), "merge-base", candidate, "HEAD"], capture_output=True, text=True)
        if known.returncode == 0:
            break
    else:
        refuse("git does not know '%s'; name the base after --changed" % (base or "main"))
    difference = subprocess.run(["git", "-C", str(ROOT), "diff", "-U0", known.stdout.strip(), "--",
                                 *sorted({pattern.split("/")[0] for pattern in recipe.product.sources})],
                                capture_output=True, text=True, check=True).stdout
    lines, name = {}, None
    for line in difference.splitlines():
        if line.startswith("+++ "):
            name = line[len("+++ b/"):]
        elif line.startswith("@@"):
            start, _, count = re.search(r"\+(\d+)(,(\d+))?", line).group(1, 2, 3)
            lines.setdefault(name, set()).update(range(int(start), int(start) + int(count or 1)))
    return lines


# Making and judging.

class Run:
    def __init__(self, recipe, options, scratch):
        self.recipe = recipe
        self.options = options
        self.bench = Bench(recipe, scratch / "bench")
        self.tests = judge.Tests(ROOT, recipe.build, recipe, recipe.product.preset)
        self.workshops = []
        for number in range(options.jobs):
            folder = scratch / ("w%d" % number)
            folder.mkdir()
            self.workshops.append(Workshop(recipe, self.bench, folder))
        self.seen = {}  # digests of objects -> verdict
        self.lock = threading.Lock()

    def prepare(self):
        """Runs the tests on the unchanged product; returns those that fail."""
        found, failed = reach.survey(self.workshops[0], self.tests, ROOT / "tests" / "mutants" / "reach.cpp",
                                     KEPT / ("reach-%s.json" % self.recipe.product.name), self.options.jobs,
                                     lambda done, of: progress(self.options, "Tests on what is unchanged", done, of))
        self.tests.judges = [test for test in self.tests.judges if test.name not in failed]
        self.order = judge.Order(self.tests, found)
        return failed

    def tests_reaching(self, mutant):
        """The names of the tests that reach a mutant's function; none if it is no function's: all may notice."""
        for function in mutant.source.functions:
            if function.extent.start.offset <= mutant.span.start < function.extent.end.offset:
                lines = range(function.extent.start.line, function.extent.end.line + 1)
                reached = set()
                for line in lines:
                    reached |= self.order.reach.get((mutant.source.name, line), set())
                return reached
        return None

    def judge_group(self, members, workshop, report):
        """Judges the mutants of a batch, or one that stands alone."""
        if members[0][1] is None:
            mutant = members[0][0]
            report(mutant, self.judge_alone(mutant, workshop))
            return
        batch = Batch(workshop, members)
        for mutant in batch.refused:
            report(mutant, Verdict("refused", ""))
        for number, (mutant, _) in enumerate(batch.members, 1):
            report(mutant, self.try_tests(mutant, workshop, batch.activate(number)))

    def judge_alone(self, mutant, workshop):
        objects = workshop.compiled(mutant, "-O1")
        if objects is None:
            return Verdict("refused", "")
        if not objects:
            return Verdict("same", "")
        key = tuple(sorted((source, digest(compiled)) for source, compiled in objects.items()))
        with self.lock:
            known = self.seen.get(key)
        if known is None:
            try:
                known = self.try_tests(mutant, workshop, workshop.link(objects))
            except subprocess.CalledProcessError:  # the linker misses something
                known = Verdict("refused", "")
            with self.lock:
                self.seen[key] = known
        return known

    def try_tests(self, mutant, workshop, library):
        candidates = self.order.tests_for(mutant, self.tests_reaching(mutant))
        for index, test in enumerate(candidates):
            if index == TESTS_BEFORE_COMPARING and not workshop.compiled(mutant, "-O2"):
                return Verdict("same", "")
            reason = self.tests.passes(test, library, workshop.temporary)
            if reason == "failed":  # twice, or it only was a bad moment
                reason = self.tests.passes(test, library, workshop.temporary)
            if reason is not None:
                self.order.noticed(mutant, test)
                return Verdict("noticed", test.name + (", " + reason if reason != "failed" else ""))
        if len(candidates) <= TESTS_BEFORE_COMPARING and not workshop.compiled(mutant, "-O2"):
            return Verdict("same", "")
        return Verdict("unnoticed", "")

    def judge_all(self, mutants, report):
        waiting = queue.Queue()
        for group in batches(mutants):
            waiting.put(group)
        failures = []

        def work(workshop):
            while not failures:
                try:
                    members = waiting.get_nowait()
                except queue.Empty:
                    return
                try:
                    self.judge_group(members, workshop, report)
                except BaseException as error:  # raised again below
                    failures.append(error)
        threads = [threading.Thread(target=work, args=(workshop,), daemon=True) for workshop in self.workshops]
        for thread in threads:
            thread.start()
        try:
            for thread in threads:
                thread.join()
        except KeyboardInterrupt as error:
            failures.append(error)
            self.tests.end_all()
        if failures:
            raise failures[0]


# Reporting.

def progress(options, title, done, of, more=""):
    if options.progress:
        print("\r\033[K%s: %d of %d%s" % (title, done, of, more), end="" if done < of else "\n", file=sys.stderr,
              flush=True)


def described(mutant, identity):
    return "%s:%d  %s" % (mutant.source.name, mutant.line, identity.split("  ", 1)[1])


class Report:
    def __init__(self, options, names, reviewed, results):
        self.options = options
        self.names = names
        self.reviewed = reviewed
        self.results = results
        self.verdicts = {}
        self.started = time.monotonic()
        self.lock = threading.Lock()

    def __call__(self, mutant, verdict):
        with self.lock:
            self.verdicts[mutant] = verdict
            name = self.names[mutant]
            self.results.add(mutant, name, verdict)
            if len(self.verdicts) % 20 == 0:
                self.results.write()
            if verdict.outcome == "unnoticed" and name not in self.reviewed.entries:
                if self.options.progress:
                    print("\r\033[K", end="", file=sys.stderr)
                print("unnoticed: " + described(mutant, name), flush=True)
            open_ = len(self.survivors())
            spent = time.monotonic() - self.started
            left = spent / len(self.verdicts) * (len(self.names) - len(self.verdicts))
            progress(self.options, "Mutants", len(self.verdicts), len(self.names),
                     ", %d unnoticed, %d min left" % (open_, left // 60))

    def survivors(self):
        return [mutant for mutant, verdict in self.verdicts.items()
                if verdict.outcome == "unnoticed" and self.names[mutant] not in self.reviewed.entries]

    def share(self):
        """The part that is noticed of what can be noticed."""
        noticed, survivors = self.count("noticed"), len(self.survivors())
        return noticed / (noticed + survivors) if survivors else 1.0

    def count(self, outcome):
        return sum(verdict.outcome == outcome for verdict in self.verdicts.values())

    def summary(self):
        survivors = self.survivors()
        lines = ["%d mutants in %d s: %d noticed, %d make no difference to the machine code, the compiler refuses %d, "
                 "%d are reviewed, %d unnoticed" %
                 (len(self.verdicts), time.monotonic() - self.started, self.count("noticed"), self.count("same"),
                  self.count("refused"), self.count("unnoticed") - len(survivors), len(survivors))]
        for mutant, verdict in self.verdicts.items():
            if self.names[mutant] in self.reviewed.entries and verdict.outcome != "unnoticed":
                lines.append("no longer unnoticed (%s): %s" % (verdict.by or verdict.outcome,
                                                               described(mutant, self.names[mutant])))
        return lines, survivors


def look_further(run, survivors, report, scratch):
    further = Further(ROOT, scratch, lambda text: print("scripts/mutate: " + text, file=sys.stderr))
    for mutant in survivors:
        found = further.notices(mutant, run.tests_reaching(mutant))
        means = ", ".join("%s (%s)" % (name, test) for name, test in found.items() if test) or "nothing"
        print("%s\n    noticed by: %s" % (described(mutant, report.names[mutant]), means), flush=True)


def build(presets, options):
    subprocess.run([str(ROOT / "scripts" / "setup"), "build"], check=True)
    for preset in presets:
        for command in (["cmake", "--preset", preset], ["cmake", "--build", "--preset", preset]):
            done = subprocess.run(command, cwd=ROOT, check=False, text=True, stderr=subprocess.STDOUT,
                                  stdout=sys.stderr if options.progress else subprocess.PIPE)
            if done.returncode != 0:
                sys.exit(done.stdout or 1)


def main():
    options = options_of(sys.argv[1:])
    if options.list_operators:
        for name, what in OPERATORS.items():
            print("%-12s %s" % (name, what))
        return 0
    products = PROGRAMS if options.programs else (LIBRARY,)
    made = (LIBRARY, *PROGRAMS) if options.page else products
    if not options.no_build:
        build({product.preset for product in made}, options)
    results = Results(KEPT / "results.json")
    if options.page:
        return write_page([Mutants(product, results) for product in made], results)
    status, some = 0, False
    for product in products:
        mutants = Mutants(product, results)
        status = mutants.complain_of_entries() or status
        mutants.choose(options)
        some = some or mutants.chosen
        if options.list:
            for mutant in mutants.chosen:
                print(described(mutant, mutants.names[mutant]))
        elif mutants.chosen:
            status = judged(options, mutants, results) or status
            if status == INTERRUPTED:
                break
    if not some:
        print("no mutant" + (" in the lines that differ" if options.changed is not None else " is so described"),
              file=sys.stderr)
    return status


class Mutants:
    """The mutants of a product, by name, and the reviewed ones among them."""

    def __init__(self, product, results):
        self.product = product
        self.results = results
        self.recipe = Recipe(ROOT, ROOT / "build" / product.preset, product)
        self.every = all_mutants(self.recipe)
        self.names = identities(self.every)
        self.reviewed = Reviewed(ROOT / "tests" / "mutants" / "unobservable.txt")
        self.chosen = []

    def choose(self, options):
        self.chosen = list(chosen(self.recipe, self.every, options, self.names, self.results))

    def complain_of_entries(self):
        """Status 1 if an entry of the reviewed list names a file of this product and no mutant of it."""
        gone = [name for name in self.reviewed.entries
                if self.recipe.changes(Path(name.split("  ")[0])) and name not in self.names.values()]
        for name in gone:
            print("scripts/mutate: %s names no mutant: %s" % (self.reviewed.path.name, name), file=sys.stderr)
        return 1 if gone else 0

    def verdicts(self):
        """(mutant, name, outcome) for all that have been made since their source changed, and those that have not."""
        known = [(mutant, name, (self.results.of(mutant, name) or (None,))[0]) for mutant, name in self.names.items()]
        missing = [mutant for mutant, _, outcome in known if outcome is None]
        return [entry for entry in known if entry[2] is not None], missing


def write_page(products, results):
    sections = []
    for mutants in products:
        verdicts, missing = mutants.verdicts()
        if missing and mutants.product is LIBRARY:
            print("scripts/mutate: %d mutants of %s have not been made since their source changed, for example in %s "
                  "line %d; make them with --again" % (len(missing), mutants.product.name, missing[0].source.name,
                                                       missing[0].line), file=sys.stderr)
            return 1
        sections.append(page.Section(mutants.product, verdicts, len(missing), mutants.reviewed.entries))
    (ROOT / "docs" / "mutants.md").write_text(page.written(sections))
    return 0


def judged(options, mutants, results):
    judge.without_core_files()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    scratch = Path(tempfile.mkdtemp(prefix="mutate-"))
    scratch.chmod(0o755)  # some tests become another user
    try:
        run = Run(mutants.recipe, options, scratch)
        failed = run.prepare()
        for name in failed:
            print("scripts/mutate: fails without a change and is left out: " + name, file=sys.stderr)
        report = Report(options, {mutant: mutants.names[mutant] for mutant in mutants.chosen}, mutants.reviewed, results)
        try:
            run.judge_all(mutants.chosen, report)
        finally:
            results.write()
        lines, survivors = report.summary()
        print("\n".join([mutants.product.title, *lines]))
        if mutants.product is not LIBRARY:
            return 0 if report.share() >= ENOUGH_OF_PROGRAMS and not failed else 1
        if options.further:
            look_further(run, survivors, report, scratch)
        return 1 if survivors or len(lines) > 1 or failed else 0
    except KeyboardInterrupt:
        return INTERRUPTED
    finally:
        shutil.rmtree(scratch, ignore_errors=True)
