#!/usr/bin/python3
"""Counts the instructions of one published message, for the service and for the bare client library on the same work.

Both programs run under callgrind in a sandbox of their own: 300 publications of 64 bytes at QoS 0, one round every few
seconds. The counters are dumped in the pause after a round, and again some rounds later, so start-up and end don't
count. Only the main thread is counted: it does all the publishing, while the client library's receive thread polls for
as long as the run lasts, whatever is published. Time plays no part, so a loaded machine gives the same figures.

Exit status: 0, or with --check 1 when the target is missed; 2 when a run failed.
"""

import argparse
import json
import re
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))

from harness import DEFAULT_BUILD, HERE, RESULTS, BenchmarkError, Build, Timing, run_once  # noqa: E402
from plant import Plant  # noqa: E402
from report import Finding, as_markdown, as_text, replace_section  # noqa: E402

TARGET = 1.10
MAIN_THREAD = "01"
PLANT = Plant(brokers=1, publications=300, interval=3000, qos=0)
TIMING = Timing(warm_up=1, window=12, patience=120)
DUMP_NAME = "callgrind.out"
CALLGRIND = [
    "valgrind", "--quiet", "--tool=callgrind", "--separate-threads=yes", f"--callgrind-out-file={RESULTS}/{DUMP_NAME}",
]
MARK = "callgrind_control --dump=mark {pid} >/dev/null"


def dump_files(directory: Path, run: dict) -> list[Path]:
    """The main thread's dumps of the window. Dump n holds what happened since dump n - 1."""
    first, last = run["begin_marks"] + 1, run["begin_marks"] + run["end_marks"]
    files = [directory / f"{DUMP_NAME}.{n}-{MAIN_THREAD}" for n in range(first, last + 1)]
    missing = [file.name for file in files if not file.exists()]
    if missing:
        raise BenchmarkError(f"callgrind left no {', '.join(missing)}")
    return files


def total(file: Path) -> int:
    found = re.search(r"^(?:totals|summary): (\d+)", file.read_text(), re.MULTILINE)
    if not found:
        raise BenchmarkError(f"{file.name} holds no total")
    return int(found[1])


def count(build: Build, command: list[str], keep: Path | None) -> dict:
    with tempfile.TemporaryDirectory(prefix="bench-callgrind-") as temporary:
        directory = keep or Path(temporary)
        directory.mkdir(parents=True, exist_ok=True)
        run = run_once(build, PLANT, TIMING, [*CALLGRIND, *command], MARK, directory)
        instructions = sum(total(file) for file in dump_files(directory, run))
    if run["sent"] == 0:
        raise BenchmarkError("no message was published in the window")
    return {"instructions": instructions, "messages": run["sent"], "per_message": instructions / run["sent"]}


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=DEFAULT_BUILD, help="build directory (default: build/release)")
    parser.add_argument("--check", action="store_true", help=f"exit with 1 when the ratio is above {TARGET}")
    parser.add_argument("--keep", type=Path, help="keep callgrind's files in this directory, for callgrind_annotate")
    parser.add_argument("--json", action="store_true", help="print JSON")
    parser.add_argument("--write", action="store_true", help="put the table into bench/RESULTS.md")
    return parser.parse_args()


def main() -> int:
    arguments = parse_arguments()
    build = Build(arguments.build.resolve())
    keep = arguments.keep.resolve() if arguments.keep else None
    try:
        build.require()
        bare = count(build, [str(build.bare()), *PLANT.bare_arguments(loop=False)], keep and keep / "bare")
        product = count(build, [str(build.product())], keep and keep / "product")
    except BenchmarkError as error:
        print(f"bench: {error}", file=sys.stderr)
        return 2

    ratio = product["per_message"] / bare["per_message"]
    finding = Finding("instructions per published message, QoS 0, 64 bytes", "", product["per_message"],
                      bare["per_message"], ratio, f"at most {TARGET:g}", ratio <= TARGET)
    if arguments.json:
        print(json.dumps({"finding": finding.as_json(), "product": product, "bare": bare}, indent=2))
    else:
        print(as_text([finding]))
    if arguments.write:
        replace_section(HERE / "RESULTS.md", "instructions", as_markdown([finding]))
    return 1 if arguments.check and not finding.met else 0


if __name__ == "__main__":
    sys.exit(main())
