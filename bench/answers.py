#!/usr/bin/python3
"""How long the controller waits for answers: requests without a specified wait, and brokers that come back together.

Run by hand; prints a table. These are times of one machine, not ratios: the bare client library takes no requests. They
are there to show how the times grow with the number of entities.
"""

import argparse
import contextlib
import functools
import time

from asking import answer_time, run_in_sandbox, show_head, show_times
from support import requests
from support.configuration import broker as broker_entry
from support.configuration import publication, subscription
from support.device import Device
from support.mosquitto import Mosquitto
from support.waiting import wait_until

SIZES = (1, 30, 300)  # publications and subscriptions
BROKERS = (1, 10, 30)
UNKNOWN = 9999


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--requests", type=int, default=300, metavar="N", help="requests of each kind (default 300)")
    parser.add_argument("--inside", nargs=2, help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if arguments.inside:
        kind, number = arguments.inside
        (show_answers if kind == "answers" else show_reconnection)(int(number), arguments.requests)
        return
    show_head()
    for size in SIZES:
        run_in_sandbox(__file__, "--requests", arguments.requests, "--inside", "answers", size)
    for brokers in BROKERS:
        run_in_sandbox(__file__, "--inside", "reconnection", brokers)


def show_answers(size, count):
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
            show_times(size, name, rounds, [functools.partial(answer_time, device, *step) for step in steps])
        broker.stop()


def show_reconnection(number, _):
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
