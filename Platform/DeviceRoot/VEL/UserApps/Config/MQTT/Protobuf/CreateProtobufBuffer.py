#!/usr/bin/env python3
"""Turns a description of fields into a Protobuf message, for the service to publish.

usage: CreateProtobufBuffer.py DESCRIPTION

DESCRIPTION is a JSON object of field numbers and values, such as {"1": 42, "2": "lemonade", "3": 8.5}. Whole numbers
and booleans become varints, other numbers doubles, texts strings. On an error there is no result file.
"""

import json
import pathlib
import struct
import sys

RESULT = pathlib.Path("/VEL/System/Config/ProtobufForMQTT")
LARGEST_PAYLOAD = 5000
VARINT, FIXED64, LENGTH_DELIMITED = 0, 1, 2


def varint(value):
    value &= (1 << 64) - 1  # negative numbers take ten bytes
    encoded = bytearray()
    while value > 0x7F:
        encoded.append(value & 0x7F | 0x80)
        value >>= 7
    encoded.append(value)
    return bytes(encoded)


def field(number, value):
    if isinstance(value, int):  # a bool is one, too
        return varint(number << 3 | VARINT) + varint(value)
    if isinstance(value, float):
        return varint(number << 3 | FIXED64) + struct.pack("<d", value)
    if isinstance(value, str):
        text = value.encode()
        return varint(number << 3 | LENGTH_DELIMITED) + varint(len(text)) + text
    raise ValueError(f"field {number}: {type(value).__name__} has no Protobuf form here")


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: CreateProtobufBuffer.py DESCRIPTION")
    RESULT.unlink(missing_ok=True)  # never leave an earlier message to be taken for this one
    try:
        description = json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))
        message = b"".join(field(int(number), value) for number, value in description.items())
    except (OSError, ValueError, AttributeError) as error:
        sys.exit(f"CreateProtobufBuffer.py: {sys.argv[1]}: {error}")
    if len(message) > LARGEST_PAYLOAD:
        sys.exit(f"CreateProtobufBuffer.py: {len(message)} bytes are more than the {LARGEST_PAYLOAD} of a publication")
    RESULT.write_bytes(message)


main()
