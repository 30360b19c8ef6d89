"""What a benchmark says: tables for people, and the generated sections of RESULTS.md."""

import os
import platform
import re
import subprocess
from dataclasses import asdict, dataclass
from pathlib import Path


@dataclass(frozen=True)
class Finding:
    """One line of a table: the medians of both programs, and the figure that is held against the target."""

    title: str
    unit: str
    product: float
    bare: float
    figure: float
    target: str
    met: bool | None  # None: there is no target

    def verdict(self) -> str:
        return {None: "-", True: "ok", False: "MISSED"}[self.met]

    def cells(self) -> list[str]:
        unit = f" {self.unit}" if self.unit else ""
        return [self.title, self.target, number(self.figure), f"{number(self.product)}{unit}",
                f"{number(self.bare)}{unit}", self.verdict()]

    def as_json(self) -> dict:
        return asdict(self)


HEADINGS = ["work", "target", "measured", "product", "bare", "result"]


def number(value: float) -> str:
    if abs(value) >= 100 or value == 0:
        return f"{value:,.0f}"
    return f"{value:.3f}" if abs(value) < 10 else f"{value:.1f}"


def as_text(findings: list[Finding]) -> str:
    rows = [HEADINGS] + [finding.cells() for finding in findings]
    widths = [max(len(row[i]) for row in rows) for i in range(len(HEADINGS))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows)


def as_markdown(findings: list[Finding]) -> str:
    rows = [HEADINGS, ["---"] * len(HEADINGS)] + [finding.cells() for finding in findings]
    return "\n".join("| " + " | ".join(row) + " |" for row in rows)


def first_match(pattern: str, text: str, otherwise: str) -> str:
    found = re.search(pattern, text, re.MULTILINE)
    return found[1].strip() if found else otherwise


def machine() -> str:
    """The machine in one line, without a name."""
    processor = first_match(r"^model name\s*:\s*(.*)$", Path("/proc/cpuinfo").read_text(), platform.machine())
    system = first_match(r'^PRETTY_NAME="?([^"\n]*)', Path("/etc/os-release").read_text(), platform.system())
    broker = subprocess.run(["mosquitto", "-h"], capture_output=True, text=True, check=False).stdout
    version = first_match(r"^mosquitto version (\S+)", broker, "unknown")
    return (f"{os.cpu_count()} cores ({processor}), {system}, Linux {platform.release().split('-')[0]}, "
            f"mosquitto {version} on the loopback interface")


def replace_section(document: Path, name: str, text: str) -> None:
    """Puts `text` between the document's markers of that name; what stands around them is written by hand."""
    begin, end = f"<!-- begin {name} -->", f"<!-- end {name} -->"
    old = document.read_text()
    head, found, rest = old.partition(begin)
    _, found_end, tail = rest.partition(end)
    if not (found and found_end):
        raise ValueError(f"{document} has no section {name}")
    document.write_text(f"{head}{begin}\n\n{text}\n\n{end}{tail}")
