#!/usr/bin/python3
"""Measures the service against the bare client library on the same work, end to end, each run in its own sandbox.

Every row runs both programs in turn (bare, product, bare, product, ...), and its figure is the median of the ratios
of the pairs. Exit status: 0 when every target is met, 1 when one is missed, 2 when a run failed.
"""

import argparse
import json
import statistics
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))

from harness import DEFAULT_BUILD, HERE, BenchmarkError, Build, Timing, run_bare, run_product  # noqa: E402
from report import Finding, as_markdown, as_text, machine, replace_section  # noqa: E402
from rows import ROWS, Metric, Row  # noqa: E402

FULL = Timing(warm_up=2, window=10)
QUICK = Timing(warm_up=1, window=4)


def measure_pairs(build: Build, row: Row, timing: Timing, pairs: int) -> list[dict]:
    if row.start_up_only:
        timing = Timing(warm_up=0, window=0)
    measured = []
    for index in range(pairs):
        print(f"\r{row.name}: pair {index + 1} of {pairs} ", end="", file=sys.stderr, flush=True)
        bare = run_bare(build, row.plant, timing, row.bare_loop)
        product = run_product(build, row.plant, timing)
        measured.append({"bare": bare, "product": product})
    print(file=sys.stderr)
    return measured


def judge(metric: Metric, pairs: list[dict]) -> Finding:
    product = [metric.of_product(pair["product"]) for pair in pairs]
    bare = [metric.value(pair["bare"]) for pair in pairs]
    if metric.absolute:
        # One lost tick in one run is a lost tick: no median hides it.
        figure = max(product)
    else:
        figure = statistics.median(p / b for p, b in zip(product, bare))
    bound = "at least" if metric.at_least else "at most"
    target = "-" if metric.target is None else f"{metric.target:g}" if metric.absolute else f"{bound} {metric.target:g}"
    return Finding(metric.title, metric.unit, statistics.median(product), statistics.median(bare), figure, target,
                   metric.met(figure))


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=DEFAULT_BUILD, help="build directory (default: build/release)")
    parser.add_argument("--row", action="append", choices=[row.name for row in ROWS], help="only this row; repeatable")
    parser.add_argument("--pairs", type=int, help="pairs of runs per row (default: 5, with --quick 2)")
    parser.add_argument("--quick", action="store_true", help="2 pairs and shorter runs: a look, not a result")
    parser.add_argument("--json", action="store_true", help="print the findings and every run as JSON")
    parser.add_argument("--write", action="store_true", help="put the table into bench/RESULTS.md")
    return parser.parse_args()


def main() -> int:
    arguments = parse_arguments()
    build = Build(arguments.build.resolve())
    timing = QUICK if arguments.quick else FULL
    pairs = arguments.pairs or (2 if arguments.quick else 5)
    rows = [row for row in ROWS if not arguments.row or row.name in arguments.row]
    if arguments.write and len(rows) != len(ROWS):
        print("bench: --write needs all rows; leave --row out", file=sys.stderr)
        return 2

    runs: dict[str, list[dict]] = {}
    findings: list[Finding] = []
    try:
        build.require()
        for row in rows:
            runs[row.name] = measure_pairs(build, row, timing, pairs)
            findings += [judge(metric, runs[row.name]) for metric in row.metrics]
    except BenchmarkError as error:
        print(f"\nbench: {error}", file=sys.stderr)
        return 2

    setting = f"{machine()}; {pairs} pairs, windows of {timing.window:g} s"
    if arguments.json:
        print(json.dumps({"setting": setting, "findings": [f.as_json() for f in findings], "runs": runs}, indent=2))
    else:
        print(f"{setting}\n\n{as_text(findings)}")
    if arguments.write:
        replace_section(HERE / "RESULTS.md", "run", f"{setting}\n\n{as_markdown(findings)}")
    return 0 if all(finding.met is not False for finding in findings) else 1


if __name__ == "__main__":
    sys.exit(main())
