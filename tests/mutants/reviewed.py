"""The reviewed list of mutants that change nothing that can be observed, and the names that mutants have in it."""
import re
from collections import Counter


def identities(mutants):
    """A name for each mutant that does not change when lines are added elsewhere."""
    count, names = Counter(), {}
    for mutant in mutants:
        name = "%s  %s  %s  %s -> %s" % (mutant.source.name, mutant.function, mutant.operator,
                                         shown(mutant.original), shown(mutant.replacement))
        count[name] += 1
        names[mutant] = name if count[name] == 1 else "%s  (%d)" % (name, count[name])
    return names


def shown(text):
    text = re.sub(r"//[^\n]*", "", re.sub(r"#line \d+", "", text))
    return re.sub(r"\s+", " ", text).strip() or "nothing"


class Reviewed:
    """Entries of one line each; the indented lines below one or several entries are their reason."""

    def __init__(self, path):
        self.path = path
        self.entries = {}  # name -> reason
        waiting = []
        for line in path.read_text().splitlines() if path.exists() else []:
            if line.startswith("#") or not line.strip():
                continue
            if line[0] == " ":
                for name in waiting:
                    self.entries[name] = (self.entries.get(name, "") + " " + line.strip()).strip()
                done = True
            else:
                waiting = [] if waiting and self.entries.get(waiting[-1]) else waiting
                waiting.append(line.rstrip())
                self.entries.setdefault(line.rstrip(), "")
        unexplained = [name for name, reason in self.entries.items() if not reason]
        if unexplained:
            raise SystemExit("scripts/mutate: %s gives no reason for: %s" % (path.name, unexplained[0]))
