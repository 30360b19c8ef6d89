"""Messages on their way into tags: every type in every format, and how the bytes are written."""

import struct

import pytest

from support import configuration, csvlog, records
from support.configuration import member, received_at, subscription
from support.device import VERBOSE
from support.exchange import RAW_SIZES, UNTOUCHED, arrivals, pass_fence, subscribed_sender
from support.records import BOOL, INT8, INT16, INT32, JSON, REAL, STR8, STR16, STR32, STRUCT, UINT8, UINT16, UINT32
from support.waiting import wait_until

MEMORY = bytes(range(1, 256))


def raw(data_type, entries=0, **attributes):
    return {"DataType": data_type, "Ent": entries} | attributes


def json(data_type, entries=0, **attributes):
    return raw(data_type, entries, PayloadFormat=JSON, **attributes)


def struct_of(*members, **attributes):
    return {"DataType": STRUCT, "members": list(members), "PayloadFormat": JSON} | attributes


def floats(*values):
    return struct.pack(f"<{len(values)}f", *values)


def shorts(*values):
    return struct.pack(f"<{len(values)}H", *values)


def check(device, mosquitto, send, table):
    """Rows of attributes, payload and the bytes that the tag then holds."""
    found = arrivals(device, mosquitto, send, *[(attributes, payload) for attributes, payload, _ in table])
    for (attributes, payload, expected), data in zip(table, found):
        assert data == expected, (attributes, payload)


def test_raw_payload_of_any_length_fills_the_tag(device, mosquitto, send):
    table = []
    for (data_type, entries), size in RAW_SIZES.items():
        for length in (size, size + 1, 255, size - 1, 0):
            table.append((raw(data_type, entries), MEMORY[:length], MEMORY[: min(size, length)].ljust(size, b"\0")))
    check(device, mosquitto, send, table)


def test_raw_payload_of_a_struct_is_taken_as_it_comes(device, mosquitto, send):
    members = (member(0, INT16, "a"), member(4, f"{STR16}_3", "b"))
    check(device, mosquitto, send, [(struct_of(*members, PayloadFormat=0), MEMORY, MEMORY[:12])])


def test_raw_payload_may_hold_zeros(device, mosquitto, send):
    check(device, mosquitto, send, [(raw(UINT8, 6), b"\0a\0\0b\0", b"\0a\0\0b\0")])


def test_json_text_of_one_value_is_converted(device, mosquitto, send):
    table = [
        (json(BOOL), "true", b"\1"),
        (json(BOOL), "false", b"\0"),
        (json(BOOL), "True", b"\0"),
        (json(BOOL), "1", b"\0"),
        (json(BOOL), " true", b"\0"),
        (json(INT8), "-5", b"\xfb"),
        (json(INT8), "300", b"\x2c"),
        (json(UINT8), "255", b"\xff"),
        (json(UINT8), "-1", b"\0"),
        (json(INT16), "-2020", struct.pack("<h", -2020)),
        (json(UINT16), "12", b"\x0c\0"),
        (json(UINT16), "65537", b"\1\0"),
        (json(UINT32), "4294967295", b"\xff" * 4),
        (json(UINT32), "4294967296", bytes(4)),
        (json(INT32), "-123456", struct.pack("<i", -123456)),
        (json(INT32), " 17 ", b"\x11\0\0\0"),
        (json(INT32), "1.5", bytes(4)),
        (json(INT32), "0x10", bytes(4)),
        (json(INT32), "", bytes(4)),
        (json(INT32), "twelve", bytes(4)),
        (json(REAL), "3.14", floats(3.14)),
        (json(REAL), "-1e-3", floats(-1e-3)),
        (json(REAL), "x", bytes(4)),
    ]
    check(device, mosquitto, send, table)


def test_json_text_for_a_string_is_taken_as_it_comes(device, mosquitto, send):
    table = [
        (json(f"{STR8}_10"), "hello", b"hello".ljust(11, b"\0")),
        (json(f"{STR8}_10"), '"hello"', b'"hello"'.ljust(11, b"\0")),
        (json(f"{STR8}_5"), "overlong", b"overl\0"),
        (json(f"{STR8}_5"), "", bytes(6)),
        (json(f"{STR16}_5"), "añ€", "añ€".encode("utf-16-le").ljust(12, b"\0")),
        (json(f"{STR16}_5"), "a😀😀", "a😀😀".encode("utf-16-le").ljust(12, b"\0")),
        (json(f"{STR32}_5"), "añ€", "añ€".encode("utf-32-le").ljust(24, b"\0")),
        (json(f"{STR32}_5"), "a😀", "a😀".encode("utf-32-le").ljust(24, b"\0")),
        (json(f"{STR32}_2"), "abcd", "ab".encode("utf-32-le").ljust(12, b"\0")),
    ]
    check(device, mosquitto, send, table)


def test_json_text_with_characters_beyond_ascii_is_cut_in_an_8_bit_string(device, mosquitto, send):
    # as many bytes as there are characters, and one more
    check(device, mosquitto, send, [(json(f"{STR8}_10"), "äöx", "äöx".encode()[:4].ljust(11, b"\0"))])


def test_json_array_is_converted_element_by_element(device, mosquitto, send):
    table = [
        (json(BOOL, 3), "[true,false,true]", b"\1\0\1"),
        (json(BOOL, 2), "[false, true]", b"\0\0"),
        (json(INT8, 5), "[-12,1,2,3,120]", b"\xf4\1\2\3\x78"),
        (json(UINT8, 4), "[255,0,13,66]", b"\xff\0\x0d\x42"),
        (json(INT16, 5), "[-2020,800,0,-555,777]", struct.pack("<5h", -2020, 800, 0, -555, 777)),
        (json(UINT16, 4), "[65000,0,1,49123]", shorts(65000, 0, 1, 49123)),
        (json(INT32, 3), "[-100000,800,777]", struct.pack("<3i", -100000, 800, 777)),
        (json(UINT32, 2), "[300000,4294967295]", struct.pack("<2I", 300000, 4294967295)),
        (json(REAL, 3), "[3.14,2.1,15]", floats(3.14, 2.1, 15)),
        (json(UINT16, 1), "[7]", shorts(7)),
        (json(UINT16, 4), "[1, 2]", shorts(1, 2, 0, 0)),
        (json(UINT16, 2), "[1,2,3]", shorts(1, 2)),
        (json(UINT16, 3), "[[1,2],[3]]", shorts(1, 2, 3)),
        (json(UINT16, 3), '[1,"2",3]', shorts(1, 0, 3)),
        (json(UINT16, 3), "[1,null,3]", shorts(1, 0, 3)),
        (json(UINT16, 2), "[1,2", bytes(4)),
        (json(UINT16, 2), "1,2", bytes(4)),
        (json(UINT16, 2), '{"a":1}', bytes(4)),
        (json(UINT16, 3), '{"a":[5,6,7]}', shorts(0, 6, 0)),
        (json(UINT16, 2), "", bytes(4)),
        (json(UINT16, 2), "[]", bytes(4)),
    ]
    check(device, mosquitto, send, table)


ALL_TYPES = (
    member(0, BOOL, "flag"),
    member(1, INT8, "i8"),
    member(2, UINT8, "u8"),
    member(4, INT16, "i16"),
    member(6, UINT16, "u16"),
    member(8, UINT32, "u32"),
    member(12, INT32, "i32"),
    member(16, REAL, "real"),
    member(20, f"{STR8}_7", "s8"),
    member(28, f"{STR16}_3", "s16"),
    member(36, f"{STR32}_2", "s32"),
    member(48, UINT16, "list", 3),
)
ALL_VALUES = (
    '{"list":[7,8,9],"s32":"😀","s16":"añ€","s8":"seven77","real":-0.5,"i32":-70000,"u32":4000000000,'
    '"u16":65535,"i16":-300,"u8":200,"i8":-100,"flag":true}'
)
ALL_BYTES = (
    struct.pack("<BbBxhHIif", 1, -100, 200, -300, 65535, 4000000000, -70000, -0.5)
    + b"seven77\0"
    + "añ€\0".encode("utf-16-le")
    + "😀\0\0".encode("utf-32-le")
    + shorts(7, 8, 9)
)


def test_json_object_fills_a_struct_member_by_member(device, mosquitto, send):
    pair = (member(0, UINT16, "a"), member(2, UINT16, "b"))
    out_of_order = (member(4, UINT16, "a"), member(0, UINT16, "b"), member(6, UINT16, "c"))
    table = [
        (struct_of(*ALL_TYPES), ALL_VALUES, ALL_BYTES),
        (struct_of(*pair), '{"b":2,"a":1}', shorts(1, 2)),
        (struct_of(*pair), ' {"a" : 1 , "other" : {"a":9}, "b":2}\n', shorts(1, 2)),
        (struct_of(*pair), '{"a":1,"a":3,"b":2}', shorts(3, 2)),
        (struct_of(*pair), '{"A":1,"b":2}', shorts(0, 2)),
        (struct_of(*out_of_order), '{"b":2}', shorts(2, 0, 0, 0)),
    ]
    check(device, mosquitto, send, table)


def test_what_an_object_lacks_becomes_zero(device, mosquitto, send):
    everything = struct_of(*ALL_TYPES)
    cases = [(everything, ALL_VALUES, text) for text in ("{}", "[]", '[{"flag":true}]', '{"none":1}')]
    cases.append((everything, ALL_VALUES, "{%s}" % ",".join(f'"{entry["DName"]}":null' for entry in ALL_TYPES)))
    assert arrivals(device, mosquitto, send, *cases) == [bytes(len(ALL_BYTES))] * len(cases)


def test_signed_and_unsigned_members_differ_in_what_they_take(device, mosquitto, send):
    signed = struct_of(member(0, INT16, "v"))
    unsigned = struct_of(member(0, UINT16, "v"))
    table = [
        (signed, '{"v":"12"}', shorts(0)),
        (unsigned, '{"v":"12"}', shorts(12)),
        (signed, '{"v":true}', shorts(0)),
        (unsigned, '{"v":true}', shorts(1)),
        (signed, '{"v":2.6}', shorts(0)),
        (unsigned, '{"v":2.6}', shorts(3)),
        (signed, '{"v":70000}', shorts(4464)),
        (unsigned, '{"v":70000}', shorts(4464)),
    ]
    check(device, mosquitto, send, table)


def test_nulls_in_an_array_member_take_no_place(device, mosquitto, send):
    case = struct_of(member(0, INT16, "v", 3))
    check(
        device,
        mosquitto,
        send,
        [
            (case, '{"v":[1,null,3]}', shorts(1, 3, 0)),
            (case, '{"v":[1]}', shorts(1, 0, 0)),
            (case, '{"v":[1,2,3,4]}', shorts(1, 2, 3)),
            (case, '{"v":5}', shorts(0, 0, 0)),
        ],
    )


def test_zero_byte_ends_a_json_payload(device, mosquitto, send):
    one = struct_of(member(0, UINT16, "a"))
    table = [
        (one, b'{"a":1}\0\0\0', shorts(1)),
        (one, b'{"a":1}\0{"a":2}', shorts(1)),
        (json(UINT16), b"12\x0034", shorts(12)),
        (json(UINT16, 2), b"[1,2]\0,", shorts(1, 2)),
        (json(f"{STR8}_5"), b"ab\0cd", b"ab\0\0\0\0"),
    ]
    check(device, mosquitto, send, table)


BAD_JSON = ["", "{", '{"a":1', "12", '"a"', "null", "{'a':1}", '{"a":1}x', b'\0{"a":1}']


@pytest.mark.parametrize("payload", BAD_JSON, ids=repr)
def test_bad_json_for_a_struct_changes_no_data_and_shows_until_the_end(device, mosquitto, send, payload):
    entry = subscription(1, **struct_of(member(0, UINT16, "a")))
    sender = subscribed_sender(device, mosquitto, send, [entry], *VERBOSE)
    sender.publish(entry["Topic"], '{"a":5}')
    sender.publish(entry["Topic"], payload)
    pass_fence(device, sender)
    status = device.subscription()
    assert status[:5] == (1, records.INVALID_JSON, 1, 0, entry["Topic"])
    assert len(device.data_writes()) == 1
    assert device.received(1, 4) == shorts(5) + UNTOUCHED * 2
    assert device.statistics().received == 3
    assert csvlog.has_message("Invalid JSON for 'subscription1'. Json (", severity="DEBUG")
    sender.publish(entry["Topic"], '{"a":6}')
    device.wait_received(shorts(6))
    assert device.subscription().code == records.INVALID_JSON


def test_arrival_of_bad_json_is_recorded_ahead_of_the_refusal(device, mosquitto, send):
    entry = subscription(1, **struct_of(member(0, UINT16, "a")))
    sender = subscribed_sender(device, mosquitto, send, [entry])
    since = device.tags.writes_made()
    sender.publish(entry["Topic"], "no")
    wait_until(lambda: device.subscription().code == records.INVALID_JSON, "the refusal")
    arrival, statistics, refusal = device.tags.journal(since=since)
    assert [arrival.data[:3], refusal.data[:3]] == [b"\1\0\1", b"\1\xf4\1"]
    assert statistics.position == configuration.STATISTICS_AT


@pytest.mark.parametrize("payload_format", [2, 3, 7, -1])
def test_other_formats_record_the_arrival_and_leave_the_data(device, mosquitto, send, payload_format):
    entry = subscription(1, PayloadFormat=payload_format)
    sender = subscribed_sender(device, mosquitto, send, [entry])
    sender.publish(entry["Topic"], "1234")
    pass_fence(device, sender)
    assert device.subscription()[:5] == (1, 0, 1, 0, entry["Topic"])
    assert device.data_writes() == []
    assert [row for row in csvlog.rows() if row.severity in ("WARN", "ERROR")] == []


# A chunk holds 1020 bytes; when exactly as much remains, it is lost.
CHUNKS = {
    1019: [1019],
    1020: [0, 0],
    1021: [1020, 1],
    2000: [1020, 980],
    2040: [1020, 0, 0],
    2041: [1020, 1020, 1],
    3000: [1020, 1020, 960],
    3060: [1020, 1020, 0, 0],
    5000: [1020, 1020, 1020, 1020, 920],
}


@pytest.mark.parametrize("size", CHUNKS)
def test_large_data_is_written_in_chunks(device, mosquitto, send, size):
    entry = subscription(1, DataType=UINT8, Ent=size)
    sender = subscribed_sender(device, mosquitto, send, [entry])
    payload = bytes(n % 251 for n in range(size))
    sender.publish(entry["Topic"], payload)
    pass_fence(device, sender)
    writes = [w for w in device.tags.journal() if received_at(1) <= w.position <= received_at(1) + size]
    assert [write.size for write in writes] == CHUNKS[size]
    written = sum(CHUNKS[size])
    assert [write.position - received_at(1) for write in writes] == [sum(CHUNKS[size][:n]) for n in range(len(writes))]
    assert device.received(1, size + 1) == payload[:written] + UNTOUCHED * (size - written + 1)


def test_chunks_count_down_in_the_log(device, mosquitto, send):
    entry = subscription(1, DataType=UINT8, Ent=3000)
    sender = subscribed_sender(device, mosquitto, send, [entry], *VERBOSE)
    sender.publish(entry["Topic"], b"x")
    pass_fence(device, sender)
    at = received_at(1)
    for number, (size, position) in {3: (1020, at), 2: (1020, at + 1020), 1: (960, at + 2040)}.items():
        assert csvlog.has_message(f"{number}) wrote '{size}' bytes to address '{position}'. Result is '0'", "DEBUG")
    assert csvlog.has_message(f"Size=3000  Address={at}  Name=subscription1  PayloadLen=1  DataLen=-1", "DEBUG")


def test_struct_of_many_chunks_arrives_from_json(device, mosquitto, send):
    case = struct_of(
        member(0, UINT16, "first", 1000), member(2000, f"{STR8}_1000", "text"), member(3001, INT32, "last")
    )
    numbers = list(range(1000))
    payload = '{"first":%s,"text":"%s","last":-9}' % (numbers, "x" * 1000)
    expected = shorts(*numbers) + b"x" * 1000 + b"\0" + struct.pack("<i", -9)
    check(device, mosquitto, send, [(case, payload, expected)])
