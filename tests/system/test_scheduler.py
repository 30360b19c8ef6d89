"""Work by the clock: periods, retries of brokers out of reach, and the link that has to be up for them."""

import statistics

import pytest

from support import configuration, csvlog, records
from support.configuration import broker, publication
from support.device import VERBOSE
from support.records import CONNECT_REFUSED, BrokerStatus
from support.waiting import holds_for, wait_until

REFUSED = BrokerStatus(0, 0, -1)
LINK_DOWN = BrokerStatus(0, 0, CONNECT_REFUSED)


def published_at(identifier):
    """The moments of a publication, in seconds, as the log has them."""
    beginning = f"Publication 'publication{identifier}' Publish"
    return [row.moment for row in csvlog.rows() if row.message.startswith(beginning)]


def test_publications_keep_their_periods(device, mosquitto, listen):
    listener = listen(mosquitto())
    periods = {1: 100, 2: 250, 3: 1000}
    device.configure(publications=[publication(n, PeriodicInterval=period) for n, period in periods.items()])
    device.run(*VERBOSE)
    listener.wait_for("plc/data/3", 9, timeout=30)
    for number, period in periods.items():
        moments = published_at(number)
        gaps = [(later - earlier) * 1000 for earlier, later in zip(moments, moments[1:])]
        # The timers may be off by a twentieth. Where the machine holds the service up, a gap gets longer and the one
        # behind it shorter.
        assert period * 0.94 <= statistics.median(gaps) <= period * 1.15, (number, gaps)
        assert len(gaps) <= (moments[-1] - moments[0]) * 1000 / period * 1.06 + 1, (number, gaps)


def test_first_publication_comes_one_period_after_the_start(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(1, PeriodicInterval=1500), publication(2, PeriodicInterval=200)])
    device.run(*VERBOSE)
    listener.wait_for("plc/data/1")
    # Seven periods of the other; two of its own would be fourteen. A machine that is held up only skips some.
    assert [message.topic for message in listener.received].index("plc/data/1") <= 9
    wait_until(lambda: published_at(1), "its line in the log")
    # The timers begin a second after the manager has asked for them.
    bound = next(row.moment for row in csvlog.rows() if row.function == "MQTTClientManager::ManagePeriodicPublications")
    assert published_at(1)[0] - bound > 1 + 1.5 * 0.93


def test_failed_broker_is_tried_again_at_its_interval(device, scripted):
    partner = scripted()
    partner.refuse = 3
    device.configure(brokers=[broker(ConnectionInterval=2)])
    device.run()
    wait_until(lambda: len(partner.connects) >= 10, "five attempts", timeout=30)
    # Each attempt is made in two versions of the protocol.
    begins = [connect.time for connect in partner.connects[0:10:2]]
    gaps = [later - earlier for earlier, later in zip(begins[1:], begins[2:])]
    # A machine that is held up makes some gaps longer and none shorter.
    assert 1.8 < min(gaps) < 3, gaps


def test_retries_stop_after_success(device, mosquitto):
    partner = mosquitto()
    partner.stop()
    device.configure()
    device.run()
    wait_until(lambda: device.broker_history().count(REFUSED) >= 3, "two retries")
    partner.start()
    device.wait_connected()
    history = device.broker_history()
    holds_for(lambda: device.broker_history() == history, lambda: str(device.broker_history()[-3:]), 3.5)
    assert history[-1] == BrokerStatus(1, 0, 0)
    assert set(history[2:-1]) == {REFUSED}


def test_retries_of_one_broker_go_on_while_others_are_through(device, mosquitto):
    mosquitto()
    late = mosquitto(1884)
    late.stop()
    device.configure(brokers=[broker(1), broker(2, Port=1884), broker(3, Port=9)])
    device.run()
    assert device.broker(1).connected == 1
    late.start()
    device.wait_connected(2)
    tries = device.broker_history(3).count(REFUSED)
    wait_until(lambda: device.broker_history(3).count(REFUSED) >= tries + 2, "further attempts of the third")


def test_no_interval_means_one_attempt(device, scripted):
    partner = scripted()
    partner.refuse = 3
    device.configure(brokers=[broker(ConnectionInterval=0)])
    device.run()
    attempts = len(partner.connects)
    holds_for(lambda: len(partner.connects) == attempts, "no second attempt", 2.5)
    assert attempts == 2


def test_broker_that_connects_on_request_only_is_left_alone(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(AutoConnect=0)])
    device.run()
    holds_for(lambda: partner.connections == 0, "no attempt", 2.5)


@pytest.mark.parametrize("first, second", [(0, 0), (2, 0), (0, 255)])
def test_link_that_is_down_makes_no_traffic(device, scripted, first, second):
    partner = scripted()
    device.tags.write(44, bytes([first]))
    device.tags.write(47, bytes([second]))
    device.configure(publications=[publication(QOS=1)])
    device.run()
    wait_until(lambda: device.broker_history().count(LINK_DOWN) >= 3, "two retries")
    assert partner.connections == 0
    assert set(device.broker_history()[2:]) == {LINK_DOWN}


@pytest.mark.parametrize("first, second", [(True, False), (False, True)])
def test_one_port_with_a_link_is_enough(device, scripted, first, second):
    scripted()
    device.tags.set_link(first, second)
    device.configure()
    device.run()
    assert device.broker() == BrokerStatus(1, 0, 0)


def test_broker_is_reached_once_the_link_comes_up(device, scripted):
    partner = scripted()
    device.tags.set_link(False, False)
    device.configure()
    device.run()
    assert device.broker() == LINK_DOWN
    device.tags.set_link()
    device.wait_connected()
    assert len(partner.connects) == 1


def test_publications_go_on_while_a_broker_is_retried(device, mosquitto):
    mosquitto()
    device.configure(brokers=[broker(1), broker(2, Port=9)], publications=[publication(PeriodicInterval=20)])
    device.run()
    wait_until(lambda: device.broker_history(2).count(REFUSED) >= 3, "retries")
    before = device.statistics().sent
    wait_until(lambda: device.statistics().sent > before + 50, "publications", timeout=15)


def test_publications_beyond_the_scheduler_are_named_and_left_out(device, mosquitto, listen):
    listener = listen(mosquitto())
    publications = [publication(n, PeriodicInterval=300, Name=f"pub<{n}>") for n in range(1, 304)]
    device.configure(publications=publications)
    device.run()
    wait_until(lambda: len({message.topic for message in listener.received}) >= 300, "the first 300")
    holds_for(lambda: len({message.topic for message in listener.received}) == 300, "the last three", 1)
    errors = csvlog.messages("ERROR")
    assert [any(f"pub<{n}>" in error for error in errors) for n in (300, 301, 302, 303)] == [False, True, True, True]
    assert device.general().publications == 303


def test_brokers_beyond_the_scheduler_are_named_and_left_out(device):
    device.tags.set_link(False, False)
    device.configure(brokers=[broker(n, Name=f"broker<{n}>") for n in range(1, 34)])
    device.run()
    wait_until(lambda: device.broker_history(30).count(LINK_DOWN) >= 3, "retries of the thirtieth")
    errors = csvlog.messages("ERROR")
    assert [any(f"broker<{n}>" in error for error in errors) for n in (30, 31, 32, 33)] == [False, True, True, True]
    assert device.broker_history(31).count(LINK_DOWN) == 1


# The second is 704 ms where it is multiplied in 32 bits.
@pytest.mark.parametrize("interval", ["2147484", "4294968", "4294967295"])
def test_interval_beyond_the_timers_range_does_no_harm(device, mosquitto, interval):
    mosquitto()
    device.configure(
        brokers=[broker(1), broker(2, Port=9, ConnectionInterval=interval)],
        publications=[publication(PeriodicInterval=20)],
    )
    device.run()
    attempts = device.broker_history(2).count(REFUSED)
    sent = device.statistics().sent
    wait_until(lambda: device.statistics().sent > sent + 50, "publications")
    assert device.broker_history(2).count(REFUSED) == attempts


@pytest.mark.parametrize("period", [-2, -2147483648])
def test_negative_period_does_no_harm(device, mosquitto, period):
    mosquitto()
    device.configure(publications=[publication(1, PeriodicInterval=period), publication(2, PeriodicInterval=20)])
    device.run()
    wait_until(lambda: device.statistics().sent > 20, "the other publication")


def test_lost_connection_is_not_the_schedulers_business(device, mosquitto):
    """A row ends with the first success, so what follows a loss is not its doing."""
    partner = mosquitto()
    device.configure(brokers=[broker(ConnectionInterval=0)])
    device.run()
    partner.stop()
    device.wait_code(records.CONNECTION_LOST)
    partner.start()
    holds_for(lambda: device.broker() == BrokerStatus(0, 0, records.CONNECTION_LOST), "the loss", 2.5)


def test_status_blocks_are_only_written_when_something_happened(device, mosquitto):
    mosquitto()
    device.configure(publications=[publication(PeriodicInterval=20)])
    device.run()
    assert device.broker_history() == [BrokerStatus(0, 0, 0), BrokerStatus(0, 0, 0), BrokerStatus(1, 0, 0)]
    holds_for(lambda: len(device.tags.journal(configuration.broker_at(1))) == 3, "no further write", 1.5)
