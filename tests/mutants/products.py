"""What scripts/mutate can change: the library, or a part of the tool or of the simulator."""
from collections import namedtuple

# preset: whose build folder has a compiler's command for each source; files: what is linked, as the build knows it, each
# with what marks its linker's command among those of the target; sources: globs from the root of the tree; headers: those
# globs stand for private headers, too; tests: the folders of tests/ that judge.
Product = namedtuple("Product", "name title preset files sources headers tests")

LIBRARY = Product("library", "The library", "dev", {"authchipdriver/all": "-soname"},
                  ("abstractionlibrary/*", "authchipdriver/*"), True,
                  ("abstractionlibrary", "authchipdriver", "binaryinterface", "exclusion", "loading"))

TOOL = ("tool/authchip", "tool/libauthchip-chip.so", "tool/libauthchip-verify.so")


def programs(name, title, files, tests, *sources):
    return Product(name, title, "separate", {file: " -o " + file + " " for file in files}, sources, False, tests)


# The decision code: what says "authentic", names a cause, judges the lock, or is the chip.
PROGRAMS = (
    programs("verification", "The tool: certificate, trust, verification, causes", ("tests/tool/tool_test", *TOOL),
             ("tool", "captures"), "tool/chip/advice*", "tool/chip/certificate*", "tool/chip/trust*",
             "tool/chip/verification*"),
    programs("lock", "The tool: the lock between processes", ("tests/tool/systemlock_test", "tests/tool/doctor_test", *TOOL),
             ("tool",), "tool/lock/*"),
    programs("doctor", "The tool: the doctor's checks", ("tests/tool/doctor_test", *TOOL), ("tool", "captures"),
             "tool/doctor/*"),
    programs("chip", "The simulator: the chip", ("tests/simulator/simulator_test", "simulator/authchip-sim"),
             ("simulator", "tool"), "simulator/chip/simulatedchip*"),
)

FOLDERS = ("abstractionlibrary", "authchipdriver", "common", "tool", "capture", "simulator")  # where headers are
