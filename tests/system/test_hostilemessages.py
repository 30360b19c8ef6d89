"""What a broker may send that no honest one does. Afterwards the next good message works, and nothing was written but
the subscriptions' own records and data."""

import contextlib
import struct

import pytest

from support import build, configuration, records
from support.configuration import broker, member, subscription
from support.device import VERBOSE, died_of
from support.exchange import pass_fence, fence_subscription
from support.records import INT32, JSON, REAL, STR8, STR16, STR32, STRUCT, UINT8, UINT16, UINT32, SubscriptionStatus
from support.scriptedbroker import packet, publish_packet
from support.waiting import holds_for, wait_until

pytestmark = pytest.mark.timeout(60)

SIGTERM = 15
PEAK_MEMORY = 500e6


@pytest.fixture(autouse=True)
def nothing_strays(device):
    yield
    assert device.stray_writes() == []


def number(value):
    return value.to_bytes(4, "little")


def subscribed(device, scripted, *entries, arguments=()):
    """A broker that has these subscriptions of the service."""
    partner = scripted()
    device.configure(subscriptions=[*entries, fence_subscription()])
    device.run(*arguments)
    return partner


def everything(**attributes):
    return subscription(1, Topic="#", **attributes)


def json_struct(*members, identifier=1, **attributes):
    return subscription(identifier, DataType=STRUCT, members=list(members), PayloadFormat=JSON, **attributes)


def topic_of_the_last_message(device):
    """As bytes of UTF-16, whether it is well-formed or not."""
    field = device.tags.read(configuration.subscription_at(1) + SubscriptionStatus.TOPIC_AT, 512)
    units = [field[at : at + 2] for at in range(0, 512, 2)]
    return b"".join(units[: units.index(b"\0\0")])


# Topics

LONG_TOPICS = {
    "ascii": b"t" * 65535,
    "two bytes a character": ("ä" * 32767).encode(),
    "three bytes a character": ("漢" * 21845).encode(),
    "four bytes a character": ("😀" * 16383).encode(),
    "levels": b"/" * 65535,
    "no UTF-8": b"\xff" * 65535,
    "one unit too long": b"t" * 256,
}


@pytest.mark.parametrize("name", LONG_TOPICS)
@pytest.mark.parametrize("arguments", [(), VERBOSE], ids=["quiet", "verbose"])
def test_long_topic_is_cut_in_the_record(device, scripted, name, arguments):
    partner = subscribed(device, scripted, everything(), arguments=arguments)
    partner.publish(LONG_TOPICS[name], number(7))
    device.wait_received(number(7))
    text = LONG_TOPICS[name].decode(errors="replace").encode("utf-16-le")
    field = topic_of_the_last_message(device)
    assert len(field) in (254 * 2, 255 * 2)
    assert text.startswith(field)
    pass_fence(device, partner)


def test_topic_of_just_the_fields_length_is_not_cut(device, scripted):
    partner = subscribed(device, scripted, everything())
    partner.publish("t" * 255, number(7))
    device.wait_received(number(7))
    assert device.subscription().topic == "t" * 255


NO_UTF8 = [b"\xff", b"a\x80b", b"\xc3", b"\xed\xa0\x80", b"\xf8\x88\x80\x80\x80", b"\xc0\x80", b"\xf4\x90\x80\x80"]


@pytest.mark.parametrize("topic", NO_UTF8, ids=bytes.hex)
def test_topic_that_is_no_utf8_shows_replacement_characters(device, scripted, topic):
    partner = subscribed(device, scripted, everything())
    partner.publish(topic, number(8))
    device.wait_received(number(8))
    assert "\ufffd" in device.subscription().topic
    pass_fence(device, partner)


def test_topic_ends_at_a_zero_byte(device, scripted):
    partner = subscribed(device, scripted, everything(), subscription(2, Topic="a/b"))
    partner.publish(b"a/b\0/c", number(9))
    device.wait_received(number(9), 2)
    assert device.subscription(2).topic == "a/b"
    partner.publish(b"\0a", number(10))
    device.wait_received(number(10), 1)
    assert device.subscription(1).topic == ""
    pass_fence(device, partner)


def test_empty_topic_is_a_topic(device, scripted):
    partner = subscribed(device, scripted, everything(), subscription(2))
    partner.publish(b"", number(9))
    device.wait_received(number(9), 1)
    assert device.received(2) == number(0)
    pass_fence(device, partner)


# Payloads


@pytest.mark.parametrize("payload_format", [0, 1])
@pytest.mark.parametrize("size", [0, 1, 4, 1_000_000])
def test_payload_of_any_size_leaves_the_next_message_alone(device, scripted, payload_format, size):
    entries = [subscription(n, PayloadFormat=payload_format, Topic="t", Ent=n - 1) for n in (1, 2)]
    partner = subscribed(device, scripted, *entries)
    for qos in (0, 1, 2):
        partner.publish("t", b"7" * size, qos, 1 + qos)
    pass_fence(device, partner)
    assert device.subscription().topic == "t"
    wait_until(lambda: partner.acknowledged == [2, 3], "the acknowledgements")


def test_broker_that_announces_200_megabytes_and_stops(device, scripted):
    stalled, healthy = scripted(1883), scripted(1884)
    device.configure(
        brokers=[broker(1), broker(2, Port=1884)],
        subscriptions=[subscription(1), subscription(2, CBrokerID=2), subscription(3, CBrokerID=2, Topic="x")],
        publications=[configuration.publication(1, CBrokerID=2, PeriodicInterval=50)],
    )
    service = device.run()
    stalled.send_all(publish_packet("plc/command/1", b"x" * 100_000, announced=200_000_000))
    sent = len(healthy.publishes)
    for value in range(1, 20):
        healthy.publish("plc/command/2", number(value))
        device.wait_received(number(value), 2, nudge=lambda: healthy.publish("nobody's"))
    wait_until(lambda: len(healthy.publishes) > sent + 10, "publications to go on")
    assert device.received(1) == number(0)
    assert died_of(service.stop()) == SIGTERM
    assert service.peak_memory < (PEAK_MEMORY if build.sanitizers() else 300e6)


def test_message_that_stops_half_way_is_dropped_with_its_connection(device, scripted):
    partner = subscribed(device, scripted, subscription(1))
    whole = publish_packet("plc/command/1", number(1))
    partner.send_all(whole[:-2])
    partner.drop_all()
    lost = records.BrokerStatus(0, 0, records.CONNECTION_LOST)
    wait_until(lambda: lost in device.broker_history(), lambda: f"the loss: {device.broker_history()}")
    assert device.received() == number(0)
    assert device.data_writes() == []


def test_packet_that_comes_byte_by_byte_arrives(device, scripted):
    partner = subscribed(device, scripted, subscription(1))
    for byte in publish_packet("plc/command/1", number(0x01020304), qos=1):
        partner.send_all(bytes([byte]))
    device.wait_received(number(0x01020304))


# A topic longer than the packet, an identifier that isn't there, both qualities at once, kinds that don't exist.
BROKEN_PACKETS = {
    "topic longer than the packet": packet(0x30, struct.pack(">H", 1000) + b"plc"),
    "no topic": packet(0x30, b""),
    "half a topic length": packet(0x30, b"\0"),
    "no identifier": packet(0x32, struct.pack(">H", 3) + b"plc"),
    "quality of service 3": packet(0x36, struct.pack(">H", 3) + b"plc\0\1x"),
    "kind 0": packet(0x00, b"abc"),
    "kind 15": packet(0xF0, b"abc"),
    "length without an end": b"\x30" + b"\xff" * 10,
    "subscription answer out of the blue": packet(0x90, b"\0\1\0"),
    "empty subscription answer": packet(0x90, b""),
    "empty acknowledgement": packet(0x40, b""),
}


@pytest.mark.parametrize("name", BROKEN_PACKETS)
def test_broken_packet_does_not_end_the_service(device, scripted, name):
    hostile, healthy = scripted(1883), scripted(1884)
    device.configure(
        brokers=[broker(1, ConnectionInterval=0), broker(2, Port=1884)],
        subscriptions=[subscription(1), subscription(2, CBrokerID=2)],
    )
    service = device.run()
    hostile.send_all(BROKEN_PACKETS[name])
    for value in range(1, 10):
        healthy.publish("plc/command/2", number(value))
        device.wait_received(number(value), 2, timeout=5)
    holds_for(lambda: not service.has_ended(), "the service", 0.3)


# JSON

RECORD = [
    member(0, UINT16, "a"),
    member(2, UINT16, "list", 3),
    member(8, REAL, "r"),
    member(12, INT32, "i"),
    member(16, f"{STR8}_7", "s8"),
    member(24, f"{STR16}_3", "s16"),
    member(32, f"{STR32}_3", "s32"),
]
GOOD = '{"a":1,"list":[1,2,3],"r":1.5,"i":-1,"s8":"eight","s16":"abc","s32":"xyz"}'
GOOD_BYTES = (
    struct.pack("<4Hfi", 1, 1, 2, 3, 1.5, -1)
    + b"eight\0\0\0"
    + "abc\0".encode("utf-16-le")
    + "xyz\0".encode("utf-32-le")
)
DEEP = 100_000

HOSTILE_JSON = {
    "nested arrays": "[" * DEEP + "]" * DEEP,
    "nested arrays without an end": "[" * DEEP,
    "nested objects": '{"a":' * DEEP + "1" + "}" * DEEP,
    "nested objects without an end": '{"a":' * DEEP,
    "nested member": '{"list":%s1%s}' % ("[" * DEEP, "]" * DEEP),
    "strings far past their slots": '{"s8":"%s","s16":"%s","s32":"%s"}' % ("x" * 50_000, "y" * 50_000, "z" * 50_000),
    "wide strings far past their slots": '{"s8":"%s","s16":"%s","s32":"%s"}' % (("😀" * 20_000,) * 3),
    "repeated keys": "{%s}" % ",".join(f'"a":{n % 65536}' for n in range(20_000)),
    "many keys": "{%s}" % ",".join(f'"k{n}":{n}' for n in range(20_000)),
    "numbers of 400 digits": '{"a":%s,"r":%s,"i":-%s,"list":[%s]}' % (("9" * 400,) * 4),
    "fraction of 400 digits": '{"a":0.%s,"r":1.%s,"i":-0.%s}' % (("9" * 400,) * 3),
    "huge exponents": '{"a":1e400,"r":-1e400,"i":1e9999999,"list":[1e-400,1e308,-1e308]}',
    "long list": '{"list":[%s]}' % ",".join(["1"] * 100_000),
    "wrong kinds": '{"a":{"a":1},"list":{"0":1},"r":"x","i":[1],"s8":5,"s16":null,"s32":[]}',
    "escapes": '{"s8":"\\u0000\\ud800\\udfff","s16":"\\ud83d","s32":"\\ude00\\ud83d\\u0000x"}',
    "bad escapes": '{"s8":"\\u12","s16":"\\x","s32":"\\',
    "long text without JSON": "x" * 1_000_000,
    "quotes": '"' * 100_000,
    "blanks": " " * 1_000_000,
}
HOSTILE_BYTES = {
    "no UTF-8": b'{"s8":"\xff\xfe\x80","s16":"\xc3","s32":"\xed\xa0\x80"}',
    "byte order mark": b"\xef\xbb\xbf{}",
    "binary": bytes(range(256)) * 100,
    "zeros inside": b'{"s8":"a\0b","a":2}' + bytes(1000),
    "zeros alone": bytes(1000),
}
HOSTILE = {name: text.encode() for name, text in HOSTILE_JSON.items()} | HOSTILE_BYTES


def targets():
    """A struct, and plain data of each kind."""
    types = [(UINT16, 0), (UINT16, 3), (REAL, 2), (INT32, 0), (UINT8, 5), (f"{STR8}_7", 0), (f"{STR16}_7", 0),
             (f"{STR32}_7", 0)]  # fmt: skip
    plain = [subscription(n, DataType=kind, Ent=entries) for n, (kind, entries) in enumerate(types, 2)]
    return [json_struct(*RECORD, Topic="t"), *(entry | {"PayloadFormat": JSON, "Topic": "t"} for entry in plain)]


def check_that_the_next_message_arrives(device, scripted, payload, arguments=()):
    partner = subscribed(device, scripted, *targets(), arguments=arguments)
    partner.publish("t", payload)
    pass_fence(device, partner)
    partner.publish("t", GOOD)
    device.wait_received(GOOD_BYTES)


@pytest.mark.parametrize("name", HOSTILE)
def test_hostile_json_leaves_the_next_message_alone(device, scripted, name):
    check_that_the_next_message_arrives(device, scripted, HOSTILE[name])


@pytest.mark.parametrize("name", ["nested objects", "long text without JSON", "numbers of 400 digits", "binary"])
def test_hostile_json_is_harmless_in_the_log_too(device, scripted, name):
    check_that_the_next_message_arrives(device, scripted, HOSTILE[name], VERBOSE)


@pytest.mark.parametrize("kind", ["object", "list", "text", "garbage"])
def test_20_megabytes_of_json(device, scripted, kind):
    size = 20_000_000
    payload = {
        "object": b'{"a":[' + b"1," * (size // 2) + b"1]}",
        "list": b"[" + b"1," * (size // 2) + b"1]",
        "text": b"x" * size,
        "garbage": b'{"a":"' + b"x" * size,
    }[kind]
    entries = [
        json_struct(member(0, UINT16, "a", 4), Topic="t"),
        subscription(2, DataType=UINT16, Ent=4, PayloadFormat=JSON, Topic="t"),
        subscription(3, DataType=f"{STR8}_20", PayloadFormat=JSON, Topic="t"),
        subscription(4, DataType=UINT8, Ent=4, Topic="t"),
    ]
    partner = subscribed(device, scripted, *entries)
    partner.publish("t", payload)
    pass_fence(device, partner)
    assert device.received(4, 4) == payload[:4]
    partner.publish("t", '{"a":[1,2,3,4]}')
    device.wait_received(struct.pack("<4H", 1, 2, 3, 4))
    service = device.service
    service.stop()
    assert service.peak_memory < (3 if build.sanitizers() else 1) * PEAK_MEMORY


def test_members_outside_the_tag_are_not_written(device, scripted):
    # The last member alone gives the size: two bytes.
    members = [member(1000, f"{STR16}_20", "text"), member(0xFFFFFFFF, UINT32, "far"), member(1, UINT32, "across"),
               member(0, UINT16, "last")]  # fmt: skip
    partner = subscribed(device, scripted, json_struct(*members))
    partner.publish("plc/command/1", '{"text":"%s","far":1,"across":4294967295,"last":258}' % ("x" * 30))
    device.wait_received(b"\2\1\0\0")
    pass_fence(device, partner)


# Many messages


def test_flood_of_messages_all_arrive_in_order(device, scripted):
    count = 20_000
    partner = subscribed(device, scripted, subscription(1))
    at_once = 500
    for first in range(1, count, at_once):
        partner.send_all(b"".join(publish_packet("plc/command/1", number(n)) for n in range(first, first + at_once)))
    device.wait_received(number(count), timeout=20)
    pass_fence(device, partner)
    values = [int.from_bytes(write.data, "little") for write in device.data_writes()]
    assert values == list(range(1, count + 1))
    assert device.statistics().received == count + 1


def test_flood_nobody_subscribed_to_is_passed_over(device, scripted):
    partner = subscribed(device, scripted, subscription(1))
    for _ in range(20):
        partner.send_all(publish_packet("somebody/else", b"x" * 100) * 500)
    pass_fence(device, partner)
    assert device.statistics().received == 1


def test_same_identifier_again_and_again_is_acknowledged_each_time(device, scripted):
    partner = subscribed(device, scripted, subscription(1, QOS=2))
    for value in range(1, 51):
        partner.publish("plc/command/1", number(value), qos=1 + value % 2, identifier=5)
        wait_until(lambda: len(partner.acknowledged) == value, f"acknowledgement {value}")
    device.wait_received(number(50))


# Around SUBSCRIBE


def test_messages_before_the_answer_to_a_subscription_do_no_harm(device, scripted):
    partner = scripted()
    partner.before_subscribe_answer = publish_packet("plc/command/1", number(1)) * 3 + publish_packet("other", b"x")
    device.configure(subscriptions=[subscription(1), subscription(2), fence_subscription()])
    device.run()
    assert [device.subscription(n).subscribed for n in (1, 2)] == [1, 1]
    partner.publish("plc/command/1", number(2))
    device.wait_received(number(2))
    pass_fence(device, partner)


# The client library counts its patience of 10 s in naps, each of which takes longer on a busy machine. In the last of
# these seconds no message of any broker gets through.
LONGEST_REQUEST = 30


@pytest.mark.timeout(90)
def test_subscription_that_is_never_answered_ends_after_ten_seconds(device, scripted):
    silent, healthy = scripted(1883), scripted(1884)
    silent.answer_subscribe = False
    device.configure(
        brokers=[broker(1, ConnectionInterval=0), broker(2, Port=1884)],
        subscriptions=[subscription(2, CBrokerID=2), subscription(1), subscription(3)],
    )
    service = device.start()
    wait_until(lambda: silent.subscribes, "the request")
    # Messages of either broker, while the main thread waits for the answer.
    sent = 0

    def messages_flow():
        nonlocal sent
        sent += 1
        with contextlib.suppress(OSError):  # the connection is gone in the end
            silent.publish("other", number(sent))
        healthy.publish("plc/command/2", number(sent))
        device.wait_received(number(sent), 2, timeout=LONGEST_REQUEST)
        return device.status() == records.RUNNING

    wait_until(messages_flow, "the start to go on", timeout=LONGEST_REQUEST + 10)
    # As the thread saw it that asked: the second subscription's answer right ahead of the request, then its failure.
    begin = next(write.time for write in device.record_writes(2) if write.data[0] == 1)
    end = next(write.time for write in device.record_writes(1) if write.data[1] != 0)
    assert 9.5 < end - begin < LONGEST_REQUEST
    assert len(silent.subscribes) == 1  # the next one finds no connection and doesn't wait as well
    assert sent > 20
    assert [device.subscription(n).subscribed for n in (1, 2, 3)] == [0, 1, 0]
    assert device.subscription(1).code != 0
    assert not service.has_ended()


@pytest.mark.parametrize("moment", ["half an answer", "no answer"])
def test_connection_cut_in_the_middle_of_a_subscription(device, scripted, moment):
    hostile, healthy = scripted(1883), scripted(1884)
    hostile.cut_subscribe_answer = moment == "half an answer"
    hostile.answer_subscribe = False
    device.configure(
        brokers=[broker(1, ConnectionInterval=0), broker(2, Port=1884)],
        subscriptions=[subscription(1), subscription(3), subscription(2, CBrokerID=2)],
    )
    device.start()
    wait_until(lambda: hostile.subscribes, "the request")
    hostile.drop_all()
    wait_until(lambda: device.status() == records.RUNNING, "the start to go on", timeout=LONGEST_REQUEST)
    assert [device.subscription(n).subscribed for n in (1, 3)] == [0, 0]
    assert device.subscription(1).code != 0
    healthy.publish("plc/command/2", number(5))
    device.wait_received(number(5), 2)
    assert device.broker(1).connected == 0


def test_termination_while_a_subscription_waits_for_its_answer(device, scripted):
    partner = scripted()
    partner.answer_subscribe = False
    device.configure(subscriptions=[subscription(1)])
    service = device.start()
    wait_until(lambda: partner.subscribes, "the request")
    assert died_of(service.stop()) == SIGTERM


def test_messages_of_a_real_broker_with_the_largest_topic(device, mosquitto, send):
    partner = mosquitto()
    device.configure(subscriptions=[everything(QOS=1)])
    device.run()
    topic = "/".join(["level"] * 199)
    sender = send(partner)
    sender.publish(topic, number(3), qos=1)
    device.wait_received(number(3))
    assert topic.startswith(device.subscription().topic)
    sender.publish("x" * 65535, number(4), qos=1)
    device.wait_received(number(4))
    assert device.subscription().topic == "x" * 255


def test_megabyte_by_way_of_a_real_broker(device, mosquitto, send):
    partner = mosquitto()
    device.configure(subscriptions=[subscription(1, DataType=UINT8, Ent=2000, QOS=2)])
    device.run()
    sender = send(partner)
    payload = bytes(n % 253 for n in range(1_000_000))
    sender.publish("plc/command/1", payload, qos=2)
    device.wait_received(payload[:2000])
    sender.publish("plc/command/1", b"after", qos=2)
    device.wait_received(b"after".ljust(2000, b"\0"))
