"""Real brokers that are killed and come back under load, beside one that stays: its messages must be on time."""

import contextlib
import random
import time

from soak.report import Cost, largest_gap
from support import mosquitto
from support.configuration import broker, publication, subscription
from support.device import Device
from support.waiting import wait_until

DEFAULT, SHORT = 50, 3

PORTS = {1: 1883, 2: 1884, 3: 1885}
INTERVALS = {1: 1, 2: 1, 3: 6}
HEALTHY, QUICK, SLOW = PORTS
PERIOD = 20  # ms
LARGEST_GAP = 5.0  # seconds: less than the slow broker's interval, more than a busy machine takes


def run(report, kills):
    generator = random.Random(4)
    with contextlib.ExitStack() as stack:
        device = stack.enter_context(contextlib.closing(Device()))
        partners = {identifier: mosquitto.Mosquitto(port) for identifier, port in PORTS.items()}
        for partner in partners.values():
            stack.callback(partner.stop)
        listener = stack.enter_context(contextlib.closing(mosquitto.Listener(partners[HEALTHY].watch_port, "plc/#")))
        device.configure(
            brokers=[broker(n, Port=PORTS[n], ConnectionInterval=INTERVALS[n], CleanSession=n % 2) for n in PORTS],
            publications=publications(),
            subscriptions=[subscription(n, CBrokerID=n, QOS=1) for n in PORTS],
        )
        service = device.run()
        for identifier in PORTS:
            device.wait_connected(identifier)
        begin, first, worst = time.monotonic(), Cost.of(service), 0.0
        done = dict.fromkeys((QUICK, SLOW), 0)
        while min(done.values()) < kills:
            for identifier, count in done.items():
                if count < kills and device.broker(identifier).connected:
                    kill_and_restart(device, partners[identifier], identifier, generator)
                    done[identifier] += 1
            assert not service.has_ended(), "the service ended"
            end = time.monotonic()
            moments = [message.time for message in listener.received if message.time <= end]
            del listener.received[: len(moments)]
            worst = max(worst, largest_gap(moments, begin, end))
            assert worst < LARGEST_GAP, f"{worst:.2f} s without a message at the broker that stays"
            begin = end
            report.progress(f"{done[QUICK]} and {done[SLOW]} kills, largest gap {worst:.2f} s, {Cost.of(service)}")
        for identifier in PORTS:
            device.wait_connected(identifier, 2 * INTERVALS[SLOW] + 5)
            assert_flows(device, partners[identifier], identifier)
        last = first.settled(service)
        return f"{done[QUICK]} and {done[SLOW]} kills, largest gap {worst:.2f} s; {first} became {last}"


def publications():
    """Two to each broker, one of them acknowledged; the one that has to be on time is not."""
    found = [publication(1, Topic="plc/on-time", PeriodicInterval=PERIOD)]
    for identifier in (QUICK, SLOW):
        for qos in (0, 1):
            found.append(publication(len(found) + 1, CBrokerID=identifier, PeriodicInterval=PERIOD, QOS=qos))
    return found


def kill_and_restart(device, partner, identifier, generator):
    partner.kill()
    # Found by the next publication; the code of an attempt may have followed the loss already.
    wait_until(lambda: device.broker(identifier).connected == 0, "the loss")
    pass_time(generator.uniform(0, 1.5))
    partner.start()
    pass_time(generator.uniform(0, 1.5))


def pass_time(seconds):
    begin = time.monotonic()
    wait_until(lambda: time.monotonic() - begin > seconds, "the time to pass")


def assert_flows(device, partner, identifier):
    topic = next(entry["Topic"] for entry in publications() if entry["CBrokerID"] == identifier)
    with contextlib.closing(mosquitto.Listener(partner.watch_port, topic)) as listener:
        listener.wait_for(topic, 3)
