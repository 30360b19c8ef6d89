"""The last will: the tag's text at the moment of the attempt."""

import signal

import pytest

from support import configuration
from support.configuration import WILLS_AT, broker, will
from support.records import REAL, STR16, UINT32, BrokerStatus
from support.scriptedbroker import Will
from support.waiting import wait_until


def announced_will(device, scripted, memory, **attributes):
    partner = scripted()
    device.tags.write(WILLS_AT, memory)
    device.configure(brokers=[broker(**attributes)])
    device.run()
    return partner.connects[0].will


def test_will_holds_the_tags_text(device, scripted):
    expected = Will("plc/state", b"offline", 0, False)
    assert announced_will(device, scripted, b"offline\0rest of the slot", **will(20)) == expected


def test_will_is_not_announced_without_an_address(device, scripted):
    attributes = will(20) | {"LastWillAddr": -1}
    assert announced_will(device, scripted, b"offline\0", **attributes) is None


def test_will_is_read_anew_for_each_attempt(device, scripted):
    partner = scripted()
    partner.refuse = 3
    device.tags.write(WILLS_AT, b"first\0")
    device.configure(brokers=[broker(**will(20))])
    device.run()
    assert {connect.will.message for connect in partner.connects} == {b"first"}
    device.tags.write(WILLS_AT, b"second\0")
    wait_until(lambda: partner.connects[-1].will.message == b"second", "an attempt with the new text")
    partner.refuse = 0
    device.wait_connected()
    assert partner.connects[-1].will.message == b"second"


def test_change_after_the_connection_does_not_reach_the_broker(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.tags.write(WILLS_AT, b"before\0")
    device.configure(brokers=[broker(**will(20))])
    service = device.run()
    device.tags.write(WILLS_AT, b"after\0")
    service.kill()
    assert listener.wait_for("plc/state")[0].payload == b"before"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL], ids=lambda number: number.name)
def test_broker_publishes_the_will_when_the_service_dies(device, mosquitto, listen, number):
    listener = listen(mosquitto())
    device.tags.write(WILLS_AT, b"offline\0")
    device.configure(brokers=[broker(**will(20))])
    service = device.run()
    assert device.broker() == BrokerStatus(1, 0, 0)
    service.signal(number)
    (message,) = listener.wait_for("plc/state")
    assert (message.payload, message.qos, message.retain) == (b"offline", 0, False)


def test_empty_text_is_an_empty_will_and_not_none(device, scripted):
    assert announced_will(device, scripted, b"\0offline", **will(20)) == Will("plc/state", b"", 0, False)


def test_tag_that_is_full_to_its_last_byte_ends_there(device, scripted):
    assert announced_will(device, scripted, b"abcdefghijkl", **will(5)).message == b"abcdef"


def test_will_of_a_number_tag_is_its_bytes_as_text(device, scripted):
    attributes = will(0) | {"DataType": UINT32}
    assert announced_will(device, scripted, b"12345678", **attributes).message == b"1234"


def test_will_of_an_utf16_tag_ends_at_the_first_zero_byte(device, scripted):
    attributes = will(0) | {"DataType": f"{STR16}_5"}
    assert announced_will(device, scripted, "abc".encode("utf-16-le"), **attributes).message == b"a"


def test_will_topic_names_the_controller(device, scripted):
    attributes = will(5, topic="{PLC.NAME}/{PLC.SN}/{PLC.MAC}")
    assert announced_will(device, scripted, b"x\0", **attributes).topic == "press/SN123/02:00:00:00:00:01"


def test_will_without_a_topic_can_not_connect(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(**will(5, topic=""))])
    device.run()
    assert device.broker() == BrokerStatus(0, 0, -17)
    assert partner.connects == []


def test_will_outside_tag_memory_is_empty(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(**will(20, address=0x7000000))])
    device.run()
    assert partner.connects[0].will.message == b""


@pytest.mark.parametrize("length", [70000, 2147483647, -5, -2147483648])
def test_will_of_an_odd_length_does_no_harm(device, scripted, length):
    partner = scripted()
    device.tags.write(WILLS_AT, b"down\0")
    device.configure(brokers=[broker(**will(length))])
    device.run()
    wait_until(lambda: partner.connects, "the connection")
    assert partner.connects[0].will.message in (b"down", b"")
    assert device.broker() == BrokerStatus(1, 0, 0)


def test_each_broker_has_a_will_of_its_own(device, scripted):
    first, second = scripted(1883), scripted(1884)
    device.tags.write(WILLS_AT, b"one\0")
    device.tags.write(WILLS_AT + 100, b"two\0")
    device.configure(
        brokers=[broker(1, **will(9, "state/1")), broker(2, Port=1884, **will(9, "state/2", WILLS_AT + 100))]
    )
    device.run()
    assert first.connects[0].will == Will("state/1", b"one", 0, False)
    assert second.connects[0].will == Will("state/2", b"two", 0, False)


def test_will_tag_is_registered(device):
    device.configure(brokers=[broker(AutoConnect=0, **will(20)), broker(2, AutoConnect=0, DataType=REAL)])
    device.run()
    ((first, *_),) = device.tags.registrations().values()
    assert (first.length, first.address) == (21, configuration.WILLS_AT)


@pytest.mark.parametrize(
    ("memory", "message"),
    [("ende € 😀".encode(), "ende € 😀"), (b"\xff\xfeab", "\ufffd\ufffdab")],
    ids=["utf-8", "no utf-8"],
)
def test_will_beyond_ascii_is_utf8(device, scripted, memory, message):
    assert announced_will(device, scripted, memory + b"\0", **will(30)).message == message.encode()
