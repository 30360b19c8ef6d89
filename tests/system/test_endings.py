"""Termination signals while connections are lost, sought, stalled or flooded: the service dies of the signal, soon."""

import itertools
import signal
import threading

import pytest

from support import records
from support.configuration import broker, publication, subscription
from support.device import TEARDOWN_SECONDS, VERBOSE, died_of
from support.requests import CONNECT, DISCONNECT, SUBSCRIBE
from support.scriptedbroker import publish_packet
from support.waiting import wait_until


def assert_dies(device):
    """By the signal, and with its tags unregistered."""
    assert died_of(device.service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.tags.registrations() == {}


@pytest.mark.parametrize("interval", [1, 3600])
def test_signal_while_reconnect_loops_sleep(device, scripted, interval):
    partners = [scripted(port) for port in range(1883, 1893)]
    device.configure(
        brokers=[broker(n, Port=1882 + n, ConnectionInterval=interval) for n in range(1, 11)],
        publications=[publication(n, CBrokerID=n, PeriodicInterval=20) for n in range(1, 11)],
        subscriptions=[subscription(n, CBrokerID=n) for n in range(1, 11)],
    )
    device.run()
    for partner in partners:
        partner.drop_all()
    wait_until(lambda: device.statistics().dropped == 10, "the losses")
    assert_dies(device)


def test_signal_while_a_reconnect_loop_is_in_an_attempt(device, scripted):
    partner = scripted()
    device.configure(publications=[publication(PeriodicInterval=20)])
    device.run()
    partner.silent = True
    partner.drop_all()
    wait_until(lambda: partner.connections == 2, "the attempt")
    assert_dies(device)


def test_signal_while_several_loops_wait_for_one_attempt(device, scripted):
    """The client library connects one broker after the other."""
    partners = [scripted(port) for port in (1883, 1884, 1885)]
    device.configure(brokers=[broker(n, Port=1882 + n) for n in (1, 2, 3)])
    device.run(*VERBOSE)
    for partner in partners:
        partner.silent = True
        partner.drop_all()
    wait_until(lambda: any(partner.connections == 2 for partner in partners), "an attempt")
    lost_for_long = threading.Event()
    threading.Timer(1.5, lost_for_long.set).start()
    wait_until(lost_for_long.is_set, "all loops to be in their attempts")
    assert_dies(device)


def test_signal_while_the_main_thread_retries_a_silent_broker(device, scripted):
    partner = scripted()
    partner.hang_up = True
    device.configure(publications=[publication(PeriodicInterval=20)])
    device.run()
    opened = partner.connections
    partner.silent = True
    wait_until(lambda: partner.connections > opened, "the attempt")
    assert_dies(device)


def test_signal_while_a_broker_hangs_up_again_and_again(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription()], publications=[publication(PeriodicInterval=10)])
    device.run()
    partner.hang_up_connected = True
    partner.drop_all()
    for _ in range(10):
        device.requests.ask(CONNECT, 1)
    device.requests.send(CONNECT, 1)
    assert_dies(device)


@pytest.mark.parametrize("payload", [4, 100_000])
def test_signal_while_many_messages_arrive(device, scripted, payload):
    partner = scripted()
    device.configure(
        subscriptions=[subscription(n, Topic="plc/#") for n in range(1, 51)],
        publications=[publication(PeriodicInterval=20)],
    )
    device.run()
    flood = publish_packet("plc/flood", bytes(payload))
    threading.Thread(target=pour, args=(partner, flood), daemon=True).start()
    wait_until(lambda: device.statistics().received > 2000, "messages")
    assert_dies(device)


def pour(partner, data):
    """Sends without an end, as fast as they are taken."""
    try:
        for _ in itertools.count():
            partner.send_all(data)
    except OSError:
        pass


def test_signal_while_a_publication_waits_for_its_acknowledgement(device, scripted):
    partner = scripted()
    partner.acknowledge = False
    device.configure(publications=[publication(QOS=1, PeriodicInterval=20)])
    device.run()
    wait_until(lambda: partner.publishes, "the message")
    assert_dies(device)


def test_signal_while_a_publication_waits_for_a_broker_that_does_not_read(device, scripted):
    partner = scripted()
    large = {"PeriodicInterval": 10, "DataType": f"{records.STR8}_4990"}
    device.configure(publications=[publication(number, **large) for number in range(1, 21)])
    device.run()
    wait_until(lambda: partner.publishes, "publications")
    partner.reading.clear()
    looks = []

    def is_stuck():
        looks.append(device.statistics().sent)
        return looks[-50:].count(looks[-1]) == 50

    wait_until(is_stuck, "the publications to be stuck", timeout=30)
    assert_dies(device)


def test_signal_while_a_request_waits_for_the_answer_to_a_subscribe(device, scripted):
    partner = scripted()
    partner.answer_subscribe = False
    device.configure(subscriptions=[subscription(SubscribeAtBoot=0)], publications=[publication(PeriodicInterval=20)])
    device.run()
    device.requests.send(SUBSCRIBE, 1)
    wait_until(lambda: partner.subscribes, "the request at the broker")
    assert_dies(device)


def test_signal_while_a_disconnect_waits_for_messages_in_flight(device, scripted):
    partner = scripted()
    partner.acknowledge = False
    device.configure(publications=[publication(QOS=1, PeriodicInterval=20)])
    device.run()
    wait_until(lambda: partner.publishes, "the message")
    device.requests.send(DISCONNECT, 1).wait_begun()
    assert_dies(device)
