"""Makes plcctl's manual page: the commands and options from the program's own help, the rest from a template.

usage: makepage.py TEMPLATE COMMAND...        COMMAND runs plcctl; the page goes to standard output
"""

import re
import subprocess
import sys

SECTIONS = ("Positionals:", "Options:", "Subcommands:")
NAME_WIDTH = 30  # columns in front of a description
ROW = re.compile(r"^  (\S.*?)(?:  +(\S.*))?$")


class Help:
    """One command's help, taken apart: description, usage, rows by section, and the text below them."""

    def __init__(self, text):
        head, _, rest = text.partition("Usage: ")
        self.description = head.strip()
        self.usage, _, rest = rest.partition("\n")
        self.rows = {name: [] for name in SECTIONS}
        section = None
        lines = rest.splitlines()
        while lines:
            line = lines.pop(0)
            if line in SECTIONS:
                section = line
            elif section and line.startswith(" " * NAME_WIDTH) and self.rows[section]:
                name, told = self.rows[section][-1]
                self.rows[section][-1] = (name, f"{told} {line.strip()}".strip())
            elif section and (row := ROW.match(line)):
                self.rows[section].append((row.group(1), row.group(2) or ""))
            elif line.strip():
                lines.insert(0, line)
                break
            else:
                section = None
        self.footer = lines

    def subcommands(self):
        return [name for name, _ in self.rows["Subcommands:"]]


def escaped(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text.startswith((".", "'")) else text


def preformatted(lines):
    return [".PP", ".nf", *(escaped(line) if line else "" for line in lines), ".fi"] if lines else []


def tagged(rows):
    return [text for name, told in rows for text in (".TP", f".B {escaped(name)}", escaped(told))]


def help_of(program, words):
    finished = subprocess.run([*program, *words, "--help"], capture_output=True, text=True, check=True)
    return Help(finished.stdout)


def command_text(program, words):
    """The section of one command and of those below it."""
    told = help_of(program, words)
    options = [row for row in told.rows["Options:"] if row[0] != "-h,--help"]
    below = [text for name in told.subcommands() for text in command_text(program, [*words, name])]
    own = [f".SS {escaped(told.usage)}", *(escaped(line) for line in told.description.splitlines())]
    return [*own, *tagged(told.rows["Positionals:"] + options), *preformatted(told.footer), *below]


def main(template, *program):
    whole = help_of(program, [])
    parts = {
        "OPTIONS": tagged(whole.rows["Options:"]),
        "COMMANDS": [text for name in whole.subcommands() for text in command_text(program, [name])],
        "STATUS": preformatted(line for line in whole.footer if line != "Exit status:"),
    }
    with open(template, encoding="utf-8") as file:
        page = file.read()
    for name, lines in parts.items():
        page = page.replace(f"@{name}@", "\n".join(lines))
    sys.stdout.write(page)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
