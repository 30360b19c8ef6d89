#!/usr/bin/python3
"""What configurations by request cost, and the service at its largest configuration.

Run by hand; prints tables. Times of one machine, to show how they grow with the number of entities.
"""

import argparse
import contextlib
import datetime
import functools
import pathlib
import shutil
import struct
import time

from asking import REPOSITORY, answer_time, run_in_sandbox, show_head, show_times
from support import configuration, csvlog, requests
from support.configuration import broker, publication, subscription
from support.device import VERBOSE, Device
from support.mosquitto import Mosquitto
from support.records import PublicationConfiguration, SubscriptionConfiguration
from support.waiting import wait_until

SIZES = (1, 30, 300, 1000)
RECORD = 0xA00000  # operand address
BROKERS, CALLERS, PERIOD = 30, 300, 100  # the largest configuration, and its interval in milliseconds
SELF_TEST = (*VERBOSE, "x", "true")
RESULTS = pathlib.Path("/VEL/System/AutoTests/Results/MQTTClientManager.txt")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--requests", type=int, default=300, metavar="N", help="requests of each kind (default 300)")
    parser.add_argument("--seconds", type=int, default=20, metavar="N", help="of the largest configuration (default 20)")
    parser.add_argument("--inside", nargs=2, help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if arguments.inside:
        kind, number = arguments.inside
        {"requests": show_requests, "largest": show_largest, "self-test": show_self_test}[kind](int(number), arguments)
        return
    show_head()
    for size in SIZES:
        run_in_sandbox(__file__, "--requests", arguments.requests, "--inside", "requests", size)
    run_in_sandbox(__file__, "--seconds", arguments.seconds, "--inside", "largest", CALLERS)
    run_in_sandbox(__file__, "--inside", "self-test", 0)


def show_requests(size, arguments):
    numbers = range(1, size + 1)
    with contextlib.closing(Device()) as device:
        device.configure(
            brokers=[broker(1, AutoConnect=0)],
            publications=[publication(n, PeriodicInterval=60000, DataAddr=configuration.data_at(1)) for n in numbers],
            subscriptions=[subscription(n, SubAddr=configuration.SUBSCRIPTIONS_AT, DataAddr=configuration.RECEIVED_AT)
                           for n in numbers],
        )
        device.run()
        device.requests.ask(requests.PAUSE)
        device.requests.ask(requests.GET_BROKER)  # behind the wait that follows a pause
        address = struct.pack("<I", RECORD)
        get = functools.partial(answer_time, device, requests.GET_PUBLICATION, size, payload=address)
        show_times(size, "read a publication back", arguments.requests, [get])
        records = [PublicationConfiguration(topic, 1, 0, 0).encode() for topic in ("changed/one", "changed/two")]
        sets = [functools.partial(answer_time, device, requests.SET_PUBLICATION, size, payload=record)
                for record in records]
        show_times(size, "change a publication", max(1, min(arguments.requests, 20000 // size) // 2), sets)
        record = SubscriptionConfiguration("changed", 1, 0, 0, 0).encode()
        change = functools.partial(answer_time, device, requests.SET_SUBSCRIPTION, size, payload=record)
        show_times(size, "change a subscription", max(2, min(arguments.requests, 20000 // size)), [change])
        print(f"{'':>8}  publications' file: {configuration.PUBLICATIONS_FILE.stat().st_size / 1024:.0f} KiB", flush=True)


def show_largest(size, arguments):
    with contextlib.closing(Device()) as device:
        partner = Mosquitto()
        device.configure(
            brokers=[broker(n) for n in range(1, BROKERS + 1)],
            publications=[publication(n, PeriodicInterval=PERIOD, CBrokerID=1 + n % BROKERS) for n in range(1, size + 1)],
            subscriptions=[subscription(n, CBrokerID=1 + n % BROKERS) for n in range(1, size + 1)],
        )
        begin = time.monotonic()
        service = device.start()
        wait_until(lambda: device.status() == 1, "the service to run", 120)
        print(f"{BROKERS} brokers, {size} publications each {PERIOD} ms, {size} subscriptions:", flush=True)
        print(f"  running after {time.monotonic() - begin:.1f} s", flush=True)
        time.sleep(2)
        first, sent = service.processor_seconds(), device.statistics().sent
        begin = time.monotonic()
        time.sleep(arguments.seconds)
        seconds = time.monotonic() - begin
        rate = (device.statistics().sent - sent) / seconds
        busy = (service.processor_seconds() - first) / seconds
        print(f"  {rate:.0f} publications/s of {size * 1000 // PERIOD}, {busy * 100:.0f} % of one processor", flush=True)
        print(f"  memory: {memory(service.pid)}", flush=True)
        partner.stop()


def show_self_test(_, arguments):
    with contextlib.closing(Device()) as device:
        shutil.copytree(REPOSITORY / "Platform" / "SelfTest" / "VEL", "/VEL", dirs_exist_ok=True)
        device.run(*SELF_TEST)
        first, *_, last = [row.time for row in csvlog.rows() if row.function.endswith("::RunAutoTest")]
        milliseconds = [datetime.datetime.strptime(moment, "%H:%M:%S.%f") for moment in (first, last)]
        print(RESULTS.read_text().splitlines()[-1], flush=True)
        print(f"  in {(milliseconds[1] - milliseconds[0]).total_seconds() * 1e3:.0f} ms, with debug lines", flush=True)


def memory(pid):
    lines = pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
    fields = dict(line.split(":", 1) for line in lines if line.startswith(("VmRSS", "RssAnon", "VmHWM", "Threads")))
    return ", ".join(f"{name} {' '.join(value.split())}" for name, value in fields.items())


if __name__ == "__main__":
    main()
