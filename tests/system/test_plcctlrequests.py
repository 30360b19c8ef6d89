"""plcctl against the service: requests with their answers, and the control application of buffered subscriptions."""

import itertools
import json
import subprocess

from support import build, configuration, records
from support.configuration import broker, publication, subscription

PLCCTL = build.DIRECTORY / "bin" / "plcctl"

STATE_AT = 520


def plcctl(*arguments):
    """The exit status, and the objects that it printed."""
    finished = subprocess.run(
        [str(PLCCTL), *map(str, arguments), "--json"], capture_output=True, check=False, timeout=60, text=True
    )
    return finished.returncode, [json.loads(line) for line in finished.stdout.splitlines()]


def request(*arguments):
    """The exit status, and the codes that the status byte went through."""
    status, (answer,) = plcctl("request", *arguments)
    assert answer["lostWrites"] == 0
    return status, [value["code"] for value in answer["values"]]


def test_requests_are_served_and_their_answers_shown(device, mosquitto, listen, send):
    server = mosquitto()
    listener = listen(server)
    device.configure(
        brokers=[broker(AutoConnect=0)],
        publications=[publication(1, PeriodicInterval=-1), publication(2, PeriodicInterval=60_000)],
        subscriptions=[subscription(1, SubscribeAtBoot=0)],
    )
    device.tags.write(configuration.data_at(1), b"\x01\x02\x03\x04")
    device.run()

    assert request("connect", "broker1") == (0, [2, 0])
    assert device.broker().connected == 1
    assert request("subscribe", "subscription1") == (0, [2, 0])
    send(server).publish("plc/command/1", b"\x07\x00\x00\x00")
    device.wait_received(b"\x07\x00\x00\x00")
    assert request("send", 1) == (0, [2, 0])
    assert listener.wait_for("plc/data/1", 1)[0].payload == b"\x01\x02\x03\x04"
    assert request("publish-state", 2, "off") == (0, [2, 0])
    assert request("disconnect", 1) == (0, [2, 0])
    assert device.broker().connected == 0


def test_refusals_come_with_their_codes(device):
    device.configure(brokers=[broker(AutoConnect=0)], publications=[publication(1, PeriodicInterval=-1), publication(2)])
    device.run()

    for name in ("subscribe", "subscribe-all", "unsubscribe", "unsubscribe-all", "connect", "disconnect", "send"):
        assert request(name, 9999) == (102, [2, -2]), name
    assert request("publish-state", 1, "on") == (107, [2, -7])
    assert request("send", 2) == (108, [2, -8])
    assert request("send", 1) == (112, [2, -12])
    assert request("start") == (104, [2, -4])
    assert request("pause") == (0, [2, 0])
    assert device.status() == records.PAUSED
    assert request("connect", 9999) == (106, [2, -6])
    assert request("pause") == (105, [2, -5])
    assert request("start") == (0, [2, 0])
    assert plcctl("request", "raw", 17, "--status", 1000, "--timeout", 1)[0] == 4


def test_the_application_takes_buffered_messages_in_order_and_writes_only_between_hand_overs(device, mosquitto, send):
    server = mosquitto()
    device.configure(subscriptions=[subscription(1, IsBuffered=1)])
    service = device.run()
    since = device.tags.writes_made()
    sender = send(server)
    for number in (1, 2, 3):
        sender.publish("plc/command/1", number.to_bytes(4, "little"))

    status, lines = plcctl("app", "--messages", 3, "--for", 40)
    assert status == 0
    assert [line["value"] for line in lines if line["state"] == "handedOver"] == [1, 2, 3]
    record = configuration.subscription_at(1)
    marks = "".join(mark for write in device.tags.journal(since=since) if (mark := _mark(write, record, service.pid)))
    assert [group for group, _ in itertools.groupby(marks.replace("2", ""))] == ["c", "1", "0"] * 3


def _mark(write, record, service):
    """A write of the application, which has to be the clearing, as "c"; a hand-over state of the service as its digit."""
    if write.process != service:
        assert (write.position, write.data) == (record + records.SubscriptionStatus.RECEIVED_BIT_AT, b"\0")
        return "c"
    return str(write.data[0]) if (write.position, write.size) == (record + STATE_AT, 1) else ""
