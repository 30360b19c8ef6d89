"""The service's records in tag memory, written down a second time: nothing here comes from its own headers."""

import struct
from collections import namedtuple
from typing import NamedTuple

# Process status in the general record.
STARTING, RUNNING, PAUSED, FAILED, TIME_NOT_SET = range(5)

# Results that the service adds to those of the client library.
CONNECT_REFUSED = -11
CONNECTION_LOST = -13
NOT_PUBLISHED = -11
PAYLOAD_TOO_BIG = -12
NOT_CONNECTED = -11
INVALID_JSON = -12
SUBSCRIPTION_LOST = -15

# Payload formats, as the configuration files number them.
RAW, JSON, PROTOBUF, TRIGGERED = range(4)

# Tag types, as the configuration files number them.
NOTYPE, BOOL, INT8, UINT8, INT16, UINT16, UINT32, INT32, REAL, STR32, STRUCT, STR8, STR16 = range(13)

_UNIT_SIZES = {BOOL: 1, INT8: 1, UINT8: 1, INT16: 2, UINT16: 2, UINT32: 4, INT32: 4, REAL: 4}
_CHARACTER_SIZES = {STR8: 1, STR16: 2, STR32: 4}


def tag_size(data_type, entries=0):
    """Bytes of a tag of this type, which may be a number or, with a length, a text like "11_20"."""
    kind, _, length = str(data_type).partition("_")
    if int(kind) in _CHARACTER_SIZES:
        return _CHARACTER_SIZES[int(kind)] * (int(length) + 1)
    return _UNIT_SIZES[int(kind)] * (entries or 1)


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


class SubscriptionStatus(NamedTuple):
    subscribed: int
    code: int
    received: int
    queue_full: int
    topic: str
    time: int  # seconds since 1970
    buffered: int
    padding: bytes = bytes(3)

    SIZE = 524
    RECEIVED_BIT_AT = 2
    TOPIC_AT = 4

    @classmethod
    def decode(cls, data):
        *flags, topic, arrival, buffered, padding = struct.unpack("<BbBB512sIB3s", data)
        return cls(*flags, _utf16(topic), arrival, buffered, padding)


class BrokerConfiguration(NamedTuple):
    host: str
    port: int
    auto_connect: int
    client: str
    user: str
    password: str
    will_topic: str
    interval: int
    keep_alive: int
    encryption: int
    clean_session: int
    padding: int = 0

    SIZE = 2012
    FIRST_PACKET = 980  # bytes; the second one has the rest
    FORMAT = "<256sHBB464s256s512s512sIHBB"

    @classmethod
    def decode(cls, data):
        host, port, auto, padding, client, user, password, topic, *rest = struct.unpack(cls.FORMAT, data)
        return cls(_utf16(host), port, auto, _utf16(client), _utf16(user), _utf16(password), _utf16(topic), *rest, padding)

    def encode(self):
        texts = [text.encode("utf-16-le") for text in (self.host, self.client, self.user, self.password, self.will_topic)]
        host, *others = texts
        numbers = self.interval, self.keep_alive, self.encryption, self.clean_session
        return struct.pack(self.FORMAT, host, self.port, self.auto_connect, self.padding, *others, *numbers)


class _CallerConfiguration:
    """What the records of publications and subscriptions share: a topic, and four bytes behind it."""

    SIZE = 516
    FORMAT = "<512sBBBB"

    @classmethod
    def decode(cls, data):
        topic, *flags = struct.unpack(cls.FORMAT, data)
        return cls(_utf16(topic), *flags)

    def encode(self):
        return struct.pack(self.FORMAT, self.topic.encode("utf-16-le"), *self[1:])


class PublicationConfiguration(
    _CallerConfiguration,
    namedtuple("PublicationFields", "topic qos payload_format retained padding", defaults=[0]),
):
    pass


class SubscriptionConfiguration(
    _CallerConfiguration,
    namedtuple("SubscriptionFields", "topic qos payload_format subscribe_at_boot buffered"),
):
    pass


def _utf16(data):
    """The text ahead of the first zero unit, which has to be there."""
    units = [data[at : at + 2] for at in range(0, len(data), 2)]
    return b"".join(units[: units.index(b"\0\0")]).decode("utf-16-le")
