"""docs/mutants.md: the counts of a run over everything, for each file and for each kind of change."""
from operators import OPERATORS

COLUMNS = ("made", "noticed", "reviewed", "unnoticed", "same machine code", "refused by the compiler")

HEAD = """# Mutants

`scripts/mutate` changes the library in one place, builds it, runs the tests that can notice, and does so again for
every place and every kind of change below. A change that no test notices is a gap in the tests. The tests are those of
the library in the quick suite: neither the random campaign nor the sanitizers nor the table of instructions helps.

- *Noticed*: a test fails, twice, or does not come to an end.
- *Reviewed*: no test can notice it; [the list](../tests/mutants/unobservable.txt) gives the reason for each.
- *Same machine code*: the compiler makes the same of it with `-O2`.

`scripts/mutate --changed` looks at the lines that differ from main and is part of `scripts/test --all`. Debian has no
program of this kind for g++, so ours reads the syntax tree with libclang and puts up to 150 mutants into one library,
where a number says which of them runs.

This page is written by `scripts/mutate --page`; do not edit it.
"""


def counts(rows):
    """rows: (key, column) -> a table of counts by key."""
    table = {}
    for key, column in rows:
        line = table.setdefault(key, dict.fromkeys(COLUMNS, 0))
        line["made"] += 1
        line[column] += 1
    return table


def markdown(table, title, text_of=lambda key: "`%s`" % key):
    lines = ["| %s | %s |" % (title, " | ".join(COLUMNS)), "|---|" + "---:|" * len(COLUMNS)]
    total = dict.fromkeys(COLUMNS, 0)
    for key, line in table.items():
        lines.append("| %s | %s |" % (text_of(key), " | ".join(str(line[column]) for column in COLUMNS)))
        for column in COLUMNS:
            total[column] += line[column]
    lines.append("| **all** | %s |" % " | ".join("**%d**" % total[column] for column in COLUMNS))
    return "\n".join(lines)


def written(verdicts, reviewed):
    """verdicts: mutant, name, outcome for every mutant there is."""
    column = {"noticed": "noticed", "same": "same machine code", "refused": "refused by the compiler"}
    rows = [(mutant, "reviewed" if outcome == "unnoticed" and name in reviewed else column.get(outcome, "unnoticed"))
            for mutant, name, outcome in verdicts]
    by_file = counts((mutant.source.name, of) for mutant, of in rows)
    by_operator = counts((mutant.operator, of) for mutant, of in rows)
    by_operator = {name: by_operator[name] for name in OPERATORS if name in by_operator}
    return "\n".join([HEAD, "## By file\n", markdown(by_file, "file"), "\n## By kind of change\n",
                      markdown(by_operator, "change", lambda name: "`%s`: %s" % (name, OPERATORS[name])), ""])
