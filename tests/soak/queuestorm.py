"""Random records on the request queue, at full speed: valid requests get their answers, the rest changes nothing."""

import contextlib
import random
import struct

from soak.report import Cost
from support import mosquitto, requests
from support.configuration import publication, subscription
from support.device import Device
from support.requestmodel import ADDRESSES, HEAD, IDENTIFIERS, READ_BACK, RECORD_PARTS, SERVED, WRITTEN_BACK, Model, fields
from support.requests import CONNECT, IN_PROGRESS, PAUSE, START, UNKNOWN_ID, UNTOUCHED, record
from support.waiting import wait_until

DEFAULT, SHORT = 100_000, 3000

# Operand addresses of the records' own status tags; none of the edges is among them.
OWN_TAGS_AT = 0x900000

# One batch is answered and compared before the next is sent.
BATCH = 1000
NUMBERS = (1, 2, 3)
NOBODY = 999

# A pause and a start hold the queue for 2 s each.
STATE_CHANGE_EVERY = 2500

# The rest of a broker's record answers nobody while none is pending.
UNSERVED = sorted(set(range(65536)) - {*SERVED, PAUSE, START})

LARGEST_RECORD = 1500


class PausableModel(Model):
    """What the service has to answer; paused, it refuses whatever it can refuse."""

    def __init__(self):
        super().__init__()
        self._is_paused = False

    def answer(self, opcode, identifier, record_address):
        if opcode == PAUSE:
            result = -5 if self._is_paused else 0
            self._is_paused = True
            self._is_connected, self._subscribed = False, set()
            return result
        if opcode == START:
            result = 0 if self._is_paused else -4
            self._is_paused = False
            return result
        if self._is_paused and opcode in WRITTEN_BACK:
            return -2  # of the known ones, which would change the files, none is sent
        if self._is_paused and opcode not in READ_BACK:
            return -6
        return super().answer(opcode, identifier, record_address)

    def would_change_files(self, opcode, identifier):
        return self._is_paused and opcode in WRITTEN_BACK and self.is_known(opcode, identifier)


def run(report, records):
    with contextlib.ExitStack() as stack:
        device = stack.enter_context(contextlib.closing(Device()))
        partner = mosquitto.Mosquitto()
        stack.callback(partner.stop)
        device.configure(
            publications=[publication(n, PeriodicInterval=50) for n in NUMBERS],
            subscriptions=[subscription(n, SubscribeAtBoot=0) for n in NUMBERS],
        )
        service = device.run()
        storm = Storm(device, random.Random(11))
        first = Cost.of(service)
        for begin in range(0, records, BATCH):
            storm.send_batch(min(BATCH, records - begin))
            assert not service.has_ended(), "the service ended"
            report.progress(f"{storm.sent} records, {storm.valid} of them valid, {Cost.of(service)}")
        device.requests.ask(START, timeout=30)
        device.requests.ask(CONNECT, 1, timeout=30)
        before = device.statistics().sent
        wait_until(lambda: device.statistics().sent > before + 5, "publications")
        last = first.settled(service)
        return f"{storm.sent} records, {storm.valid} of them valid and all answered; {first} became {last}"


class Storm:
    def __init__(self, device, generator):
        self._device = device
        self._generator = generator
        self._model = PausableModel()
        self.sent = 0
        self.valid = 0

    def send_batch(self, count):
        """Each record names a status tag of its own, or an address at an edge whose tag isn't looked at."""
        memory = self._device.tags
        first = requests.status_position(OWN_TAGS_AT)
        memory.write(first, bytes([UNTOUCHED]) * BATCH)
        written = memory.writes_made()
        expected = [UNTOUCHED] * count
        for number in range(count):
            message, answer = self._message(OWN_TAGS_AT + number)
            self._device.requests.send_raw(message)
            self.sent += 1
            if fields(message)[0] in (PAUSE, START) and answer is not None:
                # The main thread may take longer than the 2 s for which the queue is held.
                wait_until(lambda: memory.read(first + number, 1)[0] not in (UNTOUCHED, IN_PROGRESS), "the change", 30)
            if answer is not None:
                self.valid += 1
                if has_address(message, OWN_TAGS_AT + number):
                    expected[number] = answer
        # Behind them all; a paused service refuses it, and otherwise it names nobody.
        answers = self._device.requests.ask(CONNECT, NOBODY, timeout=60)
        assert answers in (UNKNOWN_ID, [2, -6]), answers
        self._device.requests.sent.clear()
        found = list(struct.unpack(f"{count}b", memory.read(first, count)))
        wrong = [(n, found[n], expected[n]) for n in range(count) if found[n] != expected[n]]
        assert not wrong, f"(number in the batch, answer, right answer): {wrong[:10]}"
        others = [write for write in memory.journal(since=written) if write.size not in (1, *RECORD_PARTS)]
        strays = [write for write in others if self._is_stray(write)]
        assert not strays, strays[:3]

    def _is_stray(self, write):
        return not any(first <= write.position < first + size for first, size in self._device.known_ranges())

    def _message(self, own_address):
        """A record, and the answer to it if it is one that is served."""
        generator = self._generator
        if generator.randrange(STATE_CHANGE_EVERY) == 0:
            opcode = generator.choice((PAUSE, START))
            return record(opcode, status_address=own_address), self._model.answer(opcode, 0, 0)
        opcode = generator.choice(SERVED) if generator.random() < 0.7 else generator.choice(UNSERVED)
        address = own_address if generator.random() < 0.9 else generator.choice(ADDRESSES)
        identifier = generator.choice(NUMBERS) if generator.random() < 0.5 else generator.choice(IDENTIFIERS)
        whole = record(
            opcode, identifier, address, generator.randrange(-128, 128), generator.randrange(65536)
        ).ljust(LARGEST_RECORD, generator.choice([b"\0", b"\xff", b"A"]))
        message = whole[: generator.choice([HEAD, HEAD, LARGEST_RECORD, generator.randrange(LARGEST_RECORD + 1)])]
        if self._model.would_change_files(*fields(message)[:2]):
            return self._message(own_address)
        return message, self._answer(message)

    def _answer(self, message):
        """What is cut off reads as 0, and that may make another request of it."""
        opcode, identifier, _, record_address = fields(message)
        return self._model.answer(opcode, identifier, record_address) if opcode in SERVED else None


def has_address(message, address):
    """Whether the record as the service reads it names this status tag."""
    _, opcode = struct.unpack_from("<HH", message.ljust(HEAD, b"\0"))
    at = 4 if opcode in (PAUSE, START) else 8
    return struct.unpack_from("<I", message.ljust(HEAD, b"\0"), at)[0] == address
