"""Buffered subscriptions: messages wait until the control application asks for the next one."""

import json
import signal
import time

import pytest

from support import configuration, csvlog, records
from support.configuration import member, received_at, subscription, subscription_at
from support.device import STANDARD_ERROR, TEARDOWN_SECONDS, VERBOSE, died_of
from support.exchange import fence_subscription, pass_fence
from support.records import JSON, STRUCT, UINT8, UINT32, SubscriptionStatus
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
    """Returns when the last one's record stands as well: it is written behind the counter, and sets the bit."""

    def is_shown():
        writes = device.tags.journal()
        counted = [
            write.number
            for write in writes
            if write.position == configuration.STATISTICS_AT and records.Statistics.decode(write.data).received == count
        ]
        return counted and any(write.number > counted[0] and write.size == SubscriptionStatus.SIZE for write in writes)

    wait_until(is_shown, lambda: f"{count} received; {device.statistics()}")


def states(device, since, identifier=1):
    """The hand-over states that were written singly since this write, in order: none is missed by looking late."""
    return [write.data[0] for write in device.tags.journal(subscription_at(identifier) + STATE, since)]


def ask_for_next(device, identifier=1):
    """Asks once, and returns when the tag holds the message."""
    since = device.tags.writes_made()
    clear_bit(device, identifier)
    wait_until(lambda: states(device, since, identifier)[:2] == [HANDING_OVER, NONE], "the hand-over")


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
        self._looked = time.monotonic()
        self._since = device.tags.writes_made()  # when it began to want the next one
        self.taken = []

    def scan(self):
        now = time.monotonic()
        is_late, self._looked = now - self._looked >= PAUSE_LENGTH, now
        if is_late and self._step == self._want and NONE in states(self._device, self._since, self._identifier):
            # Held up for as long as a state is shown, which no control application is: it would have seen this.
            self._begun = now
            self._step = self._copy
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
            self._since = self._device.tags.writes_made()
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
    *values, last = range(7, 12)
    for value in (*values, last):
        partner.publish("plc/command/1", number(value))
    wait_counted(device, 5)
    begin = [(STATE, bytes([HANDING_OVER])), (0, bytes([1, 0, 0, 0]))]
    rested, lateness = 0.0, []
    for value in values:  # another one waits behind each
        since = device.tags.writes_made()
        ready = max(time.time(), rested)
        clear_bit(device)
        wait_until(lambda: len(device.tags.journal(since=since)) >= 6, "the six writes of a hand-over")
        writes = device.tags.journal(since=since)
        end = [(STATE, bytes([NONE])), (STATE, bytes([WAITING])), (BIT, b"\1")]
        assert relative(writes) == [*begin, ("data", number(value)), *end]
        # Asked at once, the next one is served by the tick behind the last pause.
        shows = [writes[3].time - writes[2].time, writes[4].time - writes[3].time, writes[0].time - rested + 1]
        assert min(shows) >= PAUSE_LENGTH
        lateness.append(
            max(writes[0].time - ready - CHECK_PERIOD, writes[2].time - writes[0].time, shows[0] - 1, shows[1] - 1)
        )
        rested = writes[5].time + 1
    # A busy machine holds one of them up, not all.
    assert min(lateness) < LATENESS, lateness

    since = device.tags.writes_made()
    clear_bit(device)
    wait_until(lambda: len(device.tags.journal(since=since)) >= 4, "the four writes of the last hand-over")
    assert relative(device.tags.journal(since=since)) == [*begin, ("data", number(last)), (STATE, bytes([NONE]))]
    holds_for(lambda: shown(device) == (0, NONE) and len(device.tags.journal(since=since)) == 4, "nothing more", 1.5)
    lines = [line for line in csvlog.messages("DEBUG") if line.startswith("Proccesing message")]
    assert lines == [
        f"Proccesing message of 'subscription1', queue count is '{left}', ReceiveFlag '0'" for left in (4, 3, 2, 1, 0)
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
    pass_fence(device, partner)
    assert csvlog.messages("DEBUG").count("Buffered message queue is full (15) for 'subscription1'") == 1
    full = device.subscription()
    time.sleep(1.1)  # so that another arrival would have another time
    partner.publish("a/late", number(16))
    pass_fence(device, partner)
    assert device.subscription() == full
    assert device.statistics().received == 15 + 3
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
    since = device.tags.writes_made()
    wait_until(lambda: application.scan() or shown(device) == (0, WAITING), "the request for the third", timeout=20)
    wait_until(lambda: HANDING_OVER in states(device, since), "the hand-over of the third")
    publish(5)
    wait_until(lambda: shown(device) == (1, WAITING), "the arrival, which hides that state from the application")
    assert application.take(5) == [number(value) for value in (1, 2, 3, 4, 5)]
    wait_until(lambda: application.scan() or shown(device) == (0, NONE), "the last state")


def test_two_subscriptions_that_are_ready_are_served_one_behind_the_other(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[buffered(1), buffered(2), buffered(3)])
    device.run()
    partner.publish("plc/command/2", number(2))
    for value in (1, 2, 3):
        for n in (1, 3):
            partner.publish(f"plc/command/{n}", number(value))
    wait_counted(device, 7)
    lateness = []
    between = [HANDING_OVER, NONE, WAITING]
    for value, shows in ((1, between), (2, between), (3, [HANDING_OVER, NONE])):
        for n in (1, 3):
            wait_shown(device, 1, WAITING, n)
        since = device.tags.writes_made()
        # The first may be seen a tick ahead of the third; the writes say so either way.
        clear_bit(device, 3)
        clear_bit(device, 1)
        wait_until(lambda: [states(device, since, n) for n in (1, 3)] == [shows, shows], "both", timeout=15)
        assert [device.received(n) for n in (1, 3)] == [number(value)] * 2
        begins = sorted(device.tags.journal(subscription_at(n) + STATE, since)[0].time for n in (1, 3))
        gap = begins[1] - begins[0]
        assert gap >= len(shows) * PAUSE_LENGTH
        lateness.append(gap - len(shows))
    assert min(lateness) < CHECK_PERIOD + LATENESS, lateness
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
    since = device.tags.writes_made()
    clear_bit(device)
    wait_until(lambda: state in states(device, since), f"state {state}")
    assert died_of(device.service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM


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
    # It publishes the hand-over state itself: each message tells what that was when it went out.
    state = configuration.publication(DataType=UINT8, DataAddr=subscription_at(1) + STATE)
    device.configure(subscriptions=[buffered()], publications=[state])
    device.run()

    def told():
        return [message.payload[0] for message in listener.on("plc/data/1")]

    sender.publish("plc/command/1", number(1))
    wait_until(lambda: told()[-1:] == [WAITING], "the arrival in what is published")
    since = device.tags.writes_made()
    clear_bit(device)
    wait_until(lambda: states(device, since) == [HANDING_OVER, NONE], "the hand-over")
    wait_until(lambda: told()[-3:] == [NONE] * 3, "publications to go on")
    assert HANDING_OVER not in told()


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
    pass_fence(device, sender)  # the record of the dropped ones is written behind their lines
    assert device.statistics().received == 2 + 1
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
