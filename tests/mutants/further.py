"""What else would notice a mutant: the random campaign, the table of instructions, the sanitizers."""
import json
import subprocess

from judge import Tests
from workshop import Bench, Recipe, Workshop

SANITIZERS = {"asan": "address, undefined", "tsan": "thread"}  # preset -> what it looks for
CAMPAIGN_SECONDS = 120


def environment_of(root, preset):
    """The variables that a test preset sets."""
    presets = json.loads((root / "CMakePresets.json").read_text())["testPresets"]
    variables = next(entry for entry in presets if entry["name"] == preset).get("environment", {})
    return ["%s=%s" % (name, value.replace("${sourceDir}", str(root))) for name, value in variables.items()]


class Build:
    """A build folder in which a mutant is compiled as everything else there."""

    def __init__(self, root, preset, optimisation, scratch):
        self.build = root / "build" / preset
        self.recipe = Recipe(root, self.build)
        self.tests = Tests(root, self.build, self.recipe, preset)
        self.variables = environment_of(root, preset)
        self.optimisation = optimisation
        folder = scratch / ("further-" + preset)
        folder.mkdir()
        self.workshop = Workshop(self.recipe, Bench(self.recipe, folder / "bench"), folder)

    def library_with(self, mutant):
        objects = self.workshop.compiled(mutant, self.optimisation)
        return self.workshop.link(objects) if objects else None

    def notices(self, mutant, tests):
        """The first of the tests that fails, if any."""
        try:
            library = self.library_with(mutant)
        except subprocess.CalledProcessError:
            library = None
        for test in tests if library is not None else []:
            if self.tests.passes(test, library, self.workshop.temporary, CAMPAIGN_SECONDS, self.variables):
                return test.name
        return None


class Further:
    def __init__(self, root, scratch, say):
        self.dev = Build(root, "dev", "-Og", scratch)
        self.sanitizers = {}
        for preset, title in SANITIZERS.items():
            if (root / "build" / preset / "tests").is_dir():
                self.sanitizers[title] = Build(root, preset, "-O2", scratch)
            else:
                say("build/%s is not there, so nothing is said about the sanitizer (%s); scripts/sanitize %s makes it" %
                    (preset, title, preset))

    def notices(self, mutant, reached):
        """Name of the means -> the test that fails, or none."""
        found = {"campaign": self.dev.notices(mutant, self.dev.tests.campaign),
                 "instructions": self.dev.notices(mutant, self.dev.tests.instructions)}
        for title, build in self.sanitizers.items():
            tests = [test for test in build.tests.judges + build.tests.campaign
                     if reached is None or test.name in reached or test in build.tests.campaign]
            found[title] = build.notices(mutant, tests)
        return found
