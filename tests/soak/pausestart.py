"""Pause and start again and again, under messages both ways and with a reconnect loop asleep: nothing may pile up."""

import contextlib
import threading

from soak.report import Cost
from support import build, mosquitto
from support.configuration import broker, publication, subscription
from support.device import Device
from support.requests import CONNECT, DONE, PAUSE, START, SUBSCRIBE_ALL
from support.scriptedbroker import ScriptedBroker
from support.waiting import wait_until

DEFAULT, SHORT = 1000, 5

# The first rounds fill caches of the allocator and the libraries.
WARM_UP = 2
MEMORY_GROWTH = 1024  # KiB

NUMBERS = range(1, 11)


def run(report, rounds):
    with contextlib.ExitStack() as stack:
        device = stack.enter_context(contextlib.closing(Device()))
        partner = mosquitto.Mosquitto()
        stack.callback(partner.stop)
        dropping = stack.enter_context(contextlib.closing(ScriptedBroker(1884)))
        device.configure(
            brokers=[broker(1), broker(2, Port=1884, ConnectionInterval=3600)],
            publications=[publication(n, PeriodicInterval=20, QOS=n % 2) for n in NUMBERS],
            subscriptions=[subscription(n, IsBuffered=n % 2) for n in NUMBERS],
        )
        service = device.run()
        stack.enter_context(traffic(partner))
        first = Cost.of(service)
        for number in range(1, rounds + WARM_UP + 1):
            one_round(device, dropping)
            if number == WARM_UP:
                first = Cost.of(service)
                report.say(f"after {WARM_UP} rounds: {first}")
            report.progress(f"round {number}: {Cost.of(service)}")
        last = first.settled(service)
        assert build.sanitizers() or last.memory <= first.memory + MEMORY_GROWTH, f"{first} became {last}"
        return f"{rounds} rounds; {first} became {last}"


@contextlib.contextmanager
def traffic(partner):
    """Messages to all subscriptions, from a thread of their own."""
    ended = threading.Event()

    def send():
        with contextlib.closing(mosquitto.Sender(partner.watch_port)) as sender:
            while not ended.wait(0.02):
                for number in NUMBERS:
                    sender.publish(f"plc/command/{number}", bytes(4))

    thread = threading.Thread(target=send)
    thread.start()
    try:
        yield
    finally:
        ended.set()
        thread.join()


def one_round(device, dropping):
    sent, received = device.statistics().sent, device.statistics().received
    # The loop of this loss sleeps through the pause and the start.
    dropping.drop_all()
    wait_until(lambda: device.broker(2).connected == 0, "the loss")
    for opcode, identifier in ((PAUSE, 0), (START, 0), (CONNECT, 1), (CONNECT, 2), (SUBSCRIBE_ALL, 1)):
        answers = device.requests.ask(opcode, identifier, timeout=30)
        assert answers == DONE, f"opcode {opcode}: {answers}"
    device.requests.sent.clear()
    wait_until(lambda: device.statistics().sent > sent + 20, "publications")
    wait_until(lambda: device.statistics().received > received + 20, "messages")
