"""The controller's requests to the service: records on its queue, and the answers in their status tags."""

import contextlib
import ctypes
import itertools
import os
import struct
import time

from support import tags
from support.waiting import wait_until

QUEUE = b"/MQTTQueue"
QUEUE_MESSAGES = 10
RECORD_SIZE = 1500

# What a request may ask for.
SUBSCRIBE, SUBSCRIBE_ALL, UNSUBSCRIBE, UNSUBSCRIBE_ALL, CONNECT, DISCONNECT, SEND = range(7)
GET_BROKER, SET_BROKER, GET_SUBSCRIPTION, SET_SUBSCRIPTION, GET_PUBLICATION, SET_PUBLICATION = range(7, 13)
PAUSE, START, SET_PUBLISH_STATE, SET_BROKER_REST = 13, 14, 15, 16
ON_ENTITIES = (SUBSCRIBE, SUBSCRIBE_ALL, UNSUBSCRIBE, UNSUBSCRIBE_ALL, CONNECT, DISCONNECT)

# What a status tag holds before the service writes to it, and while a request is being worked on.
UNTOUCHED = 0x7F
IN_PROGRESS = 2

# What a status tag goes through, by what comes of the request.
DONE = [IN_PROGRESS, 0]
NOT_WRITTEN_BACK = [IN_PROGRESS, -1]
UNKNOWN_ID = [IN_PROGRESS, -2]
NOT_READ_BACK = [IN_PROGRESS, -3]
NOT_PAUSED = [IN_PROGRESS, -4]
ALREADY_PAUSED = [IN_PROGRESS, -5]
IS_PAUSED = [IN_PROGRESS, -6]
NOT_PERIODIC = [IN_PROGRESS, -7]
NOT_APERIODIC = [IN_PROGRESS, -8]
FILES_UNUSABLE = [IN_PROGRESS, -9]
BROKER_FAILED = [IN_PROGRESS, -10]
SUBSCRIPTION_FAILED = [IN_PROGRESS, -11]
PUBLICATION_FAILED = [IN_PROGRESS, -12]
NO_ROW = [IN_PROGRESS, -13]
CLIENT_NOT_CREATED = [IN_PROGRESS, -14]

# Operand addresses of the status tags, one for each request.
STATUS_TAGS_AT = 0x800000


class _Attributes(ctypes.Structure):
    _fields_ = [(name, ctypes.c_long) for name in ("flags", "messages", "size", "waiting")] + [
        ("reserved", ctypes.c_long * 4)
    ]


class _Moment(ctypes.Structure):
    _fields_ = [("seconds", ctypes.c_long), ("nanoseconds", ctypes.c_long)]


# The standard library has no message queues, the C library has.
_library = ctypes.CDLL(None, use_errno=True)


def _checked(result):
    if result < 0:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number))
    return result


class Queue:
    """The runtime's end of the request queue, which is created if it isn't there."""

    def __init__(self, messages=QUEUE_MESSAGES, message_size=RECORD_SIZE):
        attributes = _Attributes(messages=messages, size=message_size)
        flags = os.O_CREAT | os.O_RDWR
        self._descriptor = _checked(_library.mq_open(QUEUE, flags, 0o666, ctypes.byref(attributes)))

    def close(self):
        if self._descriptor >= 0:
            os.close(self._descriptor)
            self._descriptor = -1

    def send(self, message, priority=0, timeout=20.0):
        """Waits while the queue is full."""
        moment = time.time() + timeout
        deadline = _Moment(int(moment), int(moment % 1 * 1e9))
        _checked(
            _library.mq_timedsend(self._descriptor, message, len(message), priority, ctypes.byref(deadline)),
        )

    def waiting(self):
        """How many messages nobody has taken yet."""
        attributes = _Attributes()
        _checked(_library.mq_getattr(self._descriptor, ctypes.byref(attributes)))
        return attributes.waiting


def remove_queue():
    _checked(_library.mq_unlink(QUEUE))


def record(opcode, identifier=0, status_address=0, state=0, main_opcode=0, reserved=0, payload=b""):
    """A request of as many bytes as it needs; `state` is a publication's, from -128 to 127."""
    if opcode in (PAUSE, START):
        return struct.pack("<HHI", main_opcode, opcode, status_address)
    if opcode == SET_BROKER_REST:
        return struct.pack("<HH", main_opcode, opcode) + payload
    return struct.pack("<HHHbBI", main_opcode, opcode, identifier, state, reserved, status_address) + payload


def status_position(status_address):
    """Where in tag memory the status tag with this operand address lies."""
    return tags.OPERAND_BASE + status_address


class Request:
    """A request that was sent, and what has become of it."""

    def __init__(self, memory, status_address):
        self._memory = memory
        self._position = status_position(status_address)
        self._first_write = memory.writes_made()
        self.status_address = status_address

    @property
    def status(self):
        return int.from_bytes(self._memory.read(self._position, 1), "little", signed=True)

    @property
    def is_answered(self):
        return self.status not in (UNTOUCHED, IN_PROGRESS)

    def writes(self):
        """The service's writes to the status tag."""
        return [write for write in self._memory.journal(self._position, self._first_write) if write.size == 1]

    def answers(self):
        """Every value that the status tag went through."""
        return [int.from_bytes(write.data, "little", signed=True) for write in self.writes()]

    def wait(self, timeout=10.0):
        """Every value that the status tag went through, once the last one is there."""
        wait_until(lambda: self.is_answered, lambda: f"the answer; the tag went through {self.answers()}", timeout)
        return self.answers()

    def wait_begun(self, timeout=10.0):
        wait_until(lambda: self.status != UNTOUCHED, "the request to be taken up", timeout)

    def seconds(self):
        """From the first value to the last one."""
        moments = [write.time for write in self.writes()]
        return moments[-1] - moments[0]


def history(*requests):
    """(number of the request, value) of all writes to these requests' status tags, in the order of the writes."""
    writes = sorted((write.number, number, write.data) for number, one in enumerate(requests) for write in one.writes())
    return [(number, int.from_bytes(data, "little", signed=True)) for _, number, data in writes]


class Requests:
    """Sends requests, each with a status tag of its own."""

    def __init__(self, memory):
        self._memory = memory
        self._queue = Queue()
        self._addresses = itertools.count(STATUS_TAGS_AT)
        self.sent = []

    def close(self):
        self._queue.close()

    def send(self, opcode, identifier=0, priority=0, **fields):
        """Returns at once; the other fields are those of record()."""
        request = self.expect(next(self._addresses))
        self.send_raw(record(opcode, identifier, request.status_address, **fields), priority)
        return request

    def expect(self, status_address):
        """For a request that is sent by other means."""
        self._memory.write(status_position(status_address), bytes([UNTOUCHED]))
        request = Request(self._memory, status_address)
        self.sent.append(request)
        return request

    def send_raw(self, message, priority=0):
        self._queue.send(message, priority)

    def ask(self, opcode, identifier=0, timeout=10.0, **fields):
        """Sends a request and returns every value that its status tag went through."""
        return self.send(opcode, identifier, **fields).wait(timeout)

    def waiting(self):
        return self._queue.waiting()

    def recreate_queue(self, **attributes):
        """A queue under the same name that the service, if it runs, doesn't know."""
        self.remove_queue()
        self._queue.close()
        self._queue = Queue(**attributes)

    @staticmethod
    def remove_queue():
        with contextlib.suppress(FileNotFoundError):
            remove_queue()
