#!/usr/bin/python3
"""Counts the instructions of one message, for the service and for the bare client library on the same work.

Both programs run under callgrind in a sandbox of their own, and the counters are dumped at either end of a window, so
start-up and end don't count. Time plays no part, so a loaded machine gives the same figures.

Publishing: 300 publications, one round every few seconds, dumped in the pauses between rounds. Only the main thread is
counted: it does all the publishing, while the client library's receive thread polls for as long as the run lasts,
whatever is published. Receiving: a burst of messages, dumped before and after. All threads are counted: the receive
thread does all the work, and in a window that is as short as its burst its polling is no part of note.

Exit status: 0, or with --check 1 when a target is missed; 2 when a run failed.
"""

import argparse
import json
import os
import re
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))

from harness import (  # noqa: E402
    DEFAULT_BUILD, HERE, RESULTS, BenchmarkError, Build, Load, Timing, run_once,
)
from plant import Plant  # noqa: E402
from report import Finding, as_markdown, as_text, replace_section  # noqa: E402
from rows import INSTRUCTION_ROWS, InstructionRow  # noqa: E402

MAIN_THREAD = "01"
ANY_THREAD = "[0-9][0-9]"
TIMING = Timing(warm_up=1, window=6, patience=120)
LOAD = Load(burst=1200)
DUMP_NAME = "callgrind.out"
CALLGRIND = [
    "valgrind", "--quiet", "--tool=callgrind", "--separate-threads=yes", f"--callgrind-out-file={RESULTS}/{DUMP_NAME}",
]
MARK = "callgrind_control --dump=mark {pid} >/dev/null"


def dump_files(directory: Path, run: dict, threads: str) -> list[Path]:
    """The dumps of the window. Dump n holds what happened since dump n - 1."""
    files = []
    for n in range(run["begin_marks"] + 1, run["begin_marks"] + run["end_marks"] + 1):
        dump = list(directory.glob(f"{DUMP_NAME}.{n}-{threads}"))
        if not dump:
            raise BenchmarkError(f"callgrind left no dump {n}")
        files += dump
    return files


def total(file: Path) -> int:
    found = re.search(r"^(?:totals|summary): (\d+)", file.read_text(), re.MULTILINE)
    if not found:
        raise BenchmarkError(f"{file.name} holds no total")
    return int(found[1])


def count(build: Build, plant: Plant, command: list[str], keep: Path | None) -> dict:
    with tempfile.TemporaryDirectory(prefix="bench-callgrind-") as temporary:
        directory = keep or Path(temporary)
        directory.mkdir(parents=True, exist_ok=True)
        run = run_once(build, plant, TIMING, [*CALLGRIND, *command], LOAD, MARK, directory)
        threads = ANY_THREAD if plant.subscriptions else MAIN_THREAD
        instructions = sum(total(file) for file in dump_files(directory, run, threads))
    return {"instructions": instructions, "messages": run["messages"], "per_message": instructions / run["messages"]}


def count_all(build: Build, rows: list[InstructionRow], keep: Path | None) -> dict:
    """By row and program. As many runs at a time as there are processors: none looks at a clock for its figure."""
    with ThreadPoolExecutor(max_workers=os.cpu_count()) as pool:
        runs = {}
        for row in rows:
            programs = {
                "bare": [str(build.bare()), *row.plant.bare_arguments(loop=False)],
                "product": [str(build.product())],
            }
            for program, command in programs.items():
                place = keep and keep / row.name / program
                runs[row.name, program] = pool.submit(count, build, row.plant, command, place)
        return {key: run.result() for key, run in runs.items()}


def judge(row: InstructionRow, product: float, bare: float) -> Finding:
    ratio = product / bare
    target = "-" if row.target is None else f"at most {row.target:g}"
    met = None if row.target is None else ratio <= row.target
    return Finding(row.title, "", product, bare, ratio, target, met)


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    names = [row.name for row in INSTRUCTION_ROWS]
    parser.add_argument("--build", type=Path, default=DEFAULT_BUILD, help="build directory (default: build/release)")
    parser.add_argument("--row", action="append", choices=names, help="only this row; repeatable")
    parser.add_argument("--check", action="store_true", help="only rows with a target, and exit with 1 when one is missed")
    parser.add_argument("--keep", type=Path, help="keep callgrind's files in this directory, for callgrind_annotate")
    parser.add_argument("--json", action="store_true", help="print JSON")
    parser.add_argument("--write", action="store_true", help="put the table into bench/RESULTS.md")
    return parser.parse_args()


def main() -> int:
    arguments = parse_arguments()
    build = Build(arguments.build.resolve())
    rows = [row for row in INSTRUCTION_ROWS if not arguments.row or row.name in arguments.row]
    if arguments.check:
        rows = [row for row in rows if row.target is not None]
    if arguments.write and len(rows) != len(INSTRUCTION_ROWS):
        print("bench: --write needs all rows; leave --row out", file=sys.stderr)
        return 2
    try:
        build.require()
        runs = count_all(build, rows, arguments.keep and arguments.keep.resolve())
    except BenchmarkError as error:
        print(f"bench: {error}", file=sys.stderr)
        return 2

    findings = [
        judge(row, runs[row.name, "product"]["per_message"], runs[row.name, "bare"]["per_message"]) for row in rows
    ]
    if arguments.json:
        named = {f"{row} {program}": run for (row, program), run in runs.items()}
        print(json.dumps({"findings": [finding.as_json() for finding in findings], "runs": named}, indent=2))
    else:
        print(as_text(findings))
    if arguments.write:
        replace_section(HERE / "RESULTS.md", "instructions", as_markdown(findings))
    return 1 if arguments.check and any(finding.met is False for finding in findings) else 0


if __name__ == "__main__":
    sys.exit(main())
