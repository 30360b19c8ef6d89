"""The request queue: which records are taken up, in what order, and what can be wrong with them and with the queue."""

import itertools
import os
import pathlib
import random
import re
import signal
import struct

import pytest

from support import csvlog, requests, tags
from support.configuration import broker, publication, subscription
from support.device import CLOCK_SCRIPT, STANDARD_OUTPUT, VERBOSE
from support.records import PAUSED, RUNNING, STARTING
from support.requestmodel import ADDRESSES, IDENTIFIERS, RECORD_PARTS, SERVED, Model, fields
from support.requests import (
    BROKER_FAILED,
    CONNECT,
    DISCONNECT,
    DONE,
    IS_PAUSED,
    NOT_PAUSED,
    NOT_PERIODIC,
    PAUSE,
    SEND,
    SET_BROKER_REST,
    SET_PUBLISH_STATE,
    START,
    SUBSCRIBE,
    UNKNOWN_ID,
    record,
)
from support.waiting import wait_until

NOBODY = 9999


def on_request_only():
    return broker(AutoConnect=0)


def has_console_error(text):
    """Looks at the beginning only: some errors come thousands of times a second."""
    with STANDARD_OUTPUT.open(errors="replace") as output:
        return re.search(rf" ERROR \[\d+\] \[[\w:]+@\d+\] {re.escape(text)}\n", output.read(1 << 20))


def assert_publishes(device):
    sent = device.statistics().sent
    wait_until(lambda: device.statistics().sent > sent + 10, "publications")


def test_unknown_opcode_is_told_and_the_next_request_is_served(device):
    device.configure(brokers=[on_request_only()])
    device.run(*VERBOSE)
    opcodes = [17, 18, 111, 255, 256, 1000, 32768, 65535]
    unknown = [device.requests.send(opcode, 1) for opcode in opcodes]
    assert device.requests.ask(CONNECT, NOBODY) == UNKNOWN_ID
    assert [request.answers() for request in unknown] == [[]] * len(opcodes)
    expected = [f"invalid sub opcode is: {os.strerror(opcode)}" for opcode in opcodes]
    assert csvlog.messages("ERROR") == expected
    messages = csvlog.messages("DEBUG")
    assert [message for message in messages if message.startswith("reqId:")] == [
        f"reqId:{number}" for number in [*opcodes, CONNECT]
    ]


def test_what_a_message_leaves_out_is_zero(device):
    device.configure(brokers=[on_request_only()], publications=[publication(1), publication(0, PeriodicInterval=-1)])
    device.run()
    whole = record(CONNECT, NOBODY, 0x00123456)
    cases = {
        "nothing": (b"", 0, UNKNOWN_ID),
        "main opcode": (b"\xff\xff", 0, UNKNOWN_ID),
        "half an opcode": (b"\xff\xff\x04", 0, UNKNOWN_ID),
        "no ID": (record(SET_PUBLISH_STATE)[:4], 0, NOT_PERIODIC),
        "half an ID": (record(SET_PUBLISH_STATE, 0x0101)[:5], 0, DONE),
        "no address": (whole[:8], 0, UNKNOWN_ID),
        "a quarter of the address": (whole[:9], 0x56, UNKNOWN_ID),
        "half the address": (whole[:10], 0x3456, UNKNOWN_ID),
        "the address without its last zero": (whole[:11], 0x123456, UNKNOWN_ID),
        "record": (whole, 0x123456, UNKNOWN_ID),
        "record and payload": (whole.ljust(1500, b"\xff"), 0x123456, UNKNOWN_ID),
    }
    for message, status_address, answers in cases.values():
        # Whatever lay in the buffer is from this one.
        device.requests.send_raw(struct.pack("<HH", 0, 65535).ljust(1500, b"\xff"))
        request = device.requests.expect(status_address)
        device.requests.send_raw(message)
        assert request.wait() == answers, message
    assert device.stray_writes() == []


def test_main_opcode_and_reserved_byte_are_not_looked_at(device):
    device.configure(brokers=[on_request_only()])
    device.run()
    assert device.requests.ask(CONNECT, NOBODY, main_opcode=0xFFFF, reserved=0xFF) == UNKNOWN_ID
    assert device.requests.ask(START, main_opcode=0xFFFF) == NOT_PAUSED


def test_queue_for_larger_messages_fails_each_receive_and_nothing_else(device, mosquitto):
    mosquitto()
    device.requests.recreate_queue(message_size=requests.RECORD_SIZE + 1)
    request = device.requests.send(CONNECT, NOBODY)
    device.configure(publications=[publication(PeriodicInterval=20)])
    device.run()
    wait_until(lambda: has_console_error("mq_receive error Message too long"), "the line")
    assert_publishes(device)
    assert device.requests.waiting() == 1
    assert request.answers() == []


def test_missing_queue_costs_the_requests_and_nothing_else(device, mosquitto):
    mosquitto()
    device.requests.remove_queue()
    device.configure(publications=[publication(PeriodicInterval=20)])
    device.run()
    assert has_console_error("mq_open error No such file or directory")
    wait_until(lambda: has_console_error("mq_receive error Bad file descriptor"), "the line")
    device.requests.recreate_queue()
    request = device.requests.send(CONNECT, NOBODY)
    assert_publishes(device)
    assert device.requests.waiting() == 1
    assert request.answers() == []


def test_queue_that_is_removed_serves_on(device):
    device.configure(brokers=[on_request_only()])
    device.run(*VERBOSE)
    device.requests.remove_queue()
    assert device.requests.ask(CONNECT, NOBODY) == UNKNOWN_ID
    assert csvlog.messages("ERROR") == []


def test_requests_from_before_the_start_are_served_in_order_after_the_run_up(device, mosquitto):
    mosquitto()
    device.configure(subscriptions=[subscription(1), subscription(2, SubscribeAtBoot=0)])
    waiting = [
        device.requests.send(opcode, number)
        for opcode, number in [(SUBSCRIBE, 1), (SUBSCRIBE, 2), (CONNECT, NOBODY), (CONNECT, 1)]
    ]
    device.run()
    for request in waiting:
        request.wait()
    assert requests.history(*waiting) == [(0, 2), (0, -11), (1, 2), (1, 0), (2, 2), (2, -2), (3, 2), (3, -10)]
    run_up = [write for write in device.broker_history() if write.connected]
    assert len(run_up) == 2  # the attempt of the run-up, and the refused request
    boot = device.record_writes(1)[1]
    assert boot.data[0] == 1
    assert boot.number < waiting[0].writes()[0].number
    # The scheduler's second lies in between.
    assert waiting[0].writes()[0].time - boot.time > 0.9


def test_during_the_clock_check_only_pause_and_start_wait(device):
    go = pathlib.Path("/tmp/go")
    device.script(CLOCK_SCRIPT, f"until [ -e {go} ]; do sleep 0.05; done; echo 1")
    device.configure(brokers=[on_request_only()])
    device.start()
    assert device.requests.ask(CONNECT, NOBODY) == UNKNOWN_ID
    assert device.status() == STARTING
    pause = device.requests.send(PAUSE)
    after = device.requests.send(CONNECT, NOBODY)
    assert after.wait() == UNKNOWN_ID
    assert pause.answers() == []
    go.touch()
    assert pause.wait() == DONE
    assert device.status_history() == [STARTING, RUNNING, PAUSED]


def test_requests_are_served_one_by_one_and_by_priority(device, mosquitto):
    mosquitto()
    device.configure(publications=[publication(PeriodicInterval=-1)])
    service = device.run()
    service.signal(signal.SIGSTOP)  # it finds all of them when it goes on
    first = device.requests.send(SEND, 1, priority=32)
    priorities = [0, 5, 0, 31, 5]
    others = [device.requests.send(CONNECT, NOBODY, priority=priority) for priority in priorities]
    service.signal(signal.SIGCONT)
    for request in [first, *others]:
        request.wait()
    expected = [[(number, 2), (number, -2)] for number in (4, 2, 5, 1, 3)]
    assert requests.history(first, *others) == [(0, 2), (0, 0), *itertools.chain(*expected)]


@pytest.mark.timeout(90)
def test_requests_behind_a_pause_or_a_start_wait_for_two_seconds(device, mosquitto):
    mosquitto()
    device.configure(brokers=[on_request_only()])
    service = device.run()
    sequence = [(CONNECT, NOBODY), (PAUSE, 0), (CONNECT, 1), (CONNECT, 1), (START, 0), (CONNECT, 1), (CONNECT, 1)]
    expected = [UNKNOWN_ID, DONE, IS_PAUSED, IS_PAUSED, DONE, DONE, BROKER_FAILED]

    def is_undisturbed():
        """False where the machine held one of the two threads up for a second or so."""
        service.signal(signal.SIGSTOP)  # all of them are there when it takes up the first
        sent = [device.requests.send(opcode, identifier) for opcode, identifier in sequence]
        service.signal(signal.SIGCONT)
        answers = [request.wait(timeout=20) for request in sent]
        device.requests.ask(DISCONNECT, 1)
        begins = [request.writes()[0].time for request in sent]
        # By the request thread's own writes: the main thread, which pauses and starts, may be late.
        waits = begins[2] - sent[0].writes()[-1].time, begins[5] - sent[3].writes()[-1].time
        assert min(waits) > 1.9, waits
        order = [number for number, _ in requests.history(*sent)]
        return (
            answers == expected
            and order == [number for number in range(len(sequence)) for _ in range(2)]
            and max(waits) < 3.8  # not twice
            and begins[4] - begins[2] < 1.9
        )

    wait_until(is_undisturbed, "the order and the answers of a machine that has time", timeout=40)


def test_status_address_is_converted_to_32_bits(device):
    """A position has 32 bits: an address that converts to more begins again at 0."""
    device.configure(brokers=[on_request_only()])
    device.run()
    wrapping = 2**32 - tags.OPERAND_BASE + 0x300
    device.requests.send_raw(record(CONNECT, NOBODY, wrapping))
    assert device.requests.ask(CONNECT, NOBODY) == UNKNOWN_ID
    assert [write.data for write in device.tags.journal(0x300)] == [b"\2", b"\xfe"]


UNKNOWN = [SET_BROKER_REST, 17, 18, 255, 256, 32767, 32768, 65534, 65535]


def random_message(generator):
    opcode = generator.choice(SERVED if generator.random() < 0.7 else UNKNOWN)
    main_opcode, state, reserved = generator.randrange(65536), generator.randrange(-128, 128), generator.randrange(256)
    whole = record(
        opcode, generator.choice(IDENTIFIERS), generator.choice(ADDRESSES), state, main_opcode, reserved
    ).ljust(1500, generator.choice([b"\0", b"\xff", b"A"]))
    return whole[: generator.choice([12, 12, 1500, generator.randrange(12), generator.randrange(1501)])]


def test_three_thousand_random_records_are_answered_as_they_should(device, mosquitto):
    mosquitto()
    numbers = (1, 2, 3)
    device.configure(
        publications=[publication(n, PeriodicInterval=50) for n in numbers],
        subscriptions=[subscription(n, SubscribeAtBoot=0) for n in numbers],
    )
    device.run()
    generator, model = random.Random(20), Model()
    expected, unknown = [], 0
    for _ in range(3000):
        message = random_message(generator)
        device.requests.send_raw(message)
        opcode, identifier, address, record_address = fields(message)
        if opcode not in SERVED:
            unknown += opcode != SET_BROKER_REST
            continue
        answer = model.answer(opcode, identifier, record_address)
        position = requests.status_position(address)
        if device.tags.is_there(position):
            expected += [(position, 2), (position, answer)]
    assert device.requests.ask(CONNECT, NOBODY, timeout=30) == UNKNOWN_ID
    answered = [
        (write.position, int.from_bytes(write.data, "little", signed=True))
        for write in device.tags.journal()
        if write.size == 1
    ]
    assert answered[:-2] == expected
    assert [stray for stray in device.stray_writes() if stray.size not in (1, *RECORD_PARTS)] == []
    assert len([message for message in csvlog.messages("ERROR") if "invalid sub opcode" in message]) == unknown
    assert device.requests.ask(SET_PUBLISH_STATE, 1, state=1) == DONE
    device.requests.ask(CONNECT, 1)
    assert_publishes(device)
