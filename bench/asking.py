"""What the benchmarks of requests share: a controller of its own for each run, and the time that an answer takes."""

import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(REPOSITORY / "tests"))

from support import requests  # noqa: E402

STATUS = 0x900000  # operand address


def run_in_sandbox(script, *arguments):
    build = Path(os.environ.get("BUILD_DIR", REPOSITORY / "build/release"))
    with tempfile.TemporaryDirectory(prefix="asking-") as directory:
        for folder in ("VEL", "etc/CA_Certificates"):
            (Path(directory) / folder).mkdir(parents=True)
        binds = [] if build.is_relative_to(REPOSITORY) else ["--ro-bind", str(build), str(build)]
        inner = [sys.executable, str(Path(script).resolve()), *map(str, arguments)]
        subprocess.run([str(REPOSITORY / "scripts/sandbox"), *binds, directory, "--", *inner], check=True)


def answer_time(device, opcode, identifier=0, **fields):
    """Seconds from the send to the final status."""
    position = requests.status_position(STATUS)
    unanswered = (requests.UNTOUCHED, requests.IN_PROGRESS)
    device.tags.write(position, bytes([requests.UNTOUCHED]))
    message = requests.record(opcode, identifier, STATUS, **fields)
    begin = time.perf_counter()
    device.requests.send_raw(message)
    while device.tags.read(position, 1)[0] in unanswered:
        time.sleep(0)  # lets the service have the processor
    return time.perf_counter() - begin


def show(size, name, times, seconds):
    p99 = statistics.quantiles(times, n=100)[98]
    print(
        f"{size:>8}  {name:<36} {len(times) / seconds:>10.0f} {statistics.median(times) * 1e3:>6.2f} ms"
        f" {p99 * 1e3:>6.2f} ms",
        flush=True,
    )


def show_head():
    print(f"{'entities':>8}  {'request':<36} {'per second':>10} {'p50':>9} {'p99':>9}", flush=True)


def show_times(size, name, rounds, steps):
    """`steps` are called in turn; each returns the seconds that its answer took."""
    begin = time.perf_counter()
    times = [step() for _ in range(rounds) for step in steps]
    show(size, name, times, time.perf_counter() - begin)
