"""Builds a product again and again with one source changed, beside the build folder and never in it."""
import hashlib
import json
import re
import shlex
import shutil
import subprocess
import threading
from fnmatch import fnmatch
from pathlib import Path

from products import FOLDERS, LIBRARY

CHOICE = 'extern "C" __attribute__((visibility("hidden"))) int mutants_active;\n'  # see batch.py
INCLUDE = r'^#include [<"](.*)[>"]'


def run(command, **options):
    return subprocess.run(command, capture_output=True, text=True, check=True, **options).stdout


class Recipe:
    """How the build folder compiles a product's sources and links them."""

    def __init__(self, root, build, product=LIBRARY):
        self.root = root
        self.build = build
        self.product = product
        self.sources = {}  # name -> compiler with its options, but for optimisation, warnings and debug information
        self.archives = {}  # name -> the archive that its object is in, if its target is one
        for entry in json.loads((build / "compile_commands.json").read_text()):
            source = Path(entry["file"])
            if source.is_relative_to(root) and self.changes(source.relative_to(root)):
                words = shlex.split(entry["command"])
                self.sources[str(source.relative_to(root))] = self._options(words, source)
                folder, target = re.match(r"(.*)/CMakeFiles/([^/]+)\.dir/", words[words.index("-o") + 1]).groups()
                self.archives[str(source.relative_to(root))] = "%s/lib%s.a" % (folder, target)
        self.links = [self._link(target, mark) for target, mark in product.files.items()]
        self.outputs = {}  # what the build calls a file of the product -> what it is called beside it
        for link in self.links:
            output = link[link.index("-o") + 1]
            self.outputs[output] = "libauthchipdriver.so.1" if product is LIBRARY else Path(output).name

    def _link(self, target, mark):
        commands = run(["ninja", "-C", str(self.build), "-t", "commands", target]).splitlines()
        link = next(line for line in commands if mark in line)
        return [word for word in shlex.split(link.replace(":", "", 1).split("&&")[1]) if word != "-g"]

    def changes(self, path):
        return any(fnmatch(str(path), pattern) for pattern in self.product.sources)

    def _options(self, words, source):
        kept, skip = [], False
        for word in words:
            if skip or word in ("-o", "-c", "-g", "-Werror", str(source)):
                skip = word == "-o" and not skip
            elif word == "ccache" or word.endswith("/ccache"):
                continue
            elif re.match(r"-W[^l]|-O|-ffile-prefix-map", word):
                continue
            elif word == "-I%s" % self.root:
                kept.append("-I.")
            else:
                kept.append(word)
        return kept

    def clang_arguments(self, source):
        """What libclang needs of the options, to read a source where it stands."""
        words = ["-I%s" % self.root if word == "-I." else word for word in self.sources[source][1:]]
        return [word for word in words if not word.startswith(("-fno-plt", "-fstack"))] + ["-std=gnu++17", "-w"]


class Bench:
    """What all workshops share: precompiled headers of the system, and the unchanged objects."""

    def __init__(self, recipe, folder):
        self.recipe = recipe
        self.folder = folder
        self.linker = ["-fuse-ld=gold"] if shutil.which("ld.gold") else []
        self._prepared = {}  # (source, optimisation) -> digest of the unchanged object
        self._lock = threading.Lock()

    def unchanged(self, source, optimisation):
        """The digest of the unchanged object; makes what is needed to compile the source quickly, at the first call."""
        with self._lock:
            if (source, optimisation) not in self._prepared:
                header = self.header(source, optimisation)
                header.parent.mkdir(parents=True, exist_ok=True)
                names = system_headers(self.recipe.root, source, set())
                header.write_text(CHOICE + "".join("#include <%s>\n" % name for name in names))
                options = [*self.recipe.sources[source], "-w", optimisation]
                run([*options, "-x", "c++-header", str(header), "-o", str(header) + ".gch"], cwd=self.recipe.root)
                compiled = header.parent / "object.o"
                run([*options, "-include", str(header), "-c", source, "-o", str(compiled)], cwd=self.recipe.root)
                self._prepared[source, optimisation] = digest(compiled)
            return self._prepared[source, optimisation]

    def header(self, source, optimisation):
        return self.folder / (source.replace("/", "-") + optimisation) / "system.h"


class Workshop:
    """A copy of the sources, of which one is changed at a time."""

    def __init__(self, recipe, bench, folder):
        self.recipe = recipe
        self.bench = bench
        self.folder = folder
        self.tree = folder / "tree"
        self.temporary = folder / "t"
        self.temporary.mkdir()
        for part in FOLDERS:
            shutil.copytree(recipe.root / part, self.tree / part)

    def compile(self, source, optimisation="-O1"):
        """The object of a source as it stands in the tree, or none if the compiler refuses it; and whether it differs."""
        unchanged = self.bench.unchanged(source, optimisation)
        path = self.folder / (source.replace("/", "-") + ".o")
        header = self.bench.header(source, optimisation)
        done = subprocess.run([*self.recipe.sources[source], "-w", optimisation, "-include", str(header), "-c",
                               source, "-o", str(path)], cwd=self.tree, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL)
        if done.returncode != 0:
            return None, False
        return path, digest(path) != unchanged

    def compiled(self, mutant, optimisation):
        """The objects that differ from the unchanged ones; none if the compiler refuses the change."""
        path = self.tree / mutant.source.name
        objects = {}
        try:
            path.write_bytes(mutant.text())
            for source in users_of(self.recipe, mutant.source.name):
                compiled, differs = self.compile(source, optimisation)
                if compiled is None:
                    return None
                if differs:
                    objects[source] = compiled
        finally:
            path.write_bytes(mutant.source.text)
        return objects

    def original(self):
        """A folder with the product as it is built, by the names that link() gives."""
        folder = self.folder / "original"
        folder.mkdir(exist_ok=True)
        for output, name in self.recipe.outputs.items():
            shutil.copy(self.recipe.build / output, folder / name)
        return folder

    def link(self, changed, more=()):
        """Links the product of the build folder's objects but for those changed; returns its folder."""
        folder = self.folder / "product"
        folder.mkdir(exist_ok=True)
        for link in self.recipe.links:
            self._link(link, changed, more, folder)
        return folder

    def _link(self, link, changed, more, folder):
        words = []
        for word in link:
            match = re.search(r"(\w+)/CMakeFiles/\w+\.dir/(\w+\.cpp)\.o$", word)
            if match:
                word = str(changed.get("/".join(match.groups()), word))
            elif word in self.recipe.outputs:
                word = str(folder / self.recipe.outputs[word])
            words.append(word)
        # In front of all archives: what a program has in its own objects it does not take from these.
        from_archives = [compiled for source, compiled in changed.items() if self.recipe.archives[source] in words]
        first = [str(compiled) for compiled in (*from_archives, *more)]
        run([words[0], *first, *words[1:], *self.bench.linker], cwd=self.recipe.build)


def system_headers(root, name, seen):
    """The system's headers that a source and the project's headers in it include, in their order."""
    seen.add(name)
    headers = []
    for included in re.findall(INCLUDE, (root / name).read_text(), re.MULTILINE):
        if not (root / included).exists():
            headers.append(included)
        elif included not in seen:
            headers += system_headers(root, included, seen)
    return list(dict.fromkeys(headers))


def own_headers(root, name, seen):
    """The project's headers that a source includes, directly or not."""
    for included in re.findall(INCLUDE, (root / name).read_text(), re.MULTILINE):
        if included not in seen and (root / included).exists():
            seen.add(included)
            own_headers(root, included, seen)
    return seen


def users_of(recipe, name):
    """The sources to compile when a file changes."""
    if name in recipe.sources:
        return [name]
    return [source for source in recipe.sources if name in own_headers(recipe.root, source, set())]


def digest(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()
