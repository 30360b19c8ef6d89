"""Runs the service with each broker in a sandbox of its own, and writes the table. See --help."""

import argparse
import concurrent.futures
import functools
import pathlib
import subprocess
import sys
import tempfile

from brokers import inside, page
from brokers.makes import MAKES, version
from support import build

DESCRIPTION = f"""\
Tries the service with brokers of several makers, each in a sandbox on the loopback interface: connections, quality of
service, retained messages, wills, sessions and large payloads, over TCP and TLS. Prints each result, and writes the
table docs/brokers.md when all brokers were tried and no result differs from what is known.

Brokers: {", ".join(MAKES)} (default: all)

A broker that isn't installed is installed as scripts/bootstrap does it; one that can't be had is named as skipped.
BUILD_DIR selects the build (default build/release).
Exit status: 0 when all results are the known ones, 1 when one differs, 2 for a wrong call, 3 when a broker was skipped."""

SKIPPED = 3


def main():
    arguments = parse()
    if arguments.inside:
        tell = functools.partial(say, arguments.brokers[0])
        inside.run(arguments.brokers[0], arguments.only, tell, arguments.trace)
        return 0
    if not build.SERVICE.exists():
        print(f"brokers: there is no {build.SERVICE}; build it first, or set BUILD_DIR", file=sys.stderr)
        return 2
    skipped = [name for name in arguments.brokers if not is_installed(name, arguments.install)]
    for name in skipped:
        print(f"brokers: {name} SKIPPED: it could not be installed", file=sys.stderr)
    tried = [name for name in arguments.brokers if name not in skipped]
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        columns = dict(zip(tried, pool.map(lambda name: run_in_sandbox(name, arguments), tried)))
    differences = [line for name in tried for line in page.differences(name, columns[name], arguments.only)]
    print("\n".join([page.table(columns), *differences]))
    if differences:
        return 1
    if skipped:
        return SKIPPED
    if tried == list(MAKES) and not arguments.only:
        page.FILE.write_text(page.text(columns), encoding="utf-8")
        print(f"brokers: wrote {page.FILE.relative_to(build.REPOSITORY)}")
    return 0


def parse():
    parser = argparse.ArgumentParser(
        prog="scripts/brokers", description=DESCRIPTION, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("brokers", nargs="*", metavar="BROKER", help="the brokers to try")
    parser.add_argument("--only", default="", metavar="TEXT", help="the checks whose names hold TEXT")
    parser.add_argument("--jobs", type=int, default=2, help="how many brokers at a time (default 2)")
    parser.add_argument("--no-install", dest="install", action="store_false", help="skip what isn't installed")
    parser.add_argument("--trace", action="store_true", help="with each failure, what the service wrote")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    unknown = set(arguments.brokers) - set(MAKES)
    if unknown:
        parser.error(f"there is no broker '{min(unknown)}'; there are: {', '.join(MAKES)}")
    arguments.brokers = arguments.brokers or list(MAKES)
    return arguments


def is_installed(name, install):
    if not version(name) and install:
        packages = MAKES[name].packages
        wanted = ["packages", *packages] if packages else []
        subprocess.run([build.REPOSITORY / "scripts" / "bootstrap", *wanted], check=False)
    return version(name) is not None


def say(broker, name, failure):
    """One line for the outer process: the name of the cell, and what failed."""
    print(f"{broker}: {name}: {' '.join(failure.split()) or 'yes'}", flush=True)


def run_in_sandbox(name, arguments):
    """{cell: failure} of this broker, as its run tells them."""
    with tempfile.TemporaryDirectory(prefix="brokers-") as directory:
        for folder in ("VEL", "etc/CA_Certificates"):
            (pathlib.Path(directory) / folder).mkdir(parents=True)
        outside = not build.DIRECTORY.is_relative_to(build.REPOSITORY)
        binds = ["--ro-bind", str(build.DIRECTORY), str(build.DIRECTORY)] if outside else []
        options = [f"--only={arguments.only}", *(["--trace"] if arguments.trace else [])]
        inner = [sys.executable, "-B", "-m", "brokers", "--inside", *options, name]
        command = [str(build.SANDBOX), *binds, directory, "--", *inner]
        column = {}
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True) as process:
            for line in process.stdout:
                print(line, end="", flush=True)
                broker, _, result = line.rstrip("\n").partition(": ")
                if broker == name:
                    cell, _, failure = result.partition(": ")
                    column[cell] = inside.PASSED if failure == "yes" else failure
        if process.returncode != 0:
            column["run"] = f"the run ended with status {process.returncode}"
        return column


if __name__ == "__main__":
    sys.exit(main())
