"""Requests on connections and subscriptions: what each does, what its status tag goes through, what it leaves alone."""

import signal
import time

import pytest

from support import csvlog, requests, scriptedbroker
from support.configuration import broker, publication, subscription
from support.device import TEARDOWN_SECONDS, VERBOSE, died_of
from support.records import NOT_CONNECTED, BrokerStatus, SubscriptionStatus
from support.requests import (
    BROKER_FAILED,
    CONNECT,
    DISCONNECT,
    DONE,
    IS_PAUSED,
    ON_ENTITIES,
    PAUSE,
    SUBSCRIBE,
    SUBSCRIBE_ALL,
    SUBSCRIPTION_FAILED,
    UNKNOWN_ID,
    UNSUBSCRIBE,
    UNSUBSCRIBE_ALL,
    record,
)
from support.waiting import wait_until

NOT_SUBSCRIBED, ALREADY_SUBSCRIBED = -13, -14
ALREADY_CONNECTED, BROKER_NOT_CONNECTED = -11, -12
REFUSED = -128  # 0x80 in the broker's answer

NEVER_SUBSCRIBED = SubscriptionStatus(0, 0, 0, 0, "", 0, 0)
SUBSCRIBED = NEVER_SUBSCRIBED._replace(subscribed=1)


def on_request_only(identifier=1, **attributes):
    return broker(identifier, AutoConnect=0, **attributes)


def later(identifier, **attributes):
    """A subscription that is made on request."""
    return subscription(identifier, SubscribeAtBoot=0, **attributes)


def topics(packets):
    """Of a scripted broker's subscribes or unsubscribes."""
    flat = [topic for packet in packets for topic in packet.topics]
    return [topic if isinstance(topic, str) else topic[0] for topic in flat]


def handler_lines():
    """The lines with which a request begins and ends, as (function, message)."""
    rows = [row for row in csvlog.rows() if row.severity == "DEBUG"]
    return [(row.function.rpartition("::")[2], row.message) for row in rows if " function (" in row.message]


def test_unknown_id(device):
    device.configure(brokers=[on_request_only()], subscriptions=[later(2)])
    device.run(*VERBOSE)
    # The other kind of entity has these IDs; an ID has 16 bits and no sign.
    for opcode in ON_ENTITIES:
        foreign = 1 if opcode in (SUBSCRIBE, UNSUBSCRIBE) else 2
        for identifier in (0, foreign, 9999, 65535):
            assert device.requests.ask(opcode, identifier) == UNKNOWN_ID, (opcode, identifier)
    assert device.stray_writes() == []


def test_lines_of_each_request(device):
    device.configure(brokers=[on_request_only()])
    device.run(*VERBOSE)
    for opcode in ON_ENTITIES:
        device.requests.ask(opcode, 65535 - opcode)
    wait_until(lambda: len(handler_lines()) == 12, lambda: str(handler_lines()))
    functions = {
        SUBSCRIBE: "HandleSubscribeToTopic",
        SUBSCRIBE_ALL: "HandleSubscribeAll",
        UNSUBSCRIBE: "HandleUnSubscribeToTopic",
        UNSUBSCRIBE_ALL: "HandleUnSubscribeAll",
        CONNECT: "HandleConnectClientBroker",
        DISCONNECT: "HandleDisConnectClientBroker",
    }
    assert handler_lines() == [
        line
        for opcode, function in functions.items()
        for line in [
            (function, f"Enter function (ID={65535 - opcode})"),
            (function, "End function (rtnstatus is -2)"),
        ]
    ]
    # The status tag's line tells the position in tag memory.
    position = requests.status_position(device.requests.sent[0].status_address)
    assert csvlog.has_message(f"Wrote stauts (-2) to address ({position}) sizeof (1)", severity="DEBUG")


def test_paused_service_refuses_before_it_looks_at_the_id(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription(1)])
    device.run()
    assert device.requests.ask(PAUSE) == DONE
    wait_until(lambda: partner.closed == 1, "the end of the connection")
    packets, writes = list(partner.packets), len(device.record_writes() + device.broker_history())
    sent = [device.requests.send(opcode, number) for opcode in ON_ENTITIES for number in (1, 9999)]
    assert [request.wait() for request in sent] == [IS_PAUSED] * 12
    assert (partner.connections, partner.packets) == (1, packets)
    assert len(device.record_writes() + device.broker_history()) == writes


def test_connect_and_disconnect(device, scripted):
    partner = scripted()
    device.configure(brokers=[on_request_only()])
    device.run()
    assert device.requests.ask(CONNECT, 1) == DONE
    assert device.broker() == BrokerStatus(1, 0, 0)
    assert device.requests.ask(CONNECT, 1) == BROKER_FAILED
    assert device.broker() == BrokerStatus(1, 0, ALREADY_CONNECTED)
    assert device.requests.ask(DISCONNECT, 1) == DONE
    assert device.broker() == BrokerStatus(0, 0, 0)
    assert device.requests.ask(DISCONNECT, 1) == BROKER_FAILED
    assert device.broker() == BrokerStatus(0, 0, BROKER_NOT_CONNECTED)
    assert device.requests.ask(CONNECT, 1) == DONE
    assert device.broker() == BrokerStatus(1, 0, 0)
    wait_until(lambda: partner.disconnects == 1, "the goodbye")
    assert len(partner.connects) == 2


def test_record_stands_between_the_two_values_of_the_status_tag(device, scripted):
    scripted()
    device.configure(brokers=[on_request_only()], subscriptions=[later(1)])
    device.run()
    for opcode in (CONNECT, SUBSCRIBE, UNSUBSCRIBE, SUBSCRIBE_ALL, DISCONNECT):
        since = device.tags.writes_made()
        request = device.requests.send(opcode, 1)
        assert request.wait() == DONE
        first, last = (write.number for write in request.writes())
        record = device.record_writes if opcode in (SUBSCRIBE, UNSUBSCRIBE, SUBSCRIBE_ALL) else device.block_writes
        assert [first < write.number < last for write in record(since=since)] == [True], opcode


@pytest.mark.parametrize("reason", ["refused", "nobody there", "no link"])
def test_connect_that_fails_is_tried_once(device, scripted, reason):
    partner = scripted()
    partner.refuse = 5
    device.tags.set_link(reason != "no link", reason != "no link")
    device.configure(brokers=[on_request_only(Port=9 if reason == "nobody there" else 1883)])
    device.run()
    assert device.requests.ask(CONNECT, 1) == BROKER_FAILED
    code = {"refused": 5, "nobody there": -1, "no link": -11}[reason]
    assert device.broker_history()[-2:] == [BrokerStatus(0, 0, 0), BrokerStatus(0, 0, code)]
    # The library tries both versions of the protocol.
    assert len(partner.connects) == (2 if reason == "refused" else 0)


def test_disconnect_takes_leave_of_every_subscription_and_keeps_their_results(device, scripted):
    partner = scripted()
    partner.refused_filters = ("plc/command/2",)
    device.configure(
        brokers=[broker(1), broker(2, Port=9, AutoConnect=0)],
        subscriptions=[subscription(1), subscription(2), later(3), later(4, CBrokerID=2)],
        publications=[publication(PeriodicInterval=-1)],
    )
    device.run()
    assert [device.subscription(n).code for n in (1, 2, 3)] == [0, REFUSED, 0]
    writes = device.tags.writes_made()
    assert device.requests.ask(DISCONNECT, 1) == DONE
    assert topics(partner.unsubscribes) == [f"plc/command/{n}" for n in (1, 2, 3)]
    wait_until(lambda: partner.disconnects == 1, "the goodbye")  # on its way when the request is answered
    assert partner.packets[-4:] == [scriptedbroker.UNSUBSCRIBE] * 3 + [scriptedbroker.DISCONNECT]
    assert [device.subscription(n).subscribed for n in (1, 2, 3)] == [0, 0, 0]
    assert [device.subscription(n).code for n in (1, 2, 3)] == [0, REFUSED, 0]
    # Only the one that was subscribed has changed.
    assert [len(device.record_writes(n, since=writes)) for n in (1, 2, 3, 4)] == [1, 0, 0, 0]
    assert device.statistics().dropped == 0


def test_orderly_disconnect_is_final(device, scripted):
    partner = scripted()
    device.configure()
    device.run()
    assert device.requests.ask(DISCONNECT, 1) == DONE
    blocks = len(device.broker_history())
    # An interval and a half later there has been no attempt.
    deadline = time.monotonic() + 1.5
    wait_until(lambda: time.monotonic() > deadline, "the interval to pass")
    assert (partner.connections, len(device.broker_history())) == (1, blocks)


def test_subscribe_and_unsubscribe(device, mosquitto, send):
    partner = mosquitto()
    device.configure(subscriptions=[later(1, Topic="a/+")])
    device.run()
    sender = send(partner)
    assert device.requests.ask(UNSUBSCRIBE, 1) == SUBSCRIPTION_FAILED
    assert device.subscription() == NEVER_SUBSCRIBED._replace(code=NOT_SUBSCRIBED)
    assert device.requests.ask(SUBSCRIBE, 1) == DONE
    assert device.subscription() == SUBSCRIBED
    sender.publish("a/b", b"\1\0\0\0")
    device.wait_received(b"\1\0\0\0")
    assert device.requests.ask(SUBSCRIBE, 1) == SUBSCRIPTION_FAILED
    assert device.subscription()[:2] == (1, ALREADY_SUBSCRIBED)
    assert device.requests.ask(UNSUBSCRIBE, 1) == DONE
    assert device.subscription()[:2] == (0, 0)
    assert device.requests.ask(SUBSCRIBE, 1) == DONE
    sender.publish("a/c", b"\2\0\0\0")
    device.wait_received(b"\2\0\0\0")


def test_subscribe_that_the_broker_refuses(device, scripted):
    partner = scripted()
    partner.grant = 0x80
    device.configure(subscriptions=[later(1)])
    device.run()
    assert device.requests.ask(SUBSCRIBE, 1) == SUBSCRIPTION_FAILED
    assert device.subscription() == NEVER_SUBSCRIBED._replace(code=REFUSED)


def test_without_a_connection_subscriptions_are_refused_and_tell_why(device):
    device.configure(brokers=[on_request_only()], subscriptions=[later(n) for n in range(1, 5)])
    device.run()
    assert device.requests.ask(SUBSCRIBE, 1) == SUBSCRIPTION_FAILED
    assert [device.subscription(n).code for n in (1, 2, 3)] == [NOT_CONNECTED, 0, 0]
    assert device.requests.ask(UNSUBSCRIBE, 2) == SUBSCRIPTION_FAILED
    assert [device.subscription(n).code for n in (1, 2, 3)] == [NOT_CONNECTED, NOT_CONNECTED, 0]
    assert device.requests.ask(SUBSCRIBE_ALL, 1) == SUBSCRIPTION_FAILED
    assert [device.subscription(n).code for n in (1, 2, 3, 4)] == [NOT_CONNECTED] * 4


def test_requests_for_all_subscriptions_of_a_broker(device, scripted):
    first, second = scripted(), scripted(1884)
    device.configure(
        brokers=[broker(1), broker(2, Port=1884)],
        subscriptions=[later(1), later(2, CBrokerID=2), later(3, IsBuffered=1), subscription(4), later(5)],
    )
    device.run()
    assert device.requests.ask(UNSUBSCRIBE, 4) == DONE
    assert device.requests.ask(SUBSCRIBE_ALL, 1) == DONE
    assert topics(first.subscribes) == [f"plc/command/{n}" for n in (4, 1, 3, 4, 5)]
    assert [device.subscription(n).subscribed for n in range(1, 6)] == [1, 0, 1, 1, 1]
    assert device.requests.ask(SUBSCRIBE_ALL, 1) == SUBSCRIPTION_FAILED
    assert [device.subscription(n)[:2] for n in (1, 3, 4, 5)] == [(1, ALREADY_SUBSCRIBED)] * 4
    assert device.requests.ask(UNSUBSCRIBE_ALL, 1) == DONE
    assert topics(first.unsubscribes) == [f"plc/command/{n}" for n in (4, 1, 3, 4, 5)]
    assert [device.subscription(n)[:2] for n in (1, 3, 4, 5)] == [(0, 0)] * 4
    assert device.requests.ask(UNSUBSCRIBE_ALL, 1) == SUBSCRIPTION_FAILED
    assert [device.subscription(n)[:2] for n in (1, 3, 4, 5)] == [(0, NOT_SUBSCRIBED)] * 4
    assert (second.subscribes, second.unsubscribes) == ([], [])
    assert device.subscription(2) == NEVER_SUBSCRIBED


def test_one_refusal_leaves_the_other_subscriptions_of_a_request_for_all(device, scripted):
    partner = scripted()
    partner.refused_filters = ("plc/command/2",)
    device.configure(subscriptions=[later(n) for n in (1, 2, 3)])
    device.run()
    assert device.requests.ask(SUBSCRIBE_ALL, 1) == SUBSCRIPTION_FAILED
    assert [device.subscription(n)[:2] for n in (1, 2, 3)] == [(1, 0), (0, REFUSED), (1, 0)]
    assert device.requests.ask(UNSUBSCRIBE_ALL, 1) == SUBSCRIPTION_FAILED
    assert [device.subscription(n)[:2] for n in (1, 2, 3)] == [(0, 0), (0, NOT_SUBSCRIBED), (0, 0)]


def test_all_of_no_subscriptions_is_a_success(device):
    device.configure(brokers=[on_request_only(1), on_request_only(2)], subscriptions=[later(1, CBrokerID=2)])
    device.run()
    assert device.requests.ask(SUBSCRIBE_ALL, 1) == DONE
    assert device.requests.ask(UNSUBSCRIBE_ALL, 1) == DONE
    assert device.subscription(1) == NEVER_SUBSCRIBED


def test_first_of_two_entities_with_one_id_is_meant(device, scripted):
    first, second = scripted(), scripted(1884)
    device.configure(
        brokers=[on_request_only(1), on_request_only(1, Port=1884, BrokerAddr=0x1800)],
        subscriptions=[later(1, Topic="a"), later(1, Topic="b", SubAddr=0xF80000)],
    )
    device.run()
    assert device.requests.ask(CONNECT, 1) == DONE
    assert device.requests.ask(SUBSCRIBE, 1) == DONE
    assert (topics(first.subscribes), second.connections) == (["a"], 0)


def test_connect_to_a_silent_broker_holds_up_requests_and_not_publications(device, mosquitto, scripted):
    mosquitto()
    silent = scripted(1884)
    silent.silent = True
    device.configure(
        brokers=[broker(1), on_request_only(2, Port=1884)], publications=[publication(PeriodicInterval=20)]
    )
    device.run()
    request, after = device.requests.send(CONNECT, 2), device.requests.send(CONNECT, 9999)
    wait_until(lambda: silent.connections, "the attempt")
    sent = device.statistics().sent
    wait_until(lambda: device.statistics().sent > sent + 40, "publications")
    assert request.answers() == [2]
    assert after.answers() == []
    silent.hang_up, silent.silent = True, False
    silent.drop_all()
    assert request.wait() == BROKER_FAILED
    assert after.wait() == UNKNOWN_ID


def test_signal_while_a_request_connects_to_a_silent_broker(device, scripted):
    silent = scripted()
    silent.silent = True
    device.configure(brokers=[on_request_only()])
    service = device.run()
    request = device.requests.send(CONNECT, 1)
    wait_until(lambda: silent.connections, "the attempt")
    assert died_of(service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert request.answers() == [2]
    assert device.tags.registrations() == {}


def test_signal_under_a_load_of_requests(device, mosquitto):
    mosquitto()
    device.configure(subscriptions=[later(1)], publications=[publication(PeriodicInterval=20)])
    service = device.run()
    round_trip = (SUBSCRIBE, UNSUBSCRIBE, DISCONNECT, CONNECT)
    sent = [device.requests.send(opcode, 1) for opcode in round_trip + round_trip]
    sent[0].wait()
    assert died_of(service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
