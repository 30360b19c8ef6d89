"""Brokers that misbehave beside a healthy one: how long its periodic messages have to wait, and what is left behind."""

import re
import time

import pytest

from support import csvlog, records
from support.configuration import broker, publication
from support.device import STANDARD_OUTPUT, VERBOSE
from support.records import CONNECTION_LOST
from support.requests import BROKER_FAILED, CONNECT, DISCONNECT, DONE, PAUSE
from support.waiting import holds_for, wait_until

HEALTHY_PORT, STALLED_PORT = 1883, 1884
PERIOD = 0.1

# What the client library and the service spend on it, in seconds.
CONNECT_PATIENCE = 15
ACKNOWLEDGEMENT_PATIENCE = 20
WRITE_PATIENCE = 20

# What a busy machine may add.
LATENESS = 4.0
# The library counts its patience with an attempt in naps of 10 ms, each of which takes longer on a busy machine.
LONGEST_ATTEMPT = 2.5 * CONNECT_PATIENCE


class Neighbours:
    """A healthy broker and a stalled one. The healthy one gets a message each 100 ms."""

    def __init__(self, device, scripted):
        self.device = device
        self.healthy = scripted(HEALTHY_PORT)
        self.stalled = scripted(STALLED_PORT)

    def configure(self, *publications, **attributes):
        self.device.configure(
            brokers=[broker(1), broker(2, Port=STALLED_PORT, **attributes)],
            publications=[publication(1), *publications],
        )

    def run(self, *publications, **attributes):
        self.configure(*publications, **attributes)
        service = self.device.run(*VERBOSE)
        self.wait_flowing()
        return service

    def wait_flowing(self, timeout=10.0):
        came = len(self.healthy.publishes)
        wait_until(lambda: len(self.healthy.publishes) >= came + 3, "messages to the healthy broker", timeout)

    def largest_gap(self, since):
        """Between messages at the healthy broker, from this moment until now."""
        times = [since, *(publish.time for publish in self.healthy.publishes if publish.time > since), time.monotonic()]
        return max(later - earlier for earlier, later in zip(times, times[1:]))

    def assert_flowing_for(self, seconds):
        """As many messages as belong into that time, long before any patience with the stalled broker is at its end."""
        begin, came = time.monotonic(), len(self.healthy.publishes)
        count = came + round(seconds / PERIOD)
        wait_until(lambda: len(self.healthy.publishes) >= count, "messages to the healthy broker", seconds + 20)
        took = self.healthy.publishes[count - 1].time - begin
        assert took < seconds + 2 * LATENESS, took

    def wait_stalled_connections(self, count):
        wait_until(lambda: self.stalled.connections >= count, lambda: f"{count} connections to the stalled broker")


@pytest.fixture
def neighbours(device, scripted):
    return Neighbours(device, scripted)


def on_stalled(identifier=2, **attributes):
    return publication(identifier, CBrokerID=2, **attributes)


def test_reconnecting_to_a_silent_broker_holds_nobody_up(neighbours):
    neighbours.run()
    neighbours.stalled.silent = True
    neighbours.stalled.drop_all()
    neighbours.wait_stalled_connections(2)
    neighbours.assert_flowing_for(5)
    assert neighbours.stalled.connections - neighbours.stalled.closed == 1


def test_retry_of_a_broker_that_refuses_costs_all_the_moment_of_an_attempt(neighbours):
    """One that could not be reached at the start is retried by the thread that sends all periodic publications."""
    neighbours.stalled.refuse = 3
    neighbours.run()
    begin, opened = time.monotonic(), neighbours.stalled.connections
    wait_until(lambda: neighbours.stalled.connections >= opened + 4, "attempts", timeout=20)
    neighbours.assert_flowing_for(2)
    assert neighbours.largest_gap(begin) < LATENESS, neighbours.largest_gap(begin)


@pytest.mark.timeout(120)
def test_retry_of_a_silent_broker_holds_all_up_for_the_time_of_an_attempt(neighbours):
    stalled, healthy = neighbours.stalled, neighbours.healthy
    stalled.hang_up = True
    interval = 5
    neighbours.run(ConnectionInterval=interval)
    stalled.silent = True
    wait_until(
        lambda: stalled.closed < stalled.connections and time.monotonic() - healthy.publishes[-1].time > LATENESS,
        "an attempt that holds all up",
        timeout=interval + 3 * LATENESS,
    )
    sent = len(healthy.publishes)
    wait_until(lambda: stalled.closed == stalled.connections, "the end of the attempt", LONGEST_ATTEMPT)
    ended = time.monotonic()
    # Attempts don't follow each other without a pause.
    wait_until(lambda: len(healthy.publishes) > sent + 10, "messages between two attempts")
    last, following = (publish.time for publish in healthy.publishes[sent - 1 : sent + 1])
    gap, attempt = following - last, ended - last
    assert CONNECT_PATIENCE - LATENESS < gap < attempt + LATENESS, f"a gap of {gap} s, an attempt of {attempt} s"
    stalled.silent = stalled.hang_up = False
    stalled.drop_all()
    neighbours.device.wait_connected(2, LONGEST_ATTEMPT)
    neighbours.assert_flowing_for(1)


@pytest.mark.timeout(90)
def test_broker_that_never_acknowledges_holds_all_up_once(neighbours):
    stalled, requests = neighbours.stalled, neighbours.device.requests
    stalled.acknowledge = False
    neighbours.configure(on_stalled(QOS=1))
    neighbours.device.run(*VERBOSE)
    begin = time.monotonic()
    wait_until(lambda: csvlog.has_message("END rtnValue=-4"), "a failure", ACKNOWLEDGEMENT_PATIENCE + 2 * LATENESS)
    assert 5 < neighbours.largest_gap(begin) < ACKNOWLEDGEMENT_PATIENCE + LATENESS, neighbours.largest_gap(begin)
    neighbours.assert_flowing_for(3)
    assert len(stalled.publishes) == 1
    begin = time.monotonic()
    assert requests.ask(DISCONNECT, 2, timeout=20) == DONE
    assert neighbours.largest_gap(begin) < LATENESS, neighbours.largest_gap(begin)
    # Connected anew it gets messages again.
    stalled.acknowledge = True
    assert requests.ask(CONNECT, 2) == DONE
    wait_until(lambda: len(stalled.publishes) > 3, "acknowledged messages")
    neighbours.assert_flowing_for(1)


def test_slow_acknowledgements_cost_all_as_much_as_they_take(neighbours):
    delay = 0.7
    neighbours.stalled.acknowledgement_delay = delay
    neighbours.run(on_stalled(QOS=1))
    begin = time.monotonic()
    wait_until(lambda: len(neighbours.stalled.publishes) >= 5, "acknowledged messages", 5 * (delay + LATENESS))
    assert neighbours.largest_gap(begin) < delay + LATENESS, neighbours.largest_gap(begin)


GARBAGE = [
    bytes(range(256)),
    b"\xff" * 64,
    b"\x20\x02\x00",  # half an answer
    b"\x30\xff\xff\xff\x7f",  # a message without an end
    b"HTTP/1.1 400 Bad Request\r\n\r\n",
]


@pytest.mark.timeout(120)
def test_garbage_in_place_of_an_answer_holds_nobody_up(neighbours):
    service = neighbours.run()
    for garbage in GARBAGE:
        neighbours.stalled.greeting, neighbours.stalled.silent = garbage, True
        assert_harmless(neighbours)
    assert not service.has_ended()


@pytest.mark.timeout(120)
def test_garbage_behind_the_answer_holds_nobody_up(neighbours):
    service = neighbours.run()
    for garbage in GARBAGE:
        neighbours.stalled.after_connect_answer = garbage
        assert_harmless(neighbours)
    assert not service.has_ended()


def assert_harmless(neighbours):
    """What the stalled broker has been told to do is no disturbance, and the way back from it is found."""
    opened = neighbours.stalled.connections
    neighbours.stalled.drop_all()
    neighbours.wait_stalled_connections(opened + 1)
    neighbours.assert_flowing_for(1)
    heal(neighbours)


def heal(neighbours):
    """The stalled broker is like any other from here on, and the service finds its way back to it."""
    stalled = neighbours.stalled
    stalled.greeting = stalled.after_connect_answer = b""
    stalled.silent = stalled.hang_up_at_once = stalled.hang_up_connected = False
    opened = stalled.connections
    stalled.drop_all()
    neighbours.wait_stalled_connections(opened + 1)
    neighbours.device.wait_connected(2, LONGEST_ATTEMPT)
    neighbours.wait_flowing()


@pytest.mark.parametrize("when", ["hang_up_at_once", "hang_up", "hang_up_connected"])
def test_broker_that_hangs_up_again_and_again_holds_nobody_up(neighbours, when):
    service = neighbours.run()
    threads, files = service.threads(), service.open_files()
    setattr(neighbours.stalled, when, True)
    neighbours.stalled.drop_all()
    neighbours.wait_stalled_connections(2)
    neighbours.assert_flowing_for(4)
    # At most the loop, the one of the loss before, a loss thread, and the connection of the attempt.
    assert service.threads() <= threads + 3
    assert service.open_files() <= files + 1
    setattr(neighbours.stalled, when, False)
    heal(neighbours)
    wait_until(lambda: service.threads() <= threads, lambda: f"{threads} threads; there are {service.threads()}")
    wait_until(lambda: service.open_files() <= files, lambda: f"{files} files; there are {service.open_files()}")


def test_loss_after_each_connect_request_leaves_nothing_behind(neighbours):
    """As fast as the queue gives them, with a loop for each that would sleep for an hour."""
    service = neighbours.run(ConnectionInterval=3600)
    threads, files = service.threads(), service.open_files()
    neighbours.stalled.hang_up_connected = True
    neighbours.stalled.drop_all()
    begin = time.monotonic()
    most_threads = 0
    for _ in range(40):
        assert neighbours.device.requests.ask(CONNECT, 2) in (DONE, BROKER_FAILED)
        most_threads = max(most_threads, service.threads())
    assert neighbours.largest_gap(begin) < LATENESS, neighbours.largest_gap(begin)
    # A loop that a newer loss has taken over from ends within a second.
    losses = len(neighbours.device.block_writes(2))
    assert most_threads <= threads + 12, f"{most_threads} threads, {losses} writes"
    wait_until(lambda: service.threads() <= threads + 1, lambda: f"one loop; there are {service.threads()} threads")
    wait_until(lambda: service.open_files() <= files, lambda: f"{files} files; there are {service.open_files()}")
    neighbours.stalled.hang_up_connected = False
    wait_until(lambda: neighbours.device.requests.ask(CONNECT, 2) == DONE, "the connection")
    holds_for(lambda: neighbours.device.broker(2).connected == 1, "a connection that lasts", 1)


def test_broker_that_stops_reading_is_found_by_the_keep_alive_while_the_socket_takes_more(neighbours):
    neighbours.run(on_stalled(DataType=f"{records.STR8}_4990"), KeepAlive=2)
    begin = time.monotonic()
    neighbours.stalled.reading.clear()
    neighbours.device.wait_code(CONNECTION_LOST, 2, timeout=20)
    assert neighbours.largest_gap(begin) < LATENESS, neighbours.largest_gap(begin)
    neighbours.stalled.reading.set()
    neighbours.device.wait_connected(2)


def run_with_a_flood(neighbours, **attributes):
    """Sends the stalled broker as much as fills all buffers on the way within a second or two.

    That has to be done ahead of the first ping, which is due after a minute: one that is on its way already finds a
    broker out that doesn't answer."""
    large = {"PeriodicInterval": 10, "DataType": f"{records.STR8}_4990"}
    neighbours.run(*(on_stalled(number, **large) for number in range(2, 22)), **attributes)


def test_disconnect_request_frees_all_from_a_broker_that_stops_reading(neighbours):
    """The client library waits for room in the socket without an end, and sends no ping that would find it out."""
    run_with_a_flood(neighbours)
    begin = time.monotonic()
    neighbours.stalled.reading.clear()
    wait_until(lambda: time.monotonic() - neighbours.healthy.publishes[-1].time > 6, "a gap", timeout=30)
    assert neighbours.device.requests.ask(DISCONNECT, 2, timeout=20) == DONE
    neighbours.assert_flowing_for(1)
    assert neighbours.largest_gap(begin) > 6
    assert neighbours.device.broker(2).connected == 0
    neighbours.stalled.reading.set()
    assert neighbours.device.requests.ask(CONNECT, 2) == DONE
    neighbours.wait_flowing()


@pytest.mark.timeout(90)
def test_broker_that_takes_no_more_data_is_given_up(neighbours):
    run_with_a_flood(neighbours, ConnectionInterval=10)  # for so long the loss stands, and nothing is stuck anew
    begin = time.monotonic()
    neighbours.stalled.reading.clear()
    neighbours.device.wait_code(CONNECTION_LOST, 2, timeout=WRITE_PATIENCE + 25)
    neighbours.wait_flowing()
    assert 5 < neighbours.largest_gap(begin) < WRITE_PATIENCE + 2 * LATENESS, neighbours.largest_gap(begin)
    # On the console, since the log's files hold a few seconds of the flood only.
    given_up = r" WARN  \[\d+\] \[\S+\] broker 'broker2' takes no more data: its connection is given up$"
    assert re.search(given_up, STANDARD_OUTPUT.read_text(errors="replace"), re.MULTILINE)
    neighbours.stalled.reading.set()
    neighbours.device.wait_connected(2, timeout=20)
    neighbours.wait_flowing()


@pytest.mark.timeout(90)
def test_pause_waits_for_a_whole_attempt_and_goes_on(neighbours):
    neighbours.run()
    neighbours.stalled.silent = True
    neighbours.stalled.drop_all()
    neighbours.wait_stalled_connections(2)
    opened = neighbours.stalled.connections
    request = neighbours.device.requests.send(PAUSE)
    assert request.wait(LONGEST_ATTEMPT) == DONE
    assert neighbours.stalled.connections == opened  # and not for a second attempt
    assert neighbours.device.status() == records.PAUSED
    ended = "Done reconnecting, State is (2) broker 'broker2'"
    wait_until(lambda: csvlog.has_message(ended), "the end of the loop")
    holds_for(lambda: neighbours.stalled.connections == opened, "no further attempt", 2)
