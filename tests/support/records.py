"""The service's records in tag memory, written down a second time: nothing here comes from its own headers."""

import struct
from typing import NamedTuple

# Process status in the general record.
STARTING, RUNNING, PAUSED, FAILED, TIME_NOT_SET = range(5)

# Results that the service adds to those of the client library.
CONNECT_REFUSED = -11
CONNECTION_LOST = -13
NOT_PUBLISHED = -11
PAYLOAD_TOO_BIG = -12

# Tag types, as the configuration files number them.
NOTYPE, BOOL, INT8, UINT8, INT16, UINT16, UINT32, INT32, REAL, STR32, STRUCT, STR8, STR16 = range(13)


class General(NamedTuple):
    status: int
    brokers: int
    publications: int
    subscriptions: int
    reserved: int

    SIZE = 12

    @classmethod
    def decode(cls, data):
        return cls(*struct.unpack("<iHHHH", data))


class Statistics(NamedTuple):
    sent: int
    acknowledged: int
    received: int
    dropped: int

    SIZE = 16

    @classmethod
    def decode(cls, data):
        return cls(*struct.unpack("<IIII", data))


class BrokerStatus(NamedTuple):
    connected: int
    session_present: int
    code: int
    reserved: int = 0

    SIZE = 4

    @classmethod
    def decode(cls, data):
        return cls(*struct.unpack("<BBbB", data))
