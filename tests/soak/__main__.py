"""Starts each run in a controller of its own. See --help."""

import argparse
import concurrent.futures
import os
import pathlib
import subprocess
import sys
import tempfile
import traceback

from soak import pausestart, queuestorm, restarts, signals
from soak.report import Report
from support import build, device

DESCRIPTION = """\
Long runs of the service under disturbances, each in a controller of its own. Every run tells its numbers as it goes on
and one line at its end.

  pausestart[=ROUNDS]    pause and start under messages both ways, with a reconnect loop asleep: memory, threads and
                         sockets before and after
  restarts[=KILLS]       two real brokers that are killed and come back under load, tried again each second and each
                         6 seconds, beside one that stays, whose messages have to be on time
  queuestorm[=RECORDS]   random records on the request queue at full speed: every valid request gets its right answer
  signals[=ROUNDS]       the signal that ends the service, in each of many states; signals-STATE is one of them

With --quick the service is one whose waits of half a second and more take a twentieth of their time, so that a thousand
rounds fit into minutes. BUILD_DIR selects the build (default build/release), so that builds with sanitizers can be used.
Exit status: 0 when all runs passed, 1 when one failed."""

MODULES = {"pausestart": pausestart, "restarts": restarts, "queuestorm": queuestorm, "signals": signals}


def main():
    arguments = parse()
    if arguments.inside:
        return run_inside(*arguments.runs[0])
    if arguments.quick:
        os.environ["SERVICE_PROGRAM"] = "soak_service"
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        results = list(pool.map(run_in_sandbox, *zip(*arguments.runs)))
    failed = [name for (name, _), passed in zip(arguments.runs, results) if not passed]
    print(f"soak: {', '.join(failed)} failed" if failed else f"soak: all {len(results)} runs passed")
    return 1 if failed else 0


def parse():
    parser = argparse.ArgumentParser(
        prog="scripts/soak", description=DESCRIPTION, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("runs", nargs="*", metavar="NAME[=NUMBER]", help="the runs; all of them by default")
    parser.add_argument("--short", action="store_true", help="small numbers, as one of the checks of a change")
    parser.add_argument("--quick", action="store_true", help="with a service whose long waits are shortened")
    parser.add_argument("--jobs", type=int, default=4, help="how many runs at a time (default 4)")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    try:
        arguments.runs = [run for text in arguments.runs or MODULES for run in runs_of(text, arguments.short)]
    except ValueError as error:
        parser.error(str(error))
    return arguments


def runs_of(text, short):
    """(name, number) of each run that NAME[=NUMBER] stands for."""
    name, _, number = text.partition("=")
    kind, _, state = name.partition("-")
    if kind not in MODULES or (state and state not in signals.STATES):
        raise ValueError(f"there is no run '{name}'")
    count = MODULES[kind].SHORT if short else MODULES[kind].DEFAULT
    if "=" in text:
        count = int(number) if number.isdecimal() else 0
    if count < 1:
        raise ValueError(f"{name} needs a number above 0, not '{number}'")
    if name == "signals":
        return [(f"signals-{state}", count) for state in signals.STATES]
    return [(name, count)]


def run_in_sandbox(name, number):
    with tempfile.TemporaryDirectory(prefix="soak-") as directory:
        for folder in ("VEL", "etc/CA_Certificates"):
            (pathlib.Path(directory) / folder).mkdir(parents=True)
        outside = not build.DIRECTORY.is_relative_to(build.REPOSITORY)
        binds = ["--ro-bind", str(build.DIRECTORY), str(build.DIRECTORY)] if outside else []
        inner = [sys.executable, "-B", "-m", "soak", "--inside", f"{name}={number}"]
        command = [str(build.SANDBOX), *binds, directory, "--", *inner]
        return subprocess.run(command, stdin=subprocess.DEVNULL, check=False).returncode == 0


def run_inside(name, number):
    report = Report(name)
    kind, _, state = name.partition("-")
    try:
        summary = MODULES[kind].run(report, number, *([state] if state else []))
        findings = device.sanitizer_findings()
        assert not findings, findings
    except Exception:  # whatever it is, it is told with what the service wrote
        report.say("FAILED\n" + traceback.format_exc())
        for title, text in device.traces():
            report.say(f"{title}:\n{text}")
        return 1
    report.say(f"passed: {summary}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
