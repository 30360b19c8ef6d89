"""Sessions that a broker keeps: which subscriptions come back with them, and what was sent meanwhile."""

import pytest

from support import csvlog, scriptedbroker
from support.configuration import broker, subscription
from support.device import VERBOSE
from support.records import CONNECTION_LOST, SUBSCRIPTION_LOST, BrokerStatus
from support.requests import CONNECT, DISCONNECT, DONE, SUBSCRIBE, SUBSCRIBE_ALL, SUBSCRIPTION_FAILED, UNSUBSCRIBE
from support.waiting import wait_until

IN_FORCE = (1, 0)
LOST = (0, SUBSCRIPTION_LOST)
SESSION_KEPT = BrokerStatus(1, 1, 0)
NO_SESSION = BrokerStatus(1, 0, 0)


def keeping(**attributes):
    return broker(CleanSession=0, **attributes)


def reconnect(device, partner, expected=SESSION_KEPT):
    """Cuts the connection and returns when the service has connected again."""
    ended = len(loops_ended())
    partner.drop_all()
    wait_until(lambda: len(loops_ended()) > ended, "the end of the loop")
    assert device.broker() == expected


def loops_ended():
    return [message for message in csvlog.messages("DEBUG") if message.startswith("Done reconnecting, State is (1)")]


def told():
    """The names of the subscriptions that were told of a kept session, in order."""
    ending = "' session established"
    return [message[12:-len(ending)] for message in csvlog.messages("DEBUG") if message.endswith(ending)]


def states(device, count):
    return [device.subscription(n)[:2] for n in range(1, count + 1)]


def run(device, scripted, *entries):
    """Runs the service with these subscriptions and a broker that keeps its session."""
    partner = scripted()
    partner.session_present = True
    device.configure(brokers=[keeping()], subscriptions=entries)
    device.run(*VERBOSE)
    wait_until(lambda: partner.connects, "the connection")
    return partner


def test_all_subscriptions_come_back_without_a_word_to_the_broker(device, scripted):
    partner = run(device, scripted, subscription(1), subscription(2), subscription(3))
    reconnect(device, partner)
    assert not partner.connects[1].clean_session
    assert states(device, 3) == [IN_FORCE] * 3
    assert told() == ["subscription1", "subscription2", "subscription3"]
    assert partner.packets.count(scriptedbroker.SUBSCRIBE) == 3
    partner.publish("plc/command/2", b"\2\0\0\0")
    device.wait_received(b"\2\0\0\0", 2)


def test_subscription_behind_one_that_was_not_in_force_stays_lost(device, scripted):
    partner = run(device, scripted, subscription(1, SubscribeAtBoot=0), subscription(2))
    reconnect(device, partner)
    assert states(device, 2) == [(0, 0), LOST]
    assert told() == []
    # The broker delivers for it all the same, and nobody takes the message.
    partner.publish("plc/command/2", b"\2\0\0\0")
    wait_until(lambda: csvlog.has_message("does not belong to any topic"), "the message to be refused")
    assert device.data_writes(2) == []
    # Asking for all brings it back.
    assert device.requests.ask(SUBSCRIBE_ALL, 1) == DONE
    assert states(device, 2) == [IN_FORCE] * 2


def test_subscription_ahead_of_one_that_was_not_in_force_comes_back(device, scripted):
    partner = run(device, scripted, subscription(1), subscription(2, SubscribeAtBoot=0), subscription(3))
    reconnect(device, partner)
    assert states(device, 3) == [IN_FORCE, (0, 0), LOST]
    assert told() == ["subscription1"]


def test_subscribing_all_after_a_kept_session_answers_that_some_are_in_force(device, scripted):
    partner = run(device, scripted, subscription(1), subscription(2, SubscribeAtBoot=0), subscription(3))
    reconnect(device, partner)
    assert device.requests.ask(SUBSCRIBE_ALL, 1) == SUBSCRIPTION_FAILED
    assert states(device, 3) == [(1, -14), IN_FORCE, IN_FORCE]


def test_every_loss_adds_to_the_list(device, scripted):
    partner = run(device, scripted, subscription(1), subscription(2))
    for _ in range(2):
        reconnect(device, partner)
    added = [message for message in csvlog.messages("DEBUG") if "to SubDuringCLIdxList" in message]
    assert len(added) == 4
    # What the second loss added stands behind all callers.
    assert told() == ["subscription1", "subscription2"] * 2
    assert states(device, 2) == [IN_FORCE] * 2


def test_first_loss_decides_who_comes_back_after_the_second(device, scripted):
    """The first subscription wasn't in force at the second loss, but at the first one, and those stay in front."""
    partner = run(device, scripted, subscription(1), subscription(2))
    reconnect(device, partner)
    assert device.requests.ask(UNSUBSCRIBE, 1) == DONE
    reconnect(device, partner)
    assert states(device, 2) == [IN_FORCE] * 2


def test_first_loss_keeps_others_from_coming_back_after_the_second(device, scripted):
    """Both were in force at the second loss, but what the first one left in front shifts them."""
    partner = run(device, scripted, subscription(1, SubscribeAtBoot=0), subscription(2))
    reconnect(device, partner)
    assert device.requests.ask(SUBSCRIBE_ALL, 1) == DONE
    reconnect(device, partner)
    assert states(device, 2) == [LOST] * 2
    assert told() == []


def test_same_topic_comes_back_in_another_place(device, scripted):
    """Topics are compared, not subscriptions: the first one wasn't in force at the loss, and has the second's topic."""
    partner = run(
        device, scripted, subscription(1, Topic="same", SubscribeAtBoot=0), subscription(2, Topic="same")
    )
    reconnect(device, partner)
    assert told() == ["subscription1"]
    assert states(device, 2) == [IN_FORCE, LOST]


@pytest.mark.parametrize("clean", [0, 1], ids=["kept by us", "clean"])
def test_session_that_the_broker_has_not_kept_brings_nothing_back(device, scripted, clean):
    partner = scripted()
    device.configure(brokers=[broker(CleanSession=clean)], subscriptions=[subscription()])
    device.run(*VERBOSE)
    reconnect(device, partner, NO_SESSION)
    assert device.subscription()[:2] == LOST
    assert told() == []
    assert device.requests.ask(SUBSCRIBE, 1) == DONE


def test_session_ends_in_the_block_with_the_connection(device, scripted):
    partner = run(device, scripted, subscription(1))
    assert device.broker() == SESSION_KEPT
    reconnect(device, partner)
    blocks = device.broker_history()
    assert blocks[-2:] == [BrokerStatus(0, 0, CONNECTION_LOST), SESSION_KEPT]
    assert device.requests.ask(DISCONNECT, 1) == DONE
    assert device.broker() == BrokerStatus(0, 0, 0)


def test_connect_request_after_a_loss_brings_the_subscriptions_back(device, scripted):
    partner = scripted()
    partner.session_present = True
    device.configure(brokers=[keeping(ConnectionInterval=0)], subscriptions=[subscription()])
    device.run(*VERBOSE)
    partner.drop_all()
    device.wait_code(CONNECTION_LOST)
    assert device.requests.ask(CONNECT, 1) == DONE
    assert states(device, 1) == [IN_FORCE]


def passed_by():
    return len([message for message in csvlog.messages("DEBUG") if "does not belong to any topic" in message])


@pytest.mark.timeout(120)
@pytest.mark.parametrize("qos", [1, 2])
def test_messages_of_the_time_between_arrive(device, mosquitto, send, qos):
    partner = mosquitto(persistent=True)
    device.configure(brokers=[keeping()], subscriptions=[subscription(QOS=qos)])
    device.run(*VERBOSE)
    sender = send(partner)
    sender.publish("plc/command/1", b"\0\0\0\0", qos)
    wait_until(lambda: device.data_writes(), "a message before the loss")
    sender.close()  # it would come back by itself and push the next one out, which has its name
    last_packet = f"Received {'PUBACK' if qos == 1 else 'PUBCOMP'} from plc-1 "
    # The service holds messages back for 100 ms at most until its subscriptions know of the session. Where the machine
    # holds the connecting thread up for longer they pass by, with a line each, and there is another round.
    for first in (1, 21, 41):
        wait_until(lambda: partner.log().count(last_packet) >= first, "the broker to know what has arrived")
        arrived, missed = len(device.data_writes()), passed_by()
        # The broker comes back while the link keeps the service away.
        device.tags.set_link(False, False)
        partner.stop()
        device.wait_code(-11)
        partner.start()
        sender = send(partner)
        for number in range(first, first + 20):
            sender.publish("plc/command/1", number.to_bytes(4, "little"), qos)
        sender.close()
        assert states(device, 1) == [LOST]
        device.tags.set_link()
        wait_until(lambda: len(device.data_writes()) - arrived + passed_by() - missed >= 20, "all messages", timeout=20)
        wait_until(lambda: device.broker() == SESSION_KEPT, lambda: f"the session; it stands at {device.broker()}")
        if passed_by() == missed:
            break
    assert [write.data[0] for write in device.data_writes()[arrived:]] == list(range(first, first + 20))
    assert states(device, 1) == [IN_FORCE]
    assert device.statistics().received == len(device.data_writes())
    # Nobody had to subscribe.
    assert partner.log().count("Received SUBSCRIBE from plc-1") == 1


def test_lines_of_a_kept_session(device, scripted):
    run(device, scripted, subscription(1))
    rows = [(row.severity, row.message) for row in csvlog.rows() if row.function.startswith("ClientBroker::")]
    line = (
        "CONNECT by cBroker 'broker1' endded with (0). Stats are (Connected(1) | ReturnCode(0) | SessionPresent(1)). "
        "returned.sessionPresent is (1)"
    )
    assert ("DEBUG", line) in rows[rows.index(("DEBUG", "FIRED")) :]
