"""The struct of ten members that the JSON rows carry: layout, keys and values. The bare program has it as bare/sample.h."""

import json
import struct
from dataclasses import dataclass


@dataclass(frozen=True)
class Member:
    key: str
    offset: int
    data_type: str  # as the configuration names it: a number, and for texts the length
    form: str  # as struct.pack takes it
    value: object


MEMBERS = [
    Member("run", 0, "1", "<B", True),
    Member("mode", 1, "2", "<b", -3),
    Member("lane", 2, "3", "<B", 200),
    Member("trim", 4, "4", "<h", -1234),
    Member("speed", 6, "5", "<H", 54321),
    Member("offset", 8, "7", "<i", -1234567),
    Member("total", 12, "6", "<I", 3456789),
    Member("temp", 16, "8", "<f", 21.5),
    Member("load", 20, "8", "<f", -0.125),
    Member("batch", 24, "11_20", "21s", "cola 0.5 l, lot 17"),
]
SIZE = 45  # bytes in tag memory


def as_bytes() -> bytes:
    data = bytearray(SIZE)
    for member in MEMBERS:
        value = member.value.encode() if isinstance(member.value, str) else member.value
        struct.pack_into(member.form, data, member.offset, value)
    return bytes(data)


def as_json() -> str:
    return json.dumps({member.key: member.value for member in MEMBERS}, separators=(",", ":"))
