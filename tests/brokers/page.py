"""The table of results: what differs from the known ones, and the text of docs/brokers.md."""

from brokers import checks, inside
from brokers.expected import FAILURES, NOT_OFFERED, REMARKS
from brokers.makes import MAKES, version
from support import build

FILE = build.REPOSITORY / "docs" / "brokers.md"
HEAD = FILE.parent.parent / "tests" / "brokers" / "head.md"

SECTIONS = [
    ("Who comes in", "", checks.ENTRIES),
    ("Over TCP", "tcp/", checks.FEATURES),
    ("Over TLS (level 2)", "tls/", checks.FEATURES),
]


def differences(make, column, only=""):
    """A line for each cell that is not what is known of it."""
    wanted = [name for name, _, _ in inside.cells() if only in name and plain(name) not in NOT_OFFERED[make]]
    found = [f"{make}: {name}: no result" for name in wanted if name not in column]
    found += [f"{make}: {column['run']}"] if "run" in column else []
    for name, failure in column.items():
        known = FAILURES[make].get(plain(name))
        if known is None and failure and name != "run":
            found.append(f"{make}: {name}: expected yes, but: {failure}")
        if known is not None and known.told not in failure:
            found.append(f"{make}: {name}: expected a failure with '{known.told}', but: {failure or 'yes'}")
    return found


def plain(name):
    """The name of the check, without the transport."""
    return name.rpartition("/")[2]


def table(columns, notes=None):
    """The tables, without rows that nobody tried. `notes` collects the reasons of what isn't "yes", as they are met."""
    notes = [] if notes is None else notes
    titles = [f"{MAKES[make].title} {version(make)}" for make in columns]
    parts = []
    for title, prefix, checks_of_section in SECTIONS:
        rows = rows_of(columns, prefix, checks_of_section, notes)
        if rows:
            parts.append("\n".join([f"| {title} | {' | '.join(titles)} |", "| --- |" + " --- |" * len(titles), *rows]))
    return "\n\n".join(parts)


def rows_of(columns, prefix, checks_of_section, notes):
    rows = []
    for name, check in checks_of_section.items():
        if any(prefix + name in column for column in columns.values()):
            cells = [cell(make, columns[make].get(prefix + name), name, notes) for make in columns]
            rows.append(f"| {check.title} | {' | '.join(cells)} |")
    return rows


def cell(make, failure, name, notes):
    if name in NOT_OFFERED[make]:
        return f"not offered{mark(NOT_OFFERED[make][name], notes)}"
    if failure is None:
        return "not tried"
    if failure == inside.PASSED:
        return f"yes{mark(REMARKS[make][name], notes)}" if name in REMARKS[make] else "yes"
    known = FAILURES[make].get(name)
    return f"no{mark(known.note, notes)}" if known else "NO"


def mark(note, notes):
    """A footnote's sign; equal notes share one."""
    if note not in notes:
        notes.append(note)
    return f" <sup>{notes.index(note) + 1}</sup>"


def text(columns):
    notes = []
    tables = table(columns, notes)
    reasons = "\n".join(f"{number}. {note}" for number, note in enumerate(notes, 1))
    return f"{HEAD.read_text(encoding='utf-8')}\n{tables}\n\n## Notes\n\n{reasons}\n"
