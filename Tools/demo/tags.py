"""Tags as bytes, and the values in them."""

import json
import struct
from dataclasses import dataclass

NO_LENGTH = -1
STRUCT = 10

# Number in the configuration files -> format of one element.
NUMBERS = {1: "?", 2: "b", 3: "B", 4: "h", 5: "H", 6: "I", 7: "i", 8: "f"}
# Number in the files -> encoding, bytes of one character.
TEXTS = {9: ("utf-32-le", 4), 11: ("utf-8", 1), 12: ("utf-16-le", 2)}


def shown(value):
    """A tag's value for people; a struct is its members' values in a row, since a tag has no names in it."""
    if isinstance(value, dict):
        return " ".join(shown(member) for member in value.values())
    if isinstance(value, list):
        return " ".join(shown(element) for element in value)
    if isinstance(value, float):
        return f"{value:.1f}"
    return json.dumps(value, ensure_ascii=False)


@dataclass
class Numbers:
    """One number or truth value, or with `entries` an array of them."""

    element: str
    entries: int

    @property
    def _format(self):
        return f"<{max(self.entries, 1)}{self.element}"

    @property
    def size(self):
        return struct.calcsize(self._format)

    def decode(self, data):
        values = struct.unpack(self._format, data)
        return list(values) if self.entries else values[0]

    def encode(self, value):
        return struct.pack(self._format, *(value if self.entries else [value]))


@dataclass
class Text:
    encoding: str
    unit: int
    length: int

    @property
    def size(self):
        return self.unit * (self.length + 1)

    def decode(self, data):
        terminator = bytes(self.unit)
        units = [data[at:at + self.unit] for at in range(0, len(data), self.unit)]
        if terminator in units:
            units = units[:units.index(terminator)]
        return b"".join(units).decode(self.encoding, "replace")

    def encode(self, value):
        return value.encode(self.encoding).ljust(self.size, b"\0")


@dataclass
class Struct:
    members: dict  # name -> (offset, type)

    @property
    def size(self):
        offset, last = list(self.members.values())[-1]
        return offset + last.size

    def decode(self, data):
        return {name: kind.decode(data[offset:offset + kind.size]) for name, (offset, kind) in self.members.items()}

    def encode(self, value):
        data = bytearray(self.size)
        for name, (offset, kind) in self.members.items():
            data[offset:offset + kind.size] = kind.encode(value[name])
        return bytes(data)


def tag_type(element):
    """The type that an element of the configuration files gives to its tag."""
    number, _, length = element.get("DataType").partition("_")
    if int(number) == STRUCT:
        return Struct({member.get("DName"): (int(member.get("Off"), 16), tag_type(member))
                       for member in element.iter("DataMember")})
    if int(number) in TEXTS:
        return Text(*TEXTS[int(number)], int(length or NO_LENGTH))
    return Numbers(NUMBERS[int(number)], int(element.get("Ent")))
