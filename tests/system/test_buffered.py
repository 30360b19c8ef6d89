"""Buffered subscriptions: messages wait until the control application asks for the next one."""

import json
import signal
import time

import pytest

from support import configuration, csvlog, records
from support.configuration import member, received_at, subscription, subscription_at
from support.device import STANDARD_ERROR, VERBOSE, died_of
from support.exchange import fence_subscription, pass_fence
from support.records import JSON, STRUCT, UINT32, SubscriptionStatus
from support.requests import DONE, PAUSE, START
from support.waiting import holds_for, wait_until

BIT = SubscriptionStatus.RECEIVED_BIT_AT
STATE = 520
NONE, HANDING_OVER, WAITING = range(3)

# How long the service shows each state (1 s, as far as a clock that goes in steps of up to 10 ms can tell), and how
# often it looks at the bits, in seconds; and what a busy machine adds.
PAUSE_LENGTH = 0.99
CHECK_PERIOD = 0.4
LATENESS = 0.9


def buffered(identifier=1, **attributes):
    return subscription(identifier, IsBuffered=1, **attributes)


def number(value):
    return value.to_bytes(4, "little")


def clear_bit(device, identifier=1):
    device.tags.write(subscription_at(identifier) + BIT, b"\0")


def shown(device, identifier=1):
    """The received bit and the hand-over state."""
    record = device.subscription(identifier)
    return record.received, record.buffered


def wait_shown(device, bit, state, identifier=1, timeout=10.0):
    wait_until(
        lambda: shown(device, identifier) == (bit, state),
        lambda: f"bit {bit} and state {state}; {shown(device, identifier)} stands there",
        timeout,
    )


def wait_counted(device, count):
    wait_until(lambda: device.statistics().received == count, lambda: f"{count} received; {device.statistics()}")


def ask_for_next(device, identifier=1):
    """Asks once, and returns when the tag holds the message."""
    clear_bit(device, identifier)
    wait_until(lambda: shown(device, identifier)[1] == HANDING_OVER, "the hand-over to begin")
    wait_until(lambda: shown(device, identifier)[1] != HANDING_OVER, "the hand-over to end")


def relative(writes, identifier=1):
    """(offset in the subscription's record or "data", first bytes that tell) of each write."""
    start, data = subscription_at(identifier), received_at(identifier)
    found = []
    for write in writes:
        if write.position == data:
            found.append(("data", write.data))
        elif start <= write.position < start + SubscriptionStatus.SIZE:
            found.append((write.position - start, write.data[:4] if write.size > 1 else write.data))
    return found


class Application:
    """A control application that does what the documentation asks of one, and keeps what it took."""

    def __init__(self, device, identifier=1, size=4):
        self._device = device
        self._identifier = identifier
        self._size = size
        self._step = self._want
        self._has_seen_waiting = False
        self._begun = 0.0
        self.taken = []

    def scan(self):
        self._step(*shown(self._device, self._identifier))

    def _want(self, bit, state):
        if bit:
            clear_bit(self._device, self._identifier)
        if state == WAITING:
            self._has_seen_waiting = True
        elif self._has_seen_waiting:
            self._begun = time.monotonic()
            self._step = self._take

    def _take(self, _bit, state):
        if state != HANDING_OVER:
            self._step = self._copy

    def _copy(self, _bit, _state):
        self.taken.append(self._device.received(self._identifier, self._size))
        self._has_seen_waiting = False
        self._step = self._work

    def _work(self, _bit, _state):
        if time.monotonic() - self._begun >= 3.5:
            self._step = self._want

    def take(self, count, timeout=60.0):
        def has_taken():
            self.scan()
            return len(self.taken) >= count

        wait_until(has_taken, lambda: f"{count} messages; {self.taken} were taken", timeout)
        return self.taken


def test_message_waits_until_the_application_asks(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[buffered()])
    device.run()
    since = device.tags.writes_made()
    before = int(time.time())
    for value in (7, 8, 9):
        partner.publish("plc/command/1", number(value))
    wait_counted(device, 3)
    record = device.subscription()
    assert record == SubscriptionStatus(1, 0, 1, 0, "plc/command/1", record.time, WAITING)
    assert before <= record.time <= int(time.time())
    holds_for(lambda: shown(device) == (1, WAITING) and device.received() == number(0), "nothing is handed over", 2)
    assert len(device.tags.journal(since=since)) == 6  # counter and record of each


def test_hand_over_shows_each_state_for_a_second(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[buffered()])
    device.run(*VERBOSE)
    partner.publish("plc/command/1", number(7))
    partner.publish("plc/command/1", number(8))
    wait_counted(device, 2)
    wait_shown(device, 1, WAITING)
    since = device.tags.writes_made()
    asked = time.monotonic()
    clear_bit(device)
    wait_until(lambda: len(device.tags.journal(since=since)) == 6, "the six writes of a hand-over")
    assert time.monotonic() - asked < CHECK_PERIOD + 2 * PAUSE_LENGTH + LATENESS
    writes = device.tags.journal(since=since)
    assert relative(writes) == [
        (STATE, bytes([HANDING_OVER])),
        (0, bytes([1, 0, 0, 0])),
        ("data", number(7)),
        (STATE, bytes([NONE])),
        (STATE, bytes([WAITING])),
        (BIT, b"\1"),
    ]
    assert writes[2].time - writes[0].time < LATENESS
    for begin, end in ((2, 3), (3, 4)):
        assert PAUSE_LENGTH <= writes[end].time - writes[begin].time < PAUSE_LENGTH + LATENESS

    # asked at once: served by the tick behind the last pause
    clear_bit(device)
    wait_shown(device, 0, NONE)
    device.wait_received(number(8))
    writes = device.tags.journal(since=since)
    assert relative(writes)[6:] == [
        (STATE, bytes([HANDING_OVER])),
        (0, bytes([1, 0, 0, 0])),
        ("data", number(8)),
        (STATE, bytes([NONE])),
    ]
    assert writes[6].time - writes[5].time >= PAUSE_LENGTH
    holds_for(lambda: shown(device) == (0, NONE) and len(device.tags.journal(since=since)) == 10, "nothing more", 1.5)
    lines = [line for line in csvlog.messages("DEBUG") if line.startswith("Proccesing message")]
    assert lines == [
        f"Proccesing message of 'subscription1', queue count is '{left}', ReceiveFlag '0'" for left in (1, 0)
    ]


def test_queue_takes_fifteen_and_loses_the_rest_without_a_trace(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[buffered(Topic="a/+"), fence_subscription()])
    device.run(*VERBOSE)
    for value in range(1, 15):
        partner.publish("a/b", number(value))
    pass_fence(device, partner)
    assert device.subscription().queue_full == 0
    partner.publish("a/b", number(15))
    wait_until(lambda: device.subscription().queue_full == 1, "the queue to be full")
    assert csvlog.messages("DEBUG").count("Buffered message queue is full (15) for 'subscription1'") == 1
    full = device.subscription()
    time.sleep(1.1)  # so that another arrival would have another time
    partner.publish("a/late", number(16))
    pass_fence(device, partner)
    assert device.subscription() == full
    assert device.statistics().received == 15 + 2
    assert csvlog.messages("WARN") == []
    ask_for_next(device)
    assert device.received() == number(1)
    assert device.subscription().queue_full == 0
    partner.publish("a/again", number(17))
    wait_until(lambda: device.subscription().queue_full == 1, "the queue to be full again")
    assert device.subscription().topic == "a/again"


def test_application_gets_every_message_in_order_also_those_that_come_meanwhile(device, mosquitto, send):
    sender = send(mosquitto())
    device.configure(subscriptions=[buffered(QOS=1)])
    device.run()
    application = Application(device)

    def publish(*values):
        for value in values:
            sender.publish("plc/command/1", number(value), qos=1)

    publish(1, 2, 3)
    application.take(1)
    publish(4)  # while it works
    application.take(2)
    wait_until(lambda: application.scan() or shown(device) == (0, WAITING), "the request for the third", timeout=20)
    wait_until(lambda: shown(device)[1] == HANDING_OVER, "the hand-over of the third")
    publish(5)
    wait_until(lambda: shown(device) == (1, WAITING), "the arrival, which hides that state from the application")
    assert application.take(5) == [number(value) for value in (1, 2, 3, 4, 5)]
    wait_until(lambda: application.scan() or shown(device) == (0, NONE), "the last state")


def test_two_subscriptions_that_are_ready_are_served_one_behind_the_other(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[buffered(1), buffered(2), buffered(3)])
    device.run()
    for n in (1, 2, 3):
        partner.publish(f"plc/command/{n}", number(n))
    wait_counted(device, 3)
    wait_shown(device, 1, WAITING, 3)
    since = device.tags.writes_made()
    # The first may be seen a tick ahead of the third; then it is not this test's case, and the writes say so.
    clear_bit(device, 3)
    clear_bit(device, 1)
    wait_shown(device, 0, NONE, 1)
    device.wait_received(number(3), 3)
    wait_shown(device, 0, NONE, 3)
    begins = [write for write in device.tags.journal(since=since) if write.data == bytes([HANDING_OVER])]
    assert sorted(write.position for write in begins) == [subscription_at(n) + STATE for n in (1, 3)]
    gap = begins[1].time - begins[0].time
    assert 2 * PAUSE_LENGTH <= gap < 2 * PAUSE_LENGTH + CHECK_PERIOD + LATENESS
    assert shown(device, 2) == (1, WAITING)
    assert device.received(2) == number(0)


def test_bad_json_is_handed_over_like_any_message(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[buffered(DataType=STRUCT, members=[member(0, UINT32, "a")], PayloadFormat=JSON)])
    device.run()
    for payload in (json.dumps({"a": 1}), '{"a":', json.dumps({"a": 3})):
        partner.publish("plc/command/1", payload.encode())
    wait_counted(device, 3)
    application = Application(device)
    assert application.take(1) == [number(1)]
    assert device.subscription().code == 0
    assert application.take(2) == [number(1)] * 2
    assert device.subscription().code == records.INVALID_JSON
    assert application.take(3)[2] == number(3)
    assert device.subscription().code == records.INVALID_JSON


def test_lost_connection_keeps_what_waits(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[buffered()])
    device.run()
    for value in (1, 2):
        partner.publish("plc/command/1", number(value))
    wait_counted(device, 2)
    partner.close()
    wait_until(lambda: device.subscription().code == records.SUBSCRIPTION_LOST, "the loss")
    assert Application(device).take(2) == [number(1), number(2)]


def test_pause_keeps_what_waits_and_start_throws_it_away(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[buffered(), fence_subscription()])
    device.run(*VERBOSE)
    for value in (1, 2):
        partner.publish("plc/command/1", number(value))
    wait_counted(device, 2)
    assert device.requests.ask(PAUSE) == DONE
    clear_bit(device)
    holds_for(lambda: device.received() == number(0), "nothing is handed over in a pause", 1.5)
    assert device.requests.ask(START) == DONE
    assert csvlog.has_message("Subscriber 'subscription1' released it messages", severity="DEBUG")
    clear_bit(device)
    holds_for(lambda: device.received() == number(0), "nothing is left", 1.5)


@pytest.mark.parametrize("state", [HANDING_OVER, NONE, WAITING])
def test_signal_in_the_middle_of_a_hand_over_ends_the_service(device, scripted, state):
    partner = scripted()
    device.configure(subscriptions=[buffered()])
    device.run()
    for value in range(1, 4):
        partner.publish("plc/command/1", number(value))
    wait_counted(device, 3)
    clear_bit(device)
    wait_until(lambda: shown(device)[1] == HANDING_OVER, "the hand-over to begin")
    wait_until(lambda: shown(device)[1] == state, f"state {state}")
    begin = time.monotonic()
    assert died_of(device.service.stop()) == signal.SIGTERM
    assert time.monotonic() - begin < 5


def test_process_that_ends_with_messages_leaves_them(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[buffered()])
    device.run(*VERBOSE)
    partner.publish("plc/command/1", number(1))
    wait_counted(device, 1)
    device.service.stop()
    assert csvlog.has_message("Subscriber 'subscription1' released it messages", severity="DEBUG")
    assert shown(device) == (1, WAITING)
    assert device.received() == number(0)


def test_publications_stand_still_during_a_hand_over(device, mosquitto, send, listen):
    partner = mosquitto()
    listener, sender = listen(partner, "plc/data/#"), send(partner)
    device.configure(subscriptions=[buffered()], publications=[configuration.publication(PeriodicInterval=100)])
    device.run()
    listener.wait_for("plc/data/1", 3)
    sender.publish("plc/command/1", number(1))
    wait_shown(device, 1, WAITING)
    clear_bit(device)
    wait_until(lambda: shown(device)[1] == HANDING_OVER, "the hand-over to begin")
    during = len(listener.on("plc/data/1"))
    wait_until(lambda: shown(device)[1] == NONE, "the hand-over to end")
    assert len(listener.on("plc/data/1")) - during <= 1
    listener.wait_for("plc/data/1", during + 5)


def test_large_messages_are_bounded_in_sum(device, mosquitto, send):
    sender = send(mosquitto())
    device.configure(subscriptions=[buffered(), fence_subscription()])
    device.run()
    large = number(5) + bytes(30_000_000)
    for _ in range(4):
        sender.publish("plc/command/1", large)
    wait_until(lambda: len(csvlog.messages("WARN")) == 2, lambda: csvlog.messages("WARN"), timeout=30)
    assert set(csvlog.messages("WARN")) == {
        "subscription 'subscription1': a message of 30000004 bytes is dropped, its queue may hold 67108864 in sum"
    }
    assert device.statistics().received == 2
    assert device.subscription().queue_full == 0
    ask_for_next(device)
    assert device.received() == number(5)


@pytest.mark.parametrize("arguments", [(), VERBOSE])
def test_messages_are_dumped_in_verbose_mode_only(device, scripted, arguments):
    partner = scripted()
    device.configure(subscriptions=[buffered()])
    device.run(*arguments)
    partner.publish("plc/command/1", b"\x1b[2Jtext")
    wait_shown(device, 1, WAITING)
    device.service.stop()
    dumps = [line for line in STANDARD_ERROR.read_text().splitlines() if "MQTTMessage" in line]
    assert len(dumps) == (1 if arguments else 0)
    for dump in dumps:
        assert " MQTTClientManager ** MQTTMessage members are: Guid=" in dump
        assert 'topicName="plc/command/1", topicLen=13, Payload="\\u001B[2Jtext", PayloadLen=8' in dump
