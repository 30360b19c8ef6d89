#!/usr/bin/python3
"""How long the controller waits for answers: requests without a specified wait, and brokers that come back together.

Run by hand; prints a table. These are times of one machine, not ratios: the bare client library takes no requests. They
are there to show how the times grow with the number of entities.
"""

import argparse
import contextlib
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(REPOSITORY / "tests"))

SIZES = (1, 30, 300)  # publications and subscriptions
BROKERS = (1, 10, 30)
UNKNOWN = 9999
STATUS = 0x900000  # operand address


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--requests", type=int, default=300, metavar="N", help="requests of each kind (default 300)")
    parser.add_argument("--inside", nargs=2, help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if arguments.inside:
        kind, number = arguments.inside
        (show_answers if kind == "answers" else show_reconnection)(int(number), arguments.requests)
        return
    print(f"{'entities':>8}  {'request':<34} {'per second':>10} {'p50':>9} {'p99':>9}", flush=True)
    for size in SIZES:
        run_in_sandbox("answers", size, arguments.requests)
    for brokers in BROKERS:
        run_in_sandbox("reconnection", brokers, arguments.requests)


def run_in_sandbox(kind, number, requests):
    build = Path(os.environ.get("BUILD_DIR", REPOSITORY / "build/release"))
    with tempfile.TemporaryDirectory(prefix="answers-") as directory:
        for folder in ("VEL", "etc/CA_Certificates"):
            (Path(directory) / folder).mkdir(parents=True)
        outside = not build.is_relative_to(REPOSITORY)
        binds = ["--ro-bind", str(build), str(build)] if outside else []
        script = str(Path(__file__).resolve())
        inner = [sys.executable, script, "--requests", str(requests), "--inside", kind, str(number)]
        subprocess.run([str(REPOSITORY / "scripts/sandbox"), *binds, directory, "--", *inner], check=True)


def show_answers(size, count):
    from support import requests
    from support.configuration import publication, subscription
    from support.device import Device
    from support.mosquitto import Mosquitto

    numbers = range(1, size + 1)
    with contextlib.closing(Device()) as device:
        broker = Mosquitto()
        device.configure(
            publications=[publication(n, PeriodicInterval=1000) for n in numbers],
            subscriptions=[subscription(n, SubscribeAtBoot=0) for n in numbers],
        )
        device.run()
        last = size  # found behind all others
        kinds = {
            "for an unknown ID": [(requests.SUBSCRIBE, UNKNOWN)],
            "publish state": [(requests.SET_PUBLISH_STATE, last)],
            "subscribe, unsubscribe at the broker": [(requests.SUBSCRIBE, last), (requests.UNSUBSCRIBE, last)],
            "disconnect, connect at the broker": [(requests.DISCONNECT, 1), (requests.CONNECT, 1)],
        }
        for name, steps in kinds.items():
            rounds = max(1, (count if "connect" not in name else min(count, 20)) // len(steps))
            begin = time.perf_counter()
            times = [answer_time(device, *step) for _ in range(rounds) for step in steps]
            seconds = time.perf_counter() - begin
            p99 = statistics.quantiles(times, n=100)[98]
            print(
                f"{size:>8}  {name:<34} {len(times) / seconds:>10.0f} {statistics.median(times) * 1e3:>6.2f} ms"
                f" {p99 * 1e3:>6.2f} ms",
                flush=True,
            )
        broker.stop()


def answer_time(device, opcode, identifier):
    """Seconds from the send to the final status."""
    from support import requests

    position = requests.status_position(STATUS)
    unanswered = (requests.UNTOUCHED, requests.IN_PROGRESS)
    device.tags.write(position, bytes([requests.UNTOUCHED]))
    message = requests.record(opcode, identifier, STATUS)
    begin = time.perf_counter()
    device.requests.send_raw(message)
    while device.tags.read(position, 1)[0] in unanswered:
        time.sleep(0)  # lets the service have the processor
    return time.perf_counter() - begin


def show_reconnection(number, _):
    from support.configuration import broker as broker_entry
    from support.device import Device
    from support.mosquitto import Mosquitto
    from support.waiting import wait_until

    brokers = range(1, number + 1)
    with contextlib.closing(Device()) as device:
        partner = Mosquitto()
        device.configure(brokers=[broker_entry(n, ConnectionInterval=1) for n in brokers])
        device.run()
        wait_until(lambda: all(device.broker(n).connected for n in brokers), "all brokers", 60)
        partner.kill()
        wait_until(lambda: not any(device.broker(n).connected for n in brokers), "the loss of all", 60)
        partner.start()
        begin = time.monotonic()
        wait_until(lambda: all(device.broker(n).connected for n in brokers), "all brokers again", 120)
        seconds = time.monotonic() - begin
        print(f"{number:>8}  brokers connected again, interval 1 s, {seconds:>6.1f} s after the restart", flush=True)
        partner.stop()


if __name__ == "__main__":
    main()
