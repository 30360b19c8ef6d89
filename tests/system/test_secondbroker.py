"""The service with a broker of another make: nothing it does may hang on one broker's ways."""

import struct

import pytest

from support import records
from support.configuration import acknowledgement_at, broker, data_at, member, publication, subscription, will
from support.configuration import WILLS_AT
from support.records import BOOL, INT32, JSON, REAL, STR8, STRUCT, UINT16
from support.waiting import wait_until

RECORD = {
    "DataType": STRUCT,
    "PayloadFormat": JSON,
    "members": [
        member(0, UINT16, "count"),
        member(4, REAL, "speed"),
        member(8, BOOL, "on"),
        member(9, f"{STR8}_6", "name"),
    ],
}
RECORD_BYTES = struct.pack("<Hxxf?", 500, -1.5, True) + b"oven\0\0\0"
RECORD_TEXT = b'{"count":500,"speed":-1.5,"on":true,"name":"oven"}'


def number(value):
    return value.to_bytes(4, "little")


@pytest.mark.parametrize("qos", [0, 1, 2])
def test_raw_and_json_publications_go_out(device, aedes, listen, qos):
    listener = listen(aedes())
    device.tags.write(data_at(1), b"raw!")
    device.tags.write(data_at(2), RECORD_BYTES)
    device.configure(
        publications=[
            publication(1, QOS=qos, BrokerReceivedAddr=acknowledgement_at(1)),
            publication(2, QOS=qos, **RECORD),
        ]
    )
    device.run()
    assert {(sent.payload, sent.qos) for sent in listener.wait_for("plc/data/1", 5)} == {(b"raw!", qos)}
    assert {(sent.payload, sent.qos) for sent in listener.wait_for("plc/data/2", 5)} == {(RECORD_TEXT, qos)}
    if qos:
        wait_until(lambda: device.tags.read(acknowledgement_at(1), 1) == b"\1", "the acknowledgement")
        wait_until(lambda: device.statistics().acknowledged > 5, "acknowledgements to be counted")
    assert device.broker() == records.BrokerStatus(1, 0, 0)


@pytest.mark.parametrize("qos", [0, 1, 2])
def test_messages_reach_tags_by_exact_and_wildcard_filters(device, aedes, send, qos):
    sender = send(aedes())
    filters = {1: "plant/oven/speed", 2: "plant/+/speed", 3: "plant/#", 4: "#", 5: "plant/+", 6: "+/oven/#"}
    device.configure(subscriptions=[subscription(n, Topic=text, QOS=qos) for n, text in filters.items()])
    device.run()
    assert [device.subscription(n)[:2] for n in filters] == [(1, 0)] * 6
    for value in range(1, 21):
        sender.publish("plant/oven/speed", number(value), qos=qos)
    for n in (1, 2, 3, 4):
        device.wait_received(number(20), n)
        assert device.subscription(n).topic == "plant/oven/speed"
    # The last one is a filter for this broker, and the service's own rules don't take it.
    assert [device.received(n) for n in (5, 6)] == [number(0)] * 2


def test_json_arrives_in_a_struct(device, aedes, send):
    sender = send(aedes())
    device.configure(subscriptions=[subscription(1, QOS=1, **RECORD)])
    device.run()
    sender.publish("plc/command/1", RECORD_TEXT, qos=1)
    device.wait_received(RECORD_BYTES)


def test_publication_comes_back_by_a_subscription(device, aedes):
    aedes()
    device.tags.write(data_at(1), RECORD_BYTES)
    device.configure(
        publications=[publication(1, Topic="loop", QOS=1, **RECORD)],
        subscriptions=[subscription(1, Topic="loop", QOS=1, **RECORD)],
    )
    device.run()
    device.wait_received(RECORD_BYTES)
    assert device.stray_writes() == []


def test_retained_messages_at_boot_all_arrive(device, aedes, send):
    sender = send(aedes())
    identifiers = range(1, 21)
    for n in identifiers:
        sender.publish(f"plc/command/{n}", number(n), qos=1, retain=True)
    device.configure(subscriptions=[subscription(n, QOS=n % 3, DataType=INT32) for n in identifiers])
    device.run()
    for n in identifiers:
        device.wait_received(number(n), n)


def test_retained_publication_waits_for_who_comes_later(device, aedes, listen):
    partner = aedes()
    device.tags.write(data_at(1), b"keep")
    device.configure(publications=[publication(1, RetainFlag=1, QOS=1)])
    device.run()
    wait_until(lambda: device.statistics().acknowledged > 0, "the first one to be there")
    device.service.stop()
    (kept,) = listen(partner).wait_for("plc/data/1")
    assert (kept.payload, kept.retain) == (b"keep", True)


def test_will_goes_out_when_the_service_dies(device, aedes, listen):
    listener = listen(aedes())
    device.tags.write(WILLS_AT, b"gone\0")
    device.configure(brokers=[broker(**will(10))])
    device.run()
    device.service.kill()
    assert listener.wait_for("plc/state")[0].payload == b"gone"


def test_loss_of_the_connection_shows(device, aedes):
    partner = aedes()
    device.configure(subscriptions=[subscription(1)])
    device.run()
    partner.stop()
    device.wait_lost()
    wait_until(lambda: device.subscription(1)[:2] == (0, records.SUBSCRIPTION_LOST), "the subscription's record")
