"""The signal that ends the service, in each state it may be in: it dies of it every time, within seconds."""

import contextlib
import itertools
import random
import signal
import threading
import time

from support.configuration import GENERAL_AT, broker, publication, subscription
from support.device import TEARDOWN_SECONDS, Device, died_of, sanitizer_findings
from support.requests import CONNECT, DISCONNECT, DONE, PAUSE, SEND, START, SUBSCRIBE, UNSUBSCRIBE
from support.scriptedbroker import ScriptedBroker, publish_packet
from support.waiting import wait_until

DEFAULT, SHORT = 200, 5


class Stage:
    """One service and its broker. A state is a method that leaves the service in the middle of something."""

    def __init__(self, device, partner):
        self.device = device
        self.partner = partner
        self.ended = threading.Event()

    def starting_up(self):
        """The signal comes at any moment of the first second and a half."""
        self.configure()
        self.device.start()

    def publishing(self):
        self.run(publications=[publication(n, PeriodicInterval=10, QOS=n % 3) for n in range(1, 51)])
        wait_until(lambda: self.device.statistics().sent > 20, "publications")

    def receiving(self):
        self.run(subscriptions=[subscription(n, Topic="plc/#") for n in range(1, 21)])
        self.in_the_background(self.partner.send_all, publish_packet("plc/flood", bytes(1000)))
        wait_until(lambda: self.device.statistics().received > 200, "messages")

    def handing_over(self):
        self.run(subscriptions=[subscription(n, IsBuffered=1) for n in (1, 2, 3)])
        for number in (1, 2, 3):
            self.partner.publish(f"plc/command/{number}", bytes(4))
        wait_until(lambda: self.device.statistics().received == 3, "messages")

    def reconnecting(self):
        self.run(publications=[publication(PeriodicInterval=10)], subscriptions=[subscription()])
        self.partner.hang_up_connected = True
        self.partner.drop_all()

    def connecting_in_vain(self):
        self.run(publications=[publication(PeriodicInterval=10)])
        self.partner.silent = True
        opened = self.partner.connections
        self.partner.drop_all()
        wait_until(lambda: self.partner.connections > opened, "the attempt")

    def serving_requests(self):
        self.run(subscriptions=[subscription(SubscribeAtBoot=0)], publications=[publication(PeriodicInterval=-1)])
        opcodes = itertools.cycle((SUBSCRIBE, UNSUBSCRIBE, DISCONNECT, CONNECT, SEND))
        self.in_the_background(lambda: self.device.requests.send(next(opcodes), 1))

    def pausing(self):
        self.run(publications=[publication(PeriodicInterval=10)], subscriptions=[subscription()])
        self.device.requests.send(PAUSE)

    def restarting(self):
        self.run(publications=[publication(PeriodicInterval=10)], subscriptions=[subscription()])
        assert self.device.requests.ask(PAUSE) == DONE
        self.device.requests.send(START)
        self.device.requests.send(CONNECT, 1)

    def run(self, **entities):
        self.configure(**entities)
        self.device.run()
        wait_until(lambda: self.device.broker().connected == 1, "the connection")

    def configure(self, **entities):
        self.device.configure(brokers=[broker()], **entities)

    def in_the_background(self, work, *arguments):
        """Again and again until the stage is taken down."""

        def repeat():
            with contextlib.suppress(OSError):
                while not self.ended.is_set():
                    work(*arguments)

        threading.Thread(target=repeat, daemon=True).start()


STATES = (
    "starting_up",
    "publishing",
    "receiving",
    "handing_over",
    "reconnecting",
    "connecting_in_vain",
    "serving_requests",
    "pausing",
    "restarting",
)


def run(report, rounds, state):
    generator = random.Random(state)
    slowest = 0.0
    with contextlib.closing(ScriptedBroker()) as partner:
        for number in range(1, rounds + 1):
            slowest = max(slowest, one_round(partner, state, generator))
            report.progress(f"round {number}, slowest end {slowest:.1f} s")
    return f"{rounds} rounds, slowest end {slowest:.1f} s"


def one_round(partner, state, generator):
    """Returns how long the service took to end."""
    partner.silent = partner.hang_up_connected = False
    for kept in (partner.publishes, partner.packets, partner.connects):
        kept.clear()
    with contextlib.closing(Device()) as device:
        device.requests.recreate_queue()
        device.tags.write(GENERAL_AT, bytes(12))
        stage = Stage(device, partner)
        try:
            getattr(stage, state)()
            pass_time(generator.uniform(0, 1.5 if state == "starting_up" else 0.5))
            begin = time.monotonic()
            ended_by = died_of(device.service.stop(TEARDOWN_SECONDS))
            seconds = time.monotonic() - begin
        finally:
            stage.ended.set()
        assert ended_by == signal.SIGTERM, f"ended by {ended_by}"
        # Killed ahead of its handlers it has registered nothing, or everything.
        assert state == "starting_up" or device.tags.registrations() == {}, "tags are left registered"
        assert not sanitizer_findings(), sanitizer_findings()
        return seconds


def pass_time(seconds):
    begin = time.monotonic()
    wait_until(lambda: time.monotonic() - begin > seconds, "the time to pass")
