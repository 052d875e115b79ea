"""docs/mutants.md: the counts of a run over everything, for each file and for each kind of change."""
from collections import namedtuple

from operators import OPERATORS
from reviewed import shown

# verdicts: (mutant, name, outcome) of those that were made; missing: how many were not; reviewed: names
Section = namedtuple("Section", "product verdicts missing reviewed")

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

`scripts/mutate --programs` does the same with the decisions of the tool and of the simulator, in their own tests.

This page is written by `scripts/mutate --page`; do not edit it.
"""


PROGRAMS_HEAD = """## The tool and the simulator

The code that decides: whether a certificate and a signature are right, what the cause of a failure is, whether the lock
is safe, and how the simulated chip answers. The unit tests, the golden files and the captures judge. At least 95 % of
the changes have to be noticed; a run may take a share of them (`--every`).
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


def rows_of(section):
    column = {"noticed": "noticed", "same": "same machine code", "refused": "refused by the compiler"}
    return [(mutant, "reviewed" if outcome == "unnoticed" and name in section.reviewed else
             column.get(outcome, "unnoticed")) for mutant, name, outcome in section.verdicts]


def library_tables(section):
    rows = rows_of(section)
    by_file = counts((mutant.source.name, of) for mutant, of in rows)
    by_operator = counts((mutant.operator, of) for mutant, of in rows)
    by_operator = {name: by_operator[name] for name in OPERATORS if name in by_operator}
    return ["## The library, by file\n", markdown(by_file, "file"), "\n## The library, by kind of change\n",
            markdown(by_operator, "change", lambda name: "`%s`: %s" % (name, OPERATORS[name])), ""]


def program_tables(sections):
    lines = [PROGRAMS_HEAD]
    for section in sections:
        lines.append("### %s\n" % section.product.title)
        if not section.verdicts:
            lines.append("None has been made since the sources changed.\n")
            continue
        rows = rows_of(section)
        noticed = sum(of == "noticed" for _, of in rows)
        survivors = [mutant for mutant, of in rows if of == "unnoticed"]
        of_all = len(section.verdicts) + section.missing
        lines += ["%d of %d mutants made; %.1f %% of those that can be noticed are noticed.\n" %
                  (len(section.verdicts), of_all, 100.0 * noticed / max(noticed + len(survivors), 1)),
                  markdown(counts((mutant.source.name, of) for mutant, of in rows), "file"), "", "Not noticed:\n"]
        lines += ["- `%s`, line %d, `%s`: `%s` -> `%s`" % (mutant.source.name, mutant.line, mutant.operator,
                                                          inline(mutant.original), inline(mutant.replacement))
                  for mutant in survivors] + [""]
    return lines


def inline(text):
    text = shown(text).replace("`", "'")
    return text if len(text) <= 80 else text[:77] + "..."


def written(sections):
    return "\n".join([HEAD, *library_tables(sections[0]), *program_tables(sections[1:])])
