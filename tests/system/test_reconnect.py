"""Lost connections: what is told, when the service connects again, what ends its attempts, and how long they live."""

import time

from support import csvlog
from support.configuration import STATISTICS_AT, broker, broker_at, publication, subscription, subscription_at
from support.device import VERBOSE
from support.records import CONNECT_REFUSED, CONNECTION_LOST, RUNNING, SUBSCRIPTION_LOST, BrokerStatus, Statistics
from support.requests import BROKER_FAILED, CONNECT, DISCONNECT, DONE, PAUSE, START
from support.waiting import holds_for, wait_until

LOST = BrokerStatus(0, 0, CONNECTION_LOST)
CONNECTED = BrokerStatus(1, 0, 0)
LINK_DOWN = BrokerStatus(0, 0, CONNECT_REFUSED)
HOUR = 3600

# What a busy machine may add to a sleep of the service.
LATENESS = 5.0

LOOP_BEGINS = "FIRED ('broker1')"
NOTHING_LEFT_TO_DO = "Done reconnecting, State is (1) broker 'broker1'"
ENDED_BY_PAUSE = "Done reconnecting, State is (2) broker 'broker1'"


def lose(device, partner, identifier=1):
    """Cuts the connection and returns the moment, once the service has told of it."""
    written = device.tags.writes_made()
    moment = time.monotonic()
    partner.drop_all()
    wait_until(
        lambda: LOST in statuses(device, identifier, written), lambda: f"the loss; {device.broker(identifier)} stands"
    )
    return moment


def statuses(device, identifier=1, since=0):
    return [BrokerStatus.decode(write.data) for write in device.block_writes(identifier, since)]


def wait_ended(line, count=1, timeout=10.0):
    """Waits for the last line of a loop."""
    wait_until(lambda: csvlog.messages("DEBUG").count(line) >= count, lambda: f"{count} times '{line}'", timeout)


def attempts(partner):
    """The moments of all attempts. One that fails is made in two versions of the protocol."""
    return [connect.time for connect in partner.connects if connect.level == 4]


def gaps(moments):
    return [later - earlier for earlier, later in zip(moments, moments[1:])]


def assert_one_second_apart(moments, least):
    """A machine that is held up makes some gaps longer, and none shorter."""
    found = gaps(moments)
    assert all(gap >= least for gap in found) and min(found) < 2, found


def run_with_three_subscriptions(device, scripted):
    """The second one isn't in force."""
    partner = scripted()
    device.configure(
        brokers=[broker(ConnectionInterval=HOUR)],
        subscriptions=[subscription(1), subscription(2, SubscribeAtBoot=0), subscription(3)],
    )
    device.run(*VERBOSE)
    return partner


def test_loss_is_told_to_the_subscriptions_then_the_broker_then_the_statistics(device, scripted):
    partner = run_with_three_subscriptions(device, scripted)
    written = device.tags.writes_made()
    partner.drop_all()
    wait_until(lambda: device.statistics().dropped == 3, "the statistics")
    # A subscription that was in force writes its record itself, and the broker writes each one once more.
    expected = [
        *[(subscription_at(1), b"\0\xf1\0\0")] * 2,
        (subscription_at(2), b"\0\0\0\0"),
        *[(subscription_at(3), b"\0\xf1\0\0")] * 2,
        (broker_at(1), b"\0\0\xf3\0"),
        *[(STATISTICS_AT, Statistics(0, 0, 0, dropped)) for dropped in (1, 2, 3)],
    ]
    found = [
        (write.position, Statistics.decode(write.data) if write.position == STATISTICS_AT else write.data[:4])
        for write in device.tags.journal(since=written)
    ]
    assert found == expected


def test_loss_is_logged_with_the_subscriptions_that_were_in_force(device, scripted):
    partner = run_with_three_subscriptions(device, scripted)
    lose(device, partner)
    wait_until(lambda: csvlog.has_message(LOOP_BEGINS), "the loop to begin")
    rows = [(row.severity, row.message) for row in csvlog.rows()]
    begin = rows.index(("INFO", "ClientBroker 'broker1' lost is connection"))
    end = rows.index(("DEBUG", LOOP_BEGINS))
    told = [message for _, message in rows[begin:end] if "SubDuringCLIdxList" in message]
    assert told == [f"Added caller subscription{n}' idx ({n - 1}) to SubDuringCLIdxList" for n in (1, 3)]
    assert not csvlog.has_message("Done reconnecting")


def test_service_connects_again_after_its_interval(device, scripted):
    partner = scripted()
    device.configure(
        brokers=[broker(ConnectionInterval=2)], publications=[publication()], subscriptions=[subscription()]
    )
    device.run(*VERBOSE)
    lost = lose(device, partner)
    wait_ended(NOTHING_LEFT_TO_DO)
    assert 1.9 <= partner.connects[1].time - lost < 2 + LATENESS
    assert statuses(device)[-2:] == [LOST, CONNECTED]
    # Publications go on by themselves, subscriptions don't.
    sent = len(partner.publishes)
    wait_until(lambda: len(partner.publishes) >= sent + 5, "publications")
    assert len(partner.subscribes) == 1
    assert device.subscription()[:2] == (0, SUBSCRIPTION_LOST)
    assert len(partner.connects) == 2
    assert csvlog.messages("DEBUG").count(LOOP_BEGINS) == 1


def test_attempts_follow_each_other_at_the_interval(device, scripted):
    partner = scripted()
    device.configure()
    device.run(*VERBOSE)
    partner.hang_up = True
    lose(device, partner)
    wait_until(lambda: len(attempts(partner)) >= 5, "four attempts", timeout=15)
    assert_one_second_apart(attempts(partner)[1:], 1)
    partner.hang_up = False
    wait_ended(NOTHING_LEFT_TO_DO)
    assert device.broker() == CONNECTED


def test_restarted_broker_gets_its_publications_again(device, mosquitto, listen):
    partner = mosquitto()
    device.configure(publications=[publication()])
    device.run(*VERBOSE)
    device.wait_connected()
    for count in (1, 2):
        partner.stop()
        device.wait_code(-1)
        partner.start()
        device.wait_connected()
        wait_ended(NOTHING_LEFT_TO_DO, count)
        listen(partner).wait_for("plc/data/1", 3)


def test_interval_0_waits_for_a_request(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(ConnectionInterval=0)])
    device.run(*VERBOSE)
    lose(device, partner)
    wait_ended(NOTHING_LEFT_TO_DO)
    holds_for(lambda: (partner.connections, device.broker()) == (1, LOST), "a lost connection that stays lost", 2.5)
    assert device.requests.ask(CONNECT, 1) == DONE
    assert device.broker() == CONNECTED
    # The next loss is told like the first.
    lose(device, partner)
    wait_ended(NOTHING_LEFT_TO_DO, 2)


def test_link_that_is_down_is_looked_at_once_an_interval(device, scripted):
    partner = scripted()
    device.configure()
    device.run(*VERBOSE)
    device.tags.set_link(False, False)
    lose(device, partner)
    wait_until(lambda: statuses(device).count(LINK_DOWN) >= 3, "three attempts")
    moments = [write.time for write in device.block_writes() if BrokerStatus.decode(write.data) == LINK_DOWN]
    assert_one_second_apart(moments, 0.95)
    assert partner.connections == 1
    device.tags.set_link(False, True)
    wait_ended(NOTHING_LEFT_TO_DO)
    assert device.broker() == CONNECTED
    assert partner.connections == 2


def test_connect_request_ends_the_attempts(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(ConnectionInterval=8)])
    device.run(*VERBOSE)
    lose(device, partner)
    assert device.requests.ask(CONNECT, 1) == DONE
    assert device.broker() == CONNECTED
    # The loop is asleep meanwhile: its last attempt finds the connection, and says so.
    wait_ended(NOTHING_LEFT_TO_DO, timeout=20)
    assert statuses(device)[-3:] == [LOST, CONNECTED, BrokerStatus(1, 0, CONNECT_REFUSED)]
    assert partner.connections == 2
    assert device.requests.ask(DISCONNECT, 1) == DONE


def test_disconnect_request_does_not_end_the_attempts(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(ConnectionInterval=8)])
    device.run(*VERBOSE)
    lose(device, partner)
    assert device.requests.ask(DISCONNECT, 1) == BROKER_FAILED
    assert device.broker() == BrokerStatus(0, 0, -12)
    wait_ended(NOTHING_LEFT_TO_DO, timeout=20)
    assert device.broker() == CONNECTED
    assert partner.connections == 2


def test_disconnect_request_is_not_followed_by_attempts(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription()])
    device.run(*VERBOSE)
    assert device.requests.ask(DISCONNECT, 1) == DONE
    wait_until(lambda: partner.closed == 1, "the end of the connection")
    holds_for(lambda: partner.connections == 1, "no attempt", 2.5)
    assert device.broker() == BrokerStatus(0, 0, 0)
    assert device.statistics().dropped == 0
    assert not csvlog.has_message(LOOP_BEGINS)
    assert not csvlog.has_message("lost is connection")


def test_loss_during_a_pause_is_told_and_not_mended(device, scripted):
    partner, busy = scripted(1883), scripted(1884)
    device.configure(brokers=[broker(1), broker(2, Port=1884)], subscriptions=[subscription()])
    device.run(*VERBOSE)
    busy.silent = True
    lose(device, busy, 2)
    wait_until(lambda: busy.connections == 2, "an attempt that lasts")
    request = device.requests.send(PAUSE)
    wait_until(lambda: csvlog.has_message("Broker 'broker2' is busy, give it a sec"), "the pause to wait")
    lose(device, partner)
    wait_ended(ENDED_BY_PAUSE)
    assert device.subscription()[:2] == (0, SUBSCRIPTION_LOST)
    assert device.statistics().dropped == 1
    busy.hang_up, busy.silent = True, False
    busy.drop_all()
    assert request.wait() == DONE
    assert partner.connections == 1


def test_each_loss_is_mended(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription(1), subscription(2)])
    device.run(*VERBOSE)
    for count in (1, 2, 3):
        lose(device, partner)
        wait_ended(NOTHING_LEFT_TO_DO, count)
        assert device.broker() == CONNECTED
    assert partner.connections == 4
    assert device.statistics().dropped == 6


def test_newer_loss_takes_the_attempts_over(device, scripted):
    partner = scripted()
    interval = 8
    device.configure(brokers=[broker(ConnectionInterval=interval)])
    device.run(*VERBOSE)
    first = lose(device, partner)
    assert device.requests.ask(CONNECT, 1) == DONE
    wait_until(lambda: time.monotonic() - first > 1.5, "some of the first loop's sleep")
    second = lose(device, partner)
    wait_until(lambda: len(partner.connects) == 3, "the reconnection", timeout=interval + 12)
    # The first loop's attempt would come at least 1.5 s sooner.
    assert interval - 0.1 <= partner.connects[2].time - second < 2 * interval
    wait_ended(NOTHING_LEFT_TO_DO, 2)
    assert statuses(device)[-3:] == [CONNECTED, LOST, CONNECTED]
    assert partner.connections == 3


def test_other_device_of_the_same_identifier_is_one_loss_each_time(device, mosquitto, send):
    partner = mosquitto()
    device.configure(brokers=[broker(ClientID=f"sender-{partner.watch_port}")], publications=[publication()])
    device.run(*VERBOSE)
    device.wait_connected()
    # The two throw each other out, each time they connect.
    send(partner)
    wait_until(lambda: statuses(device).count(LOST) >= 3, "three losses", timeout=15)
    wait_ended(NOTHING_LEFT_TO_DO, 2)


def test_loop_that_sleeps_through_a_pause_and_two_starts_is_gone(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(ConnectionInterval=HOUR)], publications=[publication()])
    service = device.run(*VERBOSE)
    threads = service.threads()
    lose(device, partner)
    for _ in range(2):
        assert device.requests.ask(PAUSE) == DONE
        assert device.requests.ask(START) == DONE
    wait_ended(ENDED_BY_PAUSE)
    assert device.requests.ask(CONNECT, 1) == DONE
    holds_for(lambda: (partner.connections, device.broker()) == (2, CONNECTED), "one new connection", 2.5)
    wait_until(lambda: partner.connections - partner.closed == 1, "one connection that is left")
    wait_until(lambda: service.threads() <= threads, lambda: f"{threads} threads; there are {service.threads()}")
    assert csvlog.messages("DEBUG").count(ENDED_BY_PAUSE) == 1


def test_start_while_the_old_loop_sleeps_makes_one_connection(device, scripted):
    partner = scripted()
    interval = 6
    device.configure(brokers=[broker(ConnectionInterval=interval)])
    device.run(*VERBOSE)
    lost = lose(device, partner)
    assert device.requests.ask(PAUSE) == DONE
    assert device.requests.ask(START) == DONE
    assert device.requests.ask(CONNECT, 1) == DONE
    wait_ended(ENDED_BY_PAUSE)
    # Until behind the moment at which the old loop would have made its attempt.
    rest = max(1, lost + interval + 3 - time.monotonic())
    holds_for(lambda: partner.connections == 2, "no connection by the old loop", rest)
    assert device.broker() == CONNECTED
    # The new entity's own losses are mended.
    lose(device, partner)
    wait_ended(NOTHING_LEFT_TO_DO, timeout=20)
    assert partner.connections == 3
    assert device.status() == RUNNING


def test_connect_request_during_an_attempt_waits_for_it(device, scripted):
    partner = scripted()
    device.configure()
    device.run(*VERBOSE)
    partner.silent = True
    lose(device, partner)
    wait_until(lambda: partner.connections == 2, "the attempt")
    request = device.requests.send(CONNECT, 1)
    request.wait_begun()
    holds_for(lambda: not request.is_answered, "a request that waits", 1)
    partner.silent = False
    partner.drop_all()
    wait_until(lambda: device.broker().connected == 1, "the connection")
    # Whichever of the two comes first connects, and the other one finds the connection.
    assert request.wait() in (DONE, BROKER_FAILED)
    wait_ended(NOTHING_LEFT_TO_DO)
    wait_until(lambda: partner.connections - partner.closed == 1, "one connection that is left")
    assert device.broker().connected == 1
