"""The tests that can notice a change of a product, and running them until one does."""
import json
import os
import re
import resource
import subprocess
import threading
import time
from collections import Counter
from pathlib import Path

from products import LIBRARY

# What looks at the headers or at the shared object as a file, and not at what it does.
NOT_JUDGES = re.compile(r"^Instructions|EachHeaderCompiles|TheSharedObjectIsSmall|NoSpellingOf")
SECONDS_MORE = 4
TIMES_LONGER = 20


class Test:
    def __init__(self, entry):
        self.name = entry["name"]
        self.command = entry["command"]
        properties = {item["name"]: item["value"] for item in entry.get("properties", [])}
        self.folder = properties["WORKING_DIRECTORY"]
        # As in ctest, a dot also stands for the end of a line.
        self.expected = [re.compile(text, re.DOTALL) for text in properties.get("PASS_REGULAR_EXPRESSION", [])]
        self.skipped = properties.get("SKIP_RETURN_CODE")
        self.labels = properties.get("LABELS", [])
        self.seconds = 1.0


class Tests:
    """The suite as ctest knows it, and how to run one test of it against another product."""

    def __init__(self, root, build, recipe, preset):
        shown = subprocess.run(["ctest", "--preset", preset, "--show-only=json-v1"], cwd=root, check=True,
                               capture_output=True, text=True).stdout
        every = [Test(entry) for entry in json.loads(shown)["tests"] if "command" in entry]
        self.files = {str(build / original): name for original, name in recipe.outputs.items()}
        self.is_library = recipe.product is LIBRARY
        self.running = set()
        self.ended = False
        inside = [str(build / "tests" / folder) for folder in recipe.product.tests]
        self.judges = [test for test in every if test.folder in inside and not NOT_JUDGES.search(test.name)]
        self.campaign = [test for test in every if test.folder == str(build / "tests" / "campaign")]
        self.instructions = [test for test in every if test.name.startswith("Instructions")]

    def passes(self, test, folder, temporary, limit=None, more=()):
        """None if the test passes with the product in a folder, otherwise why not."""
        with subprocess.Popen(self._command(test, folder, more), cwd=test.folder,
                              start_new_session=True, env={**os.environ, "TMPDIR": str(temporary)},
                              stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE if test.expected else subprocess.DEVNULL,
                              stderr=subprocess.STDOUT if test.expected else subprocess.DEVNULL) as process:
            self.running.add(process)
            try:
                output, _ = process.communicate(timeout=limit or test.seconds * TIMES_LONGER + SECONDS_MORE)
            except subprocess.TimeoutExpired:
                end(process)
                return "time limit"
            finally:
                self.running.discard(process)
        if self.ended:
            raise KeyboardInterrupt
        if test.expected:
            text = output.decode(errors="replace")
            return None if any(expected.search(text) for expected in test.expected) else "failed"
        return None if process.returncode in (0, test.skipped) else "failed"

    def _command(self, test, folder, more):
        # A program of the tool or of the simulator looks for others beside it, so it stays where it is built.
        moved = [word for word in test.command if word in self.files and (self.is_library or "/tests/" in word)]
        launcher, *command = [str(Path(folder) / self.files[word]) if word in moved else word for word in test.command]
        options = [word for word in command[:1] if word.startswith("--")]  # the launcher's own come before the environment
        command = command[len(options):]
        if self.is_library:
            return [launcher, *options, "LD_LIBRARY_PATH=%s" % folder, *more, *command]
        if moved:
            return [launcher, *options, *more, *command]
        # What calls the programs where they are built finds the changed ones there.
        variables = [word for word in command if re.match(r"[A-Z_]+=", word)]
        mounts = ["mount --bind %s %s" % (Path(folder) / name, original) for original, name in self.files.items()]
        return [launcher, *options, *more, *variables, "unshare", "--mount", "sh", "-c",
                " && ".join([*mounts, 'exec "$@"']), "sh", *command[len(variables):]]

    def end_all(self):
        """Ends the tests that run, when the user ends the command."""
        self.ended = True
        for process in list(self.running):
            process.terminate()


def end(process):
    """Ends a test with all that it has started, which is left to the program that keeps it apart."""
    process.terminate()
    try:
        process.communicate(timeout=SECONDS_MORE)
    except subprocess.TimeoutExpired:
        process.kill()
        process.communicate()


class Order:
    """Which tests reach a function, those first that noticed the most changes near by."""

    def __init__(self, tests, reach):
        self.tests = tests
        self.reach = reach  # (file, line of the function) -> names of tests; empty: not known
        self.kills = {}
        self.lock = threading.Lock()

    def tests_for(self, mutant, reached):
        with self.lock:
            near = Counter(self.kills.get((mutant.source.name, mutant.function), ()))
            far = Counter(self.kills.get(mutant.source.name, ()))
        candidates = [test for test in self.tests.judges if reached is None or test.name in reached]
        own = Path(mutant.source.name).parts[0]
        return sorted(candidates, key=lambda test: (-near[test.name], -far[test.name],
                                                    not test.folder.endswith(own), test.seconds))

    def noticed(self, mutant, test):
        with self.lock:
            for key in ((mutant.source.name, mutant.function), mutant.source.name):
                self.kills.setdefault(key, Counter())[test.name] += 1


def without_core_files():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
