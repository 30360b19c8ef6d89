"""Acknowledged deliveries, the statistics that count them, and losses of the connection."""

import pytest

from support import configuration, csvlog, records
from support.configuration import acknowledgement_at, broker, publication
from support.device import VERBOSE
from support.records import BrokerStatus
from support.requests import DONE, SET_PUBLISH_STATE
from support.waiting import holds_for, wait_until

NOT_OURS = "Accepted message does not belong to any topic"

LOST = BrokerStatus(0, 0, records.CONNECTION_LOST)


def acknowledged(identifier, **attributes):
    defaults = {"QOS": 1, "PeriodicInterval": 50, "BrokerReceivedAddr": acknowledgement_at(identifier)}
    return publication(identifier, **defaults | attributes)


def acknowledgement(device, identifier):
    return device.tags.read(acknowledgement_at(identifier), 1)[0]


@pytest.mark.parametrize("qos", [1, 2])
def test_acknowledgement_sets_the_byte(device, mosquitto, qos):
    mosquitto()
    device.configure(publications=[acknowledged(1, QOS=qos)])
    device.run()
    wait_until(lambda: acknowledgement(device, 1) == 1, "the byte")


@pytest.mark.parametrize("qos", [1, 2])
def test_byte_is_set_again_after_the_application_cleared_it(device, mosquitto, qos):
    mosquitto()
    device.configure(publications=[acknowledged(1, QOS=qos)])
    device.run()
    for _ in range(5):
        wait_until(lambda: acknowledgement(device, 1) == 1, "the byte")
        device.tags.write(acknowledgement_at(1), b"\0")


def test_byte_is_written_each_time_and_only_as_1(device, mosquitto):
    mosquitto()
    device.configure(publications=[acknowledged(1)])
    device.run()
    wait_until(lambda: len(device.tags.journal(acknowledgement_at(1))) >= 10, "ten acknowledgements")
    assert {(write.size, write.data) for write in device.tags.journal(acknowledgement_at(1))} == {(1, b"\1")}


def test_acknowledgement_leaves_the_bytes_of_others_alone(device, mosquitto):
    mosquitto()
    device.configure(
        brokers=[broker(1), broker(2, Port=9)],
        publications=[
            acknowledged(1),
            acknowledged(2, PeriodicInterval=600000),
            acknowledged(3, QOS=0),
            acknowledged(4, CBrokerID=2),
            acknowledged(5, QOS=2),
        ],
    )
    device.run()
    for number in (1, 5):
        wait_until(lambda: len(device.tags.journal(acknowledgement_at(number))) >= 10, f"acknowledgements of {number}")
    assert [acknowledgement(device, number) for number in (2, 3, 4)] == [0, 0, 0]
    assert [device.tags.journal(acknowledgement_at(number)) for number in (2, 3, 4)] == [[], [], []]


def test_byte_stays_while_the_broker_keeps_silent(device, scripted):
    partner = scripted()
    partner.acknowledge = False
    device.configure(publications=[acknowledged(1)])
    device.run()
    wait_until(lambda: partner.publishes, "a publication")
    wait_until(lambda: device.statistics().sent == 1, "it to be counted")
    holds_for(lambda: acknowledgement(device, 1) == 0, "no acknowledgement", 1.5)
    assert device.statistics() == (1, 0, 0, 0)
    partner.acknowledge_now()
    wait_until(lambda: acknowledgement(device, 1) == 1, "the byte")


def test_publication_without_an_address_is_acknowledged_in_the_statistics_only(device, mosquitto):
    mosquitto()
    device.configure(publications=[acknowledged(1, BrokerReceivedAddr=-1)])
    device.run()
    wait_until(lambda: device.statistics().acknowledged >= 10, "acknowledgements")
    written = {write.position for write in device.tags.journal()}
    assert written == {configuration.GENERAL_AT, configuration.STATISTICS_AT, configuration.broker_at(1)}


def test_missing_address_of_the_byte_means_address_0(device, mosquitto):
    mosquitto()
    device.configure(publications=[acknowledged(1, BrokerReceivedAddr=None)])
    device.run()
    wait_until(lambda: device.tags.read(0, 1) == b"\1", "the byte at 0")


@pytest.mark.parametrize("qos", [1, 2])
def test_every_publication_is_sent_and_acknowledged_once(device, scripted, qos):
    partner = scripted()
    device.configure(publications=[acknowledged(n, QOS=qos, PeriodicInterval=100) for n in range(1, 21)])
    device.run()
    wait_until(lambda: device.statistics().sent >= 100, "a hundred publications")
    for n in range(1, 21):
        assert device.requests.ask(SET_PUBLISH_STATE, n, state=0) == DONE

    def counted():
        # Two threads write the record: an older one may come last.
        counts = [records.Statistics.decode(write.data) for write in device.tags.journal(configuration.STATISTICS_AT)]
        return max(count.sent for count in counts), max(count.acknowledged for count in counts)

    wait_until(
        lambda: counted() == (len(partner.publishes),) * 2, lambda: f"{len(partner.publishes)} twice; {counted()}"
    )
    assert len({publish.identifier for publish in partner.publishes}) == len(partner.publishes)
    assert not any(publish.duplicate for publish in partner.publishes)


def test_deliveries_without_acknowledgement_count_as_sent_and_delivered_by_the_library(device, mosquitto):
    mosquitto()
    device.configure(publications=[publication(QOS=0, PeriodicInterval=50)])
    device.run()
    wait_until(lambda: device.statistics().sent >= 10, "publications")
    assert device.statistics().acknowledged == 0


def test_statistics_are_written_whole_and_count_up_by_one(device, mosquitto):
    mosquitto()
    device.configure(publications=[acknowledged(1)])
    device.run()
    wait_until(lambda: device.statistics().acknowledged >= 20, "acknowledgements")
    writes = device.tags.journal(configuration.STATISTICS_AT)
    assert {write.size for write in writes} == {records.Statistics.SIZE}
    counts = [records.Statistics.decode(write.data) for write in writes]
    assert (counts[0].received, counts[0].dropped) == (0, 0)
    assert sorted({count.sent for count in counts} - {0}) == list(range(1, max(count.sent for count in counts) + 1))


@pytest.mark.timeout(90)
def test_acknowledged_publications_do_not_wait_for_each_other_on_a_quick_broker(device, mosquitto):
    mosquitto()
    device.configure(publications=[acknowledged(n, PeriodicInterval=100) for n in range(1, 101)])
    device.run()
    wait_until(lambda: device.statistics().acknowledged > 400, device.statistics, timeout=45)
    moments, most = [], 0
    for write in device.tags.journal(configuration.STATISTICS_AT):
        if (count := records.Statistics.decode(write.data).acknowledged) > most:
            moments.append(write.time)
            most = count
    # A thousand a second are due. The library alone would send ten, and take 10 s for these. A busy machine has its
    # better moments.
    assert min(later - earlier for earlier, later in zip(moments, moments[100:])) < 5


@pytest.mark.timeout(90)
def test_broker_that_never_acknowledges_does_not_stop_the_others_for_ever(device, scripted, mosquitto):
    mute = scripted(1884)
    mute.acknowledge = False
    mosquitto()
    device.configure(
        brokers=[broker(1), broker(2, Port=1884)],
        publications=[acknowledged(1), acknowledged(2, CBrokerID=2)],
    )
    device.run(*VERBOSE)
    wait_until(lambda: mute.publishes, "a publication to the mute broker")
    wait_until(lambda: csvlog.has_message("END rtnValue=-4"), "the mute broker to be given up", timeout=40)
    before = device.statistics().acknowledged
    wait_until(lambda: device.statistics().acknowledged >= before + 20, "the healthy broker's flow", timeout=15)
    assert len({publish.identifier for publish in mute.publishes}) == 1  # the library may send it once more
    assert device.broker(2) == BrokerStatus(1, 0, 0)
    assert acknowledgement(device, 2) == 0
    # One acknowledgement, and it is a broker like any other again.
    mute.acknowledge_now()
    wait_until(lambda: len(mute.publishes) >= 5, "publications to go on", timeout=15)
    wait_until(lambda: acknowledgement(device, 2) == 1, "the byte")


def test_loss_is_logged_and_stands_in_the_status_block(device, mosquitto):
    partner = mosquitto()
    device.configure(brokers=[broker(Name="plant", ConnectionInterval=0)])
    device.run()
    partner.stop()
    wait_until(lambda: device.broker() == LOST, lambda: f"the loss; {device.broker()}")
    assert csvlog.messages("INFO") == ["ClientBroker 'plant' lost is connection"]
    assert device.broker_history()[-1] == LOST


def test_loss_clears_a_stored_session(device, scripted):
    partner = scripted()
    partner.session_present = True
    device.configure(brokers=[broker(ConnectionInterval=0)])
    device.run()
    assert device.broker() == BrokerStatus(1, 1, 0)
    partner.drop_all()
    wait_until(lambda: device.broker() == LOST, "the loss")


def test_loss_of_a_broker_without_subscriptions_drops_none(device, mosquitto):
    partner = mosquitto()
    device.configure(brokers=[broker(ConnectionInterval=0)], publications=[publication(PeriodicInterval=20)])
    device.run()
    wait_until(lambda: device.statistics().sent > 0, "publications")
    partner.stop()
    wait_until(lambda: device.broker() == LOST, "the loss")
    assert device.statistics().dropped == 0


def test_loss_of_one_broker_leaves_the_others_alone(device, mosquitto, scripted):
    mosquitto()
    other = scripted(1884)
    device.configure(
        brokers=[broker(1), broker(2, Port=1884, ConnectionInterval=0)],
        publications=[acknowledged(1, PeriodicInterval=20), acknowledged(2, CBrokerID=2, PeriodicInterval=20)],
    )
    device.run()
    wait_until(lambda: other.publishes, "publications to the second")
    other.close()
    wait_until(lambda: device.broker(2) == LOST, "the loss")
    before = device.statistics().acknowledged
    wait_until(lambda: device.statistics().acknowledged > before + 20, "the first broker's flow")
    assert device.broker(1) == BrokerStatus(1, 0, 0)


@pytest.mark.parametrize("qos", [1, 2])
def test_connection_cut_in_mid_packet_is_a_loss(device, scripted, qos):
    partner = scripted()
    partner.cut_publish_answer = True
    device.configure(brokers=[broker(ConnectionInterval=0)], publications=[acknowledged(1, QOS=qos)])
    service = device.run(*VERBOSE)
    wait_until(lambda: device.broker() == LOST, "the loss")
    wait_until(lambda: csvlog.has_message("END rtnValue=-11"), "a publication that is refused")
    assert acknowledgement(device, 1) == 0
    assert not service.has_ended()


def test_publications_after_a_loss_are_refused_and_not_counted(device, mosquitto):
    partner = mosquitto()
    device.configure(
        brokers=[broker(ConnectionInterval=0)], publications=[publication(n, PeriodicInterval=20) for n in range(1, 20)]
    )
    service = device.run()
    wait_until(lambda: device.statistics().sent > 20, "publications")
    partner.stop()
    wait_until(lambda: device.broker() == LOST, "the loss")
    sent = device.statistics().sent
    holds_for(lambda: device.statistics().sent <= sent + 1 and not service.has_ended(), "the count", 1.5)


def test_broker_may_flood_the_service_with_packets_it_did_not_ask_for(device, scripted, mosquitto):
    """Acknowledgements of numbers that nobody gave out, answers to nothing, and then rubbish."""
    noise = scripted(1884)
    mosquitto()
    device.configure(
        brokers=[broker(1), broker(2, Port=1884, ConnectionInterval=0)],
        publications=[acknowledged(1), acknowledged(2, CBrokerID=2)],
    )
    service = device.run()
    for number in (1, 7, 65535):
        for kind in (0x40, 0x50, 0x62, 0x70, 0xB0):
            noise.send_all(bytes([kind, 2]) + number.to_bytes(2, "big"))
    noise.send_all(bytes([0xD0, 0]) * 1000)
    noise.send_all(bytes(range(256)) * 8)
    before = device.statistics().acknowledged
    wait_until(lambda: device.statistics().acknowledged > before + 20, "the healthy broker's flow")
    assert not service.has_ended()


def test_message_that_nobody_subscribed_to_is_passed_over(device, scripted):
    partner = scripted()
    device.configure(publications=[acknowledged(1)])
    device.run(*VERBOSE)
    partner.publish("some/topic", b"abc")
    wait_until(lambda: csvlog.has_message(NOT_OURS), "the line in the log")
    before = device.statistics()
    assert before.received == 0
    wait_until(lambda: device.statistics().acknowledged > before.acknowledged + 20, "publications to go on")
    assert csvlog.messages().count(NOT_OURS) == 1


def test_huge_message_that_nobody_subscribed_to_is_passed_over(device, scripted):
    partner = scripted()
    device.configure(publications=[acknowledged(1)])
    device.run(*VERBOSE)
    partner.publish("t" * 65535, bytes(2_000_000))
    wait_until(lambda: csvlog.has_message(NOT_OURS), "the line in the log")
    before = device.statistics().acknowledged
    wait_until(lambda: device.statistics().acknowledged > before + 5, "publications to go on")
