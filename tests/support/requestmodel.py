"""What the service has to answer to a request, worked out from the requests before it, and requests at the edges."""

import struct

from support import records, tags
from support.requests import (
    CONNECT,
    DISCONNECT,
    GET_BROKER,
    GET_PUBLICATION,
    GET_SUBSCRIPTION,
    SEND,
    SET_BROKER,
    SET_PUBLICATION,
    SET_PUBLISH_STATE,
    SET_SUBSCRIPTION,
    SUBSCRIBE,
    SUBSCRIBE_ALL,
    UNSUBSCRIBE,
    UNSUBSCRIBE_ALL,
    status_position,
)

READ_BACK = [GET_BROKER, GET_SUBSCRIPTION, GET_PUBLICATION]
WRITTEN_BACK = [SET_BROKER, SET_SUBSCRIPTION, SET_PUBLICATION]
SERVED = [
    *(SUBSCRIBE, SUBSCRIBE_ALL, UNSUBSCRIBE, UNSUBSCRIBE_ALL, CONNECT, DISCONNECT, SEND, SET_PUBLISH_STATE),
    *READ_BACK,
    *WRITTEN_BACK,
]
# The parts of a configuration record that are written at once.
RECORD_PARTS = (records.PublicationConfiguration.SIZE, records.BrokerConfiguration.SIZE // 2)
HEAD = 12  # bytes that a request needs; what is left out reads as 0
IDENTIFIERS = [0, 1, 2, 3, 4, 255, 256, 257, 32767, 32768, 65534, 65535]
# The first and last status tags that there are, and addresses beyond the memory's end.
ADDRESSES = [0, 1, 0x700000, 0xFFFFFF, 0x1000000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]


class Model:
    """What the service has to answer, for one broker that always works, subscriptions 1 to 3 and periodic
    publications 1 to 3 on it. It is never paused."""

    def __init__(self):
        self._is_connected = True
        self._subscribed = set()

    def answer(self, opcode, identifier, record_address):
        if opcode in WRITTEN_BACK:
            return -4
        if opcode in READ_BACK:
            return self._read_back(opcode, identifier, record_address)
        if opcode in (SUBSCRIBE, UNSUBSCRIBE):
            return self._change(opcode, {identifier}) if identifier in (1, 2, 3) else -2
        if opcode in (SEND, SET_PUBLISH_STATE):
            known = -8 if opcode == SEND else 0
            return known if identifier in (1, 2, 3) else -2
        if identifier != 1:
            return -2
        if opcode in (SUBSCRIBE_ALL, UNSUBSCRIBE_ALL):
            return self._change(SUBSCRIBE if opcode == SUBSCRIBE_ALL else UNSUBSCRIBE, {1, 2, 3})
        return self._set_connected(opcode == CONNECT)

    @staticmethod
    def is_known(opcode, identifier):
        """Of the requests for configurations."""
        return identifier == 1 or (identifier in (2, 3) and opcode not in (GET_BROKER, SET_BROKER))

    def _read_back(self, opcode, identifier, record_address):
        if not self.is_known(opcode, identifier):
            return -2
        first = status_position(record_address) % 2**32
        small, half = RECORD_PARTS
        parts = [(first, half), (first + half, half)] if opcode == GET_BROKER else [(first, small)]
        return 0 if any(tags.TagMemory.is_there(at % 2**32, size) for at, size in parts) else -3

    def _change(self, opcode, identifiers):
        if not self._is_connected:
            return -11
        wrong = identifiers & self._subscribed if opcode == SUBSCRIBE else identifiers - self._subscribed
        self._subscribed = self._subscribed | identifiers if opcode == SUBSCRIBE else self._subscribed - identifiers
        return -11 if wrong else 0

    def _set_connected(self, connected):
        if connected == self._is_connected:
            return -10
        self._is_connected = connected
        self._subscribed = set()
        return 0


def fields(message):
    """(opcode, identifier, status address, record address) of a message as the service reads it."""
    _, opcode, identifier, _, _, address, record = struct.unpack_from("<HHHbBII", message.ljust(HEAD + 4, b"\0"))
    return opcode, identifier, address, record
