"""Many mutants in one library or program: each function holds its own body and a changed copy for each of its mutants, and a
number in the product's data says which one runs. So a mutant costs a few milliseconds of the compiler's time."""
import re
import subprocess

from syntax import Span, body_of
from workshop import run

SIZE = 150
CHOICE = 0x6d757461  # where the product keeps the number of the active mutant, before it is set
SELECTOR = 'extern "C" __attribute__((visibility("hidden"))) int mutants_active = %d;\n' % CHOICE


def body_around(mutant):
    """The body of the function in which a mutant lies as a whole, if it can stand in a batch."""
    if not mutant.source.name.endswith(".cpp"):
        return None
    for function in mutant.source.functions:
        body = body_of(function)
        if body is None:
            continue
        span = mutant.source.span(body)
        if span.start < mutant.span.start and mutant.span.end < span.end:
            constant = any(token.text == "constexpr" for token in mutant.source.tokens_in(
                Span(mutant.source.span(function).start, span.start)))
            return None if constant else span
    return None


def batches(mutants):
    """The mutants that can share a library, in groups of one source each, and the others one by one."""
    groups, alone = {}, []
    for mutant in mutants:
        body = body_around(mutant)
        if body is None:
            alone.append([(mutant, None)])
        else:
            groups.setdefault(mutant.source.name, []).append((mutant, body))
    shared = [group[start:start + SIZE] for group in groups.values() for start in range(0, len(group), SIZE)]
    return shared + alone


def merged(members, checked):
    """The source with all bodies in it. For the check each body names itself as its file."""
    source = members[0][0].source
    by_body = {}
    for number, (mutant, body) in enumerate(members, 1):
        by_body.setdefault(body, []).append((number, mutant))
    parts, end = [], 0
    for body in sorted(by_body):
        line = source.line_of(body.start)
        parts.append(source.text[end:body.start].decode() + "{")
        for number, mutant in by_body[body]:
            text = mutant.text()[body.start:len(mutant.text()) - (len(source.text) - body.end)].decode()
            place = '"mutant-%d"' % number if checked else ""
            parts.append("if (mutants_active == %d)\n#line %d %s\n%s\nelse " % (number, line, place, text))
        original = '"%s"' % source.name if checked else ""
        parts.append("\n#line %d %s\n%s\n#line %d\n}" % (line, original, source.at(body), source.line_of(body.end)))
        end = body.end
    parts.append(source.text[end:].decode())
    return "".join(parts)


class Batch:
    """A product with the mutants of a group in it; those that the compiler refuses are left out."""

    def __init__(self, workshop, members):
        self.workshop = workshop
        self.source = members[0][0].source
        self.members, self.refused = self._accepted(members)
        self.images = self._link() if self.members else {}  # file -> its bytes, and where in them the choice is

    def _accepted(self, members):
        refused = []
        while members:
            bad = self._complaints(members)
            if not bad:
                break
            refused += [mutant for number, (mutant, _) in enumerate(members, 1) if number in bad]
            members = [member for number, member in enumerate(members, 1) if number not in bad]
        return members, refused

    def _complaints(self, members):
        """The numbers of the members with which the source does not compile."""
        path = self._write(merged(members, True))
        done = subprocess.run([*self._options(), "-fsyntax-only", "-fmax-errors=0", path], cwd=self.workshop.tree,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
        self._restore()
        if done.returncode == 0:
            return set()
        numbers = {int(number) for number in re.findall(r"^mutant-(\d+):.*error:", done.stderr, re.MULTILINE)}
        numbers = numbers or {int(number) for number in re.findall(r"mutant-(\d+)", done.stderr)}
        if not numbers:
            raise RuntimeError("%s does not compile with its mutants:\n%s" % (self.source.name, done.stderr[:2000]))
        return numbers

    def _link(self):
        path = self._write(merged(self.members, False))
        compiled = self.workshop.folder / "batch.o"
        run([*self._options(), "-c", path, "-o", str(compiled)], cwd=self.workshop.tree)
        self._restore()
        selector = self.workshop.folder / "selector.cpp"
        selector.write_text(SELECTOR)
        chooses = self.workshop.folder / "selector.o"
        run(["g++", "-fPIC", "-c", str(selector), "-o", str(chooses)])
        folder = self.workshop.link({self.source.name: compiled}, [chooses])
        images = {}
        for name in self.workshop.recipe.outputs.values():
            image = bytearray((folder / name).read_bytes())
            images[folder / name] = image, image.find(CHOICE.to_bytes(4, "little"))
        return images

    def activate(self, number):
        """Makes the product one of the NUMBERth member; returns its folder."""
        for file, (image, place) in self.images.items():
            image[place:place + 4] = number.to_bytes(4, "little")
            file.unlink()
            file.write_bytes(image)
            file.chmod(0o755)
        return self.workshop.folder / "product"

    def _options(self):
        self.workshop.bench.unchanged(self.source.name, "-O0")
        header = self.workshop.bench.header(self.source.name, "-O0")
        return [*self.workshop.recipe.sources[self.source.name], "-w", "-O0", "-include", str(header)]

    def _write(self, text):
        (self.workshop.tree / self.source.name).write_text(text)
        return self.source.name

    def _restore(self):
        (self.workshop.tree / self.source.name).write_bytes(self.source.text)
