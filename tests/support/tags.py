"""The controller's tag memory as another process sees it: the stand-in's shared memory object, mapped by its layout."""

import mmap
import os
import struct
import time
from typing import NamedTuple

from support import records

SHARED_MEMORY = "/dev/shm/TagMemory"
MAGIC = 0x4D474154
VERSION = 1

PAGE = 4096
WINDOW = 16 << 20
OPERAND_BASE = 0x7F400000

JOURNAL_CAPACITY = 65536
JOURNAL_ENTRY = struct.Struct("<QqQIi32s")
REGISTRATION_COUNT = 256
REGISTRATION_HEAD = struct.Struct("<II")
OPERAND = struct.Struct("<HHI")
OPERANDS_PER_REGISTRATION = 150
REGISTRATION_SIZE = REGISTRATION_HEAD.size + OPERANDS_PER_REGISTRATION * OPERAND.size


def _page_up(size):
    return (size + PAGE - 1) // PAGE * PAGE


REGISTRATIONS_AT = PAGE
JOURNAL_AT = _page_up(REGISTRATIONS_AT + REGISTRATION_COUNT * REGISTRATION_SIZE)
PLAIN_AT = JOURNAL_AT + JOURNAL_CAPACITY * JOURNAL_ENTRY.size
OPERANDS_AT = PLAIN_AT + WINDOW
IMAGE_SIZE = OPERANDS_AT + WINDOW

LINK_BYTES = (44, 47)

WRITER_TIMEOUT = 5.0  # seconds; an entry that takes longer is of a process that was killed over it


class Write(NamedTuple):
    """One journalled write; `data` holds its first 32 bytes at most."""

    number: int
    time: float
    position: int
    size: int
    process: int
    data: bytes


class Operand(NamedTuple):
    length: int
    reserved: int
    address: int


class TagMemory:
    """Creates the memory if it isn't there, as the controller's runtime would before it starts the service."""

    def __init__(self):
        descriptor = os.open(SHARED_MEMORY, os.O_CREAT | os.O_RDWR, 0o666)
        try:
            fresh = os.fstat(descriptor).st_size == 0
            if fresh:
                os.ftruncate(descriptor, IMAGE_SIZE)
            self._map = mmap.mmap(descriptor, IMAGE_SIZE)
        finally:
            os.close(descriptor)
        if fresh:
            struct.pack_into("<I", self._map, 4, VERSION)
            struct.pack_into("<I", self._map, 0, MAGIC)
        assert struct.unpack_from("<II", self._map, 0) == (MAGIC, VERSION)

    def close(self):
        self._map.close()

    @staticmethod
    def _find(position, size):
        for first, base in ((0, PLAIN_AT), (OPERAND_BASE, OPERANDS_AT)):
            if first <= position and position + size <= first + WINDOW:
                return base + position - first
        return None

    @classmethod
    def is_there(cls, position, size=1):
        return cls._find(position, size) is not None

    @classmethod
    def _at(cls, position, size):
        found = cls._find(position, size)
        if found is None:
            raise ValueError(f"no tag memory at {position:#x}")
        return found

    def read(self, position, size):
        start = self._at(position, size)
        return self._map[start : start + size]

    def write(self, position, data):
        """Not in the journal: that is for the service's writes."""
        start = self._at(position, len(data))
        self._map[start : start + len(data)] = data

    def set_link(self, first=True, second=True):
        for position, up in zip(LINK_BYTES, (first, second)):
            self.write(position, bytes([1 if up else 0]))

    def writes_made(self):
        return struct.unpack_from("<Q", self._map, 8)[0]

    def journal(self, position=None, since=0):
        """The writes from number `since` on, in order; with `position` only those that began there. Waits for those
        that are being made: a tag's value can be there a moment ahead of its write's entry."""
        made = self.writes_made()
        deadline = time.monotonic() + WRITER_TIMEOUT
        found = []
        for number in range(max(since, made - JOURNAL_CAPACITY), made):
            at = JOURNAL_AT + number % JOURNAL_CAPACITY * JOURNAL_ENTRY.size
            while struct.unpack_from("<Q", self._map, at)[0] <= number and time.monotonic() < deadline:
                time.sleep(0.001)
            sequence, nanoseconds, where, size, process, data = JOURNAL_ENTRY.unpack_from(self._map, at)
            if sequence == number + 1 and position in (None, where):
                found.append(Write(number, nanoseconds / 1e9, where, size, process, data[: min(size, 32)]))
        return found

    def registrations(self):
        """The registrations that are in force, as {ID: [Operand, ...]} by rising ID."""
        found = {}
        for slot in range(REGISTRATION_COUNT):
            at = REGISTRATIONS_AT + slot * REGISTRATION_SIZE
            identifier, count = REGISTRATION_HEAD.unpack_from(self._map, at)
            if identifier:
                first = at + REGISTRATION_HEAD.size
                found[identifier] = [
                    Operand(*OPERAND.unpack_from(self._map, first + n * OPERAND.size)) for n in range(count)
                ]
        return dict(sorted(found.items()))

    def registrations_made(self):
        return struct.unpack_from("<I", self._map, 16)[0]

    def general(self, position):
        return records.General.decode(self.read(position, records.General.SIZE))

    def statistics(self, position):
        return records.Statistics.decode(self.read(position, records.Statistics.SIZE))

    def broker(self, position):
        return records.BrokerStatus.decode(self.read(position, records.BrokerStatus.SIZE))

    def subscription(self, position):
        return records.SubscriptionStatus.decode(self.read(position, records.SubscriptionStatus.SIZE))

    def broker_history(self, position):
        """Every status block that was written at `position`, in order."""
        return [records.BrokerStatus.decode(write.data) for write in self.journal(position)]
