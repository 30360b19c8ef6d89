"""Tags on their way out as JSON, and back again."""

import json
import struct

import pytest

from support import csvlog, records
from support.configuration import data_at, member, publication, received_at, subscription
from support.device import VERBOSE
from support.exchange import assert_only_what_went_out_is_counted, payloads
from support.records import BOOL, INT8, INT16, INT32, JSON, NOTYPE, REAL, STR8, STR16, STR32, STRUCT, UINT8, UINT16
from support.records import UINT32
from support.waiting import wait_until

LARGEST_PAYLOAD = 5000


def tag(data_type, entries=0, **attributes):
    return {"DataType": data_type, "Ent": entries, "PayloadFormat": JSON} | attributes


def struct_of(*members):
    return tag(STRUCT, members=list(members))


def check(device, mosquitto, listen, table):
    """Rows of attributes, tag bytes and the text that goes out. Each tag lies at a place of its own."""
    for number, (_, data, _) in enumerate(table, 1):
        device.tags.write(data_at(100 + number), data)
    cases = [attributes | {"DataAddr": data_at(100 + n)} for n, (attributes, _, _) in enumerate(table, 1)]
    sent = payloads(device, mosquitto, listen, b"", *cases)
    for (attributes, data, expected), payload in zip(table, sent):
        assert payload == expected.encode(), (attributes, data[:40])


def floats(*values):
    return struct.pack(f"<{len(values)}f", *values)


def test_each_type_has_its_text(device, mosquitto, listen):
    table = [
        (tag(BOOL), b"\1", "true"),
        (tag(BOOL), b"\0", "false"),
        (tag(BOOL), b"\2", "false"),
        (tag(BOOL), b"\xff", "false"),
        (tag(INT8), b"\x80", "-128"),
        (tag(UINT8), b"\x80", "128"),
        (tag(INT16), struct.pack("<h", -32768), "-32768"),
        (tag(UINT16), struct.pack("<H", 65535), "65535"),
        (tag(UINT32), struct.pack("<I", 4294967295), "4294967295"),
        (tag(INT32), struct.pack("<i", -5), "-5"),
        (tag(INT32), struct.pack("<i", -2147483648), "-2147483648"),
        (tag(STRUCT, members=[]), b"abc", "}"),
        (tag(NOTYPE), b"abc", "0"),
        (tag(13), b"abc", "0"),
    ]
    check(device, mosquitto, listen, table)


def test_reals_have_six_digits(device, mosquitto, listen):
    texts = {
        3.14: "3.14",
        15.0: "15",
        0.0: "0",
        -0.0: "0",
        -2.5: "-2.5",
        100000.0: "100000",
        1000000.0: "1e+06",
        1234567.0: "1.23457e+06",
        0.0001: "0.0001",
        0.00001: "1e-05",
        0.1: "0.1",
        16777216.0: "1.67772e+07",
        1e38: "1e+38",
        float("nan"): "nan",
        float("inf"): "inf",
        float("-inf"): "-inf",
    }
    check(device, mosquitto, listen, [(tag(REAL), floats(value), text) for value, text in texts.items()])


def test_arrays_are_lists_without_blanks(device, mosquitto, listen):
    table = [
        (tag(BOOL, 3), b"\1\0\1", "[true,false,true]"),
        (tag(INT8, 5), struct.pack("5b", -12, 1, 2, 3, 120), "[-12,1,2,3,120]"),
        (tag(UINT8, 4), b"\xff\0\x0d\x42", "[255,0,13,66]"),
        (tag(INT16, 5), struct.pack("<5h", -2020, 800, 0, -555, 777), "[-2020,800,0,-555,777]"),
        (tag(UINT16, 4), struct.pack("<4H", 65000, 0, 1, 49123), "[65000,0,1,49123]"),
        (tag(INT32, 5), struct.pack("<5i", -100000, 800, 0, -123456, 777), "[-100000,800,0,-123456,777]"),
        (tag(UINT32, 4), struct.pack("<4I", 300000, 0, 1, 300001), "[300000,0,1,300001]"),
        (tag(REAL, 3), floats(3.14, 2.1, 15), "[3.14,2.1,15]"),
        (tag(UINT16, 1), struct.pack("<H", 9), "[9]"),
        (tag(UINT16, -2), struct.pack("<H", 9), "]"),
    ]
    check(device, mosquitto, listen, table)


def test_strings_stand_in_quotes_and_are_not_escaped(device, mosquitto, listen):
    table = [
        (tag(f"{STR8}_10"), b"cola\0rest", '"cola"'),
        (tag(f"{STR8}_4"), b"full!", '"full"'),
        (tag(f"{STR8}_0"), b"x", '""'),
        (tag(f"{STR8}_20"), b'say "hi" \\ \n\0', '"say "hi" \\ \n"'),
        (tag(f"{STR8}_20"), "añ€😀\0".encode(), '"añ€😀"'),
        (tag(f"{STR8}_6", 3), b"array?\0", '"array?"'),
        (tag(f"{STR16}_10"), "añ€😀\0x".encode("utf-16-le"), '"añ€😀"'),
        (tag(f"{STR16}_3"), "abcd".encode("utf-16-le"), '"abc"'),
        (tag(f"{STR32}_10"), "añ€😀\0x".encode("utf-32-le"), '"añ€😀"'),
        (tag(f"{STR32}_3"), "abcd".encode("utf-32-le"), '"abc"'),
    ]
    check(device, mosquitto, listen, table)


def test_struct_is_an_object_with_its_members_in_the_order_of_the_file(device, mosquitto, listen):
    data = struct.pack("<H?x", 12, True) + floats(0.5) + b"name\0"
    members = {
        "b": member(2, BOOL, "b"),
        "a": member(0, UINT16, "a"),
        "z": member(4, REAL, "z"),
        "name": member(8, f"{STR8}_5", "name"),
    }
    table = [
        (struct_of(members["a"], members["b"]), data, '{"a":12,"b":true}'),
        (struct_of(*members.values()), data, '{"b":true,"a":12,"z":0.5,"name":"name"}'),
        (struct_of(member(0, UINT8, "list", 2)), data, '{"list":[12,0]}'),
        (struct_of(member(0, UINT16, 'qu"ote\\')), data, '{"qu"ote\\":12}'),
        (struct_of(member(0, UINT16, "")), data, '{"":12}'),
        (struct_of(member(0, UINT16, "größe")), data, '{"größe":12}'),
        (struct_of(members["a"], member(2, STRUCT, "in"), members["b"]), data, '{"a":12,"in":0,"b":true}'),
    ]
    check(device, mosquitto, listen, table)


def test_every_payload_is_fresh(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(PeriodicInterval=20, PayloadFormat=JSON)])
    device.run()
    for value in (1, 70000, 0xFFFFFFFF, 7):
        device.tags.write(data_at(1), struct.pack("<I", value))
        wait_until(lambda: listener.received and listener.received[-1].payload == b"%d" % value, f"the value {value}")


def test_largest_text_is_published(device, mosquitto, listen):
    text = b"x" * (LARGEST_PAYLOAD - 2)
    check(device, mosquitto, listen, [(tag(f"{STR8}_{len(text)}"), text, f'"{text.decode()}"')])


@pytest.mark.parametrize("kind", ["string", "array", "struct", "huge array"])
def test_larger_text_is_not_published(device, mosquitto, listen, kind):
    too_large = {
        "string": tag(f"{STR8}_4999"),
        "array": tag(UINT8, 2500),  # "[0,0,...]" has 2 * 2500 + 1 characters
        "struct": struct_of(member(0, f"{STR8}_4988", "member")),
        "huge array": tag(UINT32, 70000),
    }
    data = bytes(2500) if "array" in kind else b"x" * 5000
    device.tags.write(data_at(1), data)
    listener = listen(mosquitto())
    device.configure(publications=[publication(1, **too_large[kind]), publication(2, PayloadFormat=JSON)])
    service = device.run(*VERBOSE)
    listener.wait_for("plc/data/2", 5)
    assert listener.on("plc/data/1") == []
    assert csvlog.has_message(f"END rtnValue={records.PAYLOAD_TOO_BIG}", severity="DEBUG")
    service.stop()
    assert_only_what_went_out_is_counted(device, listener)


def test_data_outside_tag_memory_goes_out_as_zeros(device, mosquitto, listen):
    cases = [tag(INT32, 2, DataAddr=0x7000000), struct_of(member(0, UINT8, "a")) | {"DataAddr": 0x7000000}]
    assert payloads(device, mosquitto, listen, b"", *cases) == [b"[0,0]", b'{"a":0}']


# Every type, alone and as an array, where it has arrays. Reals have values that six digits tell in full.
ROUND_TRIPS = {
    (BOOL, 0): b"\1",
    (INT8, 0): b"\x80",
    (UINT8, 0): b"\xff",
    (INT16, 0): struct.pack("<h", -32768),
    (UINT16, 0): struct.pack("<H", 65535),
    (UINT32, 0): struct.pack("<I", 4294967295),
    (INT32, 0): struct.pack("<i", -2147483648),
    (REAL, 0): floats(-3.14),
    (BOOL, 3): b"\1\0\1",
    (INT8, 3): b"\x80\0\x7f",
    (UINT8, 3): b"\xff\0\1",
    (INT16, 3): struct.pack("<3h", -32768, 0, 32767),
    (UINT16, 3): struct.pack("<3H", 65535, 0, 1),
    (UINT32, 3): struct.pack("<3I", 4294967295, 0, 1),
    (INT32, 3): struct.pack("<3i", -2147483648, 0, 2147483647),
    (REAL, 3): floats(1e-5, 2.5, 1e30),
    (f"{STR8}_8", 0): b"recipe 7\0",
    (f"{STR16}_6", 0): "añ€😀\0\0".encode("utf-16-le"),
    (f"{STR32}_6", 0): "añ€😀\0\0\0".encode("utf-32-le"),
}


def test_struct_of_every_type_comes_back_as_it_went_out(device, mosquitto):
    mosquitto()
    members, data = [], b""
    for number, ((data_type, entries), value) in enumerate(ROUND_TRIPS.items()):
        data = data.ljust((len(data) + 3) // 4 * 4, b"\0")
        members.append(member(len(data), data_type, f"member {number}", entries))
        data += value
    device.tags.write(data_at(1), data)
    device.configure(
        publications=[publication(1, Topic="loop", **struct_of(*members))],
        subscriptions=[subscription(1, Topic="loop", **struct_of(*members))],
    )
    device.tags.write(received_at(1), b"\xee" * (len(data) + 8))
    device.run()
    device.wait_received(data + b"\xee" * 8)


def test_values_of_every_type_come_back_as_they_went_out(device, mosquitto):
    mosquitto()
    publications, subscriptions = [], []
    # A plain text keeps its quotes on the way back.
    plain = {key: value for key, value in ROUND_TRIPS.items() if "_" not in str(key[0])}
    for n, ((data_type, entries), value) in enumerate(plain.items(), 1):
        device.tags.write(data_at(n), value)
        device.tags.write(received_at(n), b"\xee" * (len(value) + 8))
        publications.append(publication(n, Topic=f"loop/{n}", **tag(data_type, entries)))
        subscriptions.append(subscription(n, Topic=f"loop/{n}", **tag(data_type, entries)))
    device.configure(publications=publications, subscriptions=subscriptions)
    device.run()
    for n, value in enumerate(plain.values(), 1):
        device.wait_received(value + b"\xee" * 8, n)


def test_what_goes_out_is_what_other_programs_can_read(device, mosquitto, listen):
    members = [member(0, UINT16, "a", 2), member(4, f"{STR8}_7", "text"), member(12, REAL, "r")]
    data = struct.pack("<2H", 1, 2) + b"hi\0\0\0\0\0\0" + floats(1e10)
    (sent,) = payloads(device, mosquitto, listen, data, struct_of(*members))
    assert json.loads(sent) == {"a": [1, 2], "text": "hi", "r": 1e10}
