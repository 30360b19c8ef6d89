"""Subscribing: what the broker is asked for, what becomes of it, and what the subscription's record tells."""

import time

import pytest

from support import certs, configuration, csvlog, records, tags
from support.configuration import broker, caller_xml, received_at, subscription, subscription_at
from support.device import MAC_SCRIPT, VERBOSE
from support.mosquitto import TLS_PORT
from support.records import STR8, UINT8, UINT16, SubscriptionStatus
from support.scriptedbroker import publish_packet
from support.waiting import holds_for, wait_until

REFUSED = -128  # 0x80 in the broker's answer

NEVER_SUBSCRIBED = SubscriptionStatus(0, 0, 0, 0, "", 0, 0)
SUBSCRIBED = NEVER_SUBSCRIBED._replace(subscribed=1)


def failed(code):
    return NEVER_SUBSCRIBED._replace(code=code)


def number(value):
    return value.to_bytes(4, "little")


def test_subscription_at_boot_is_made_and_shown(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription(1, Topic="a/b", QOS=0), subscription(2, Topic="c/#", QOS=2)])
    device.run()
    assert [subscribe.topics for subscribe in partner.subscribes] == [[("a/b", 0)], [("c/#", 2)]]
    assert [device.subscription(n) for n in (1, 2)] == [SUBSCRIBED, SUBSCRIBED]


def test_subscription_that_is_not_for_the_boot_is_not_made(device, scripted):
    partner = scripted()
    texts = {1: 0, 2: None, 3: "true", 4: "", 5: 2}
    device.configure(subscriptions=[subscription(n, SubscribeAtBoot=text) for n, text in texts.items()])
    device.run()
    assert [subscribe.topics for subscribe in partner.subscribes] == [[("plc/command/5", 0)]]
    assert [device.subscription(n) for n in texts] == [NEVER_SUBSCRIBED] * 4 + [SUBSCRIBED]


def test_message_for_a_subscription_that_was_not_made_is_not_offered_to_it(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription(1, SubscribeAtBoot=0), subscription(2)])
    device.run()
    partner.publish("plc/command/1", number(1))
    partner.publish("plc/command/2", number(2))
    device.wait_received(number(2), 2)
    assert device.subscription(1) == NEVER_SUBSCRIBED
    assert device.received(1) == number(0)
    assert device.statistics().received == 1


def test_records_of_an_earlier_run_are_cleared(device):
    device.configure(brokers=[broker(AutoConnect=0)], subscriptions=[subscription(SubscribeAtBoot=0)])
    device.tags.write(subscription_at(1), b"\xff" * SubscriptionStatus.SIZE)
    device.run()
    assert device.tags.read(subscription_at(1), SubscriptionStatus.SIZE) == bytes(SubscriptionStatus.SIZE)


@pytest.mark.parametrize("reason", ["away", "not connected at boot", "none such"])
def test_broker_that_is_not_connected(device, reason):
    attributes = {"AutoConnect": 0} if reason == "not connected at boot" else {}
    device.configure(
        brokers=[broker(**attributes)], subscriptions=[subscription(CBrokerID=7 if reason == "none such" else 1)]
    )
    device.run(*VERBOSE)
    assert device.subscription() == failed(records.NOT_CONNECTED)
    expected = "SUBSCRIBE by subscriber subscription1 ended with status (-11) to topic 'plc/command/1'"
    assert csvlog.has_message(expected, severity="DEBUG")


def test_broker_that_connects_later_is_not_asked_again(device, mosquitto):
    partner = mosquitto()
    partner.stop()
    device.configure(subscriptions=[subscription()])
    device.run()
    partner.start()
    device.wait_connected()
    holds_for(lambda: device.subscription() == failed(records.NOT_CONNECTED), "the result of the only attempt", 1)


def test_subscription_that_the_broker_refuses_leaves_the_others(device, mosquitto, send):
    partner = mosquitto(subscribable=["open/#"])
    topics = {1: "closed/#", 2: "open/#", 3: "open/a"}
    device.configure(subscriptions=[subscription(n, Topic=text) for n, text in topics.items()])
    device.run()
    assert [device.subscription(n) for n in topics] == [failed(REFUSED), SUBSCRIBED, SUBSCRIBED]
    send(partner).publish("open/a", number(1))
    device.wait_received(number(1), 3)
    assert device.received(1) == number(0)


def test_refusal_is_the_low_byte_of_the_result(device, scripted):
    partner = scripted()
    partner.grant = 0x80
    device.configure(subscriptions=[subscription()])
    device.run(*VERBOSE)
    assert device.tags.read(subscription_at(1), 2) == bytes([0, 0x80])
    assert csvlog.has_message("ended with status (128) to topic", severity="DEBUG")


def test_lower_grant_than_asked_for_is_a_success(device, scripted):
    partner = scripted()
    partner.grant = 0
    device.configure(subscriptions=[subscription(QOS=2)])
    device.run()
    assert device.subscription() == SUBSCRIBED


@pytest.mark.parametrize("qos", [-1, 3, 255, 2147483647])
def test_quality_of_service_out_of_range_is_refused_without_harm(device, scripted, qos):
    partner = scripted()
    device.configure(subscriptions=[subscription(1, QOS=qos), subscription(2)])
    device.run()
    assert device.subscription(1) == failed(-9)
    assert device.subscription(2) == SUBSCRIBED
    assert [subscribe.topics for subscribe in partner.subscribes] == [[("plc/command/2", 0)]]


@pytest.mark.parametrize("qos", [0, 1, 2])
def test_messages_arrive_at_each_quality_of_service(device, mosquitto, send, qos):
    partner = mosquitto()
    device.configure(subscriptions=[subscription(QOS=qos)])
    device.run()
    sender = send(partner)
    for value in range(1, 31):
        sender.publish("plc/command/1", number(value), qos=qos)
    device.wait_received(number(30))
    assert [int.from_bytes(write.data, "little") for write in device.data_writes()] == list(range(1, 31))
    assert device.statistics().received == 30


@pytest.mark.parametrize("qos", [1, 2])
def test_messages_are_acknowledged(device, scripted, qos):
    partner = scripted()
    device.configure(subscriptions=[subscription(QOS=qos)])
    device.run()
    for identifier in (7, 8, 65535):
        partner.publish("plc/command/1", number(identifier), qos, identifier)
    wait_until(lambda: partner.acknowledged == [7, 8, 65535], lambda: f"acknowledgements; {partner.acknowledged} came")


# Filters that the broker takes for a violation of the protocol, and hangs up.
@pytest.mark.parametrize("topic", ["", "a/#/c", "a/b#", "a+/b"], ids=lambda topic: topic or "empty")
def test_filter_that_the_broker_hangs_up_for(device, mosquitto, topic):
    mosquitto()
    device.configure(subscriptions=[subscription(1, Topic=topic), subscription(2)])
    service = device.run()
    assert device.subscription(1).subscribed == 0
    assert device.subscription(1).code not in (0, records.NOT_CONNECTED)
    # It may be connected anew by now.
    lost = records.BrokerStatus(0, 0, records.CONNECTION_LOST)
    wait_until(lambda: lost in device.broker_history(), lambda: f"the loss: {device.broker_history()}")
    holds_for(lambda: not service.has_ended(), "the service", 0.5)


def test_two_filters_for_one_message_are_both_served(device, scripted):
    partner = scripted()
    filters = {1: "a/+", 2: "a/#", 3: "a/b", 4: "#", 5: "+/b", 6: "a/c", 7: "+"}
    device.configure(subscriptions=[subscription(n, Topic=text) for n, text in filters.items()])
    device.run()
    partner.publish("a/b", number(42))
    device.wait_received(number(42), 5)
    assert [device.received(n) for n in filters] == [number(42)] * 5 + [number(0)] * 2
    assert [device.subscription(n).topic for n in filters] == ["a/b"] * 5 + [""] * 2
    assert device.statistics().received == 5


@pytest.mark.parametrize("attempt", range(4))
def test_retained_messages_at_boot_all_arrive(device, mosquitto, send, attempt):
    partner = mosquitto()
    sender = send(partner)
    identifiers = range(1, 21)
    for n in identifiers:
        sender.publish(f"plc/command/{n}", number(1000 * attempt + n), qos=1, retain=True)
    device.configure(subscriptions=[subscription(n, QOS=n % 3) for n in identifiers])
    for start in range(3):
        since = device.tags.writes_made()
        device.run()
        for n in identifiers:
            device.wait_received(number(1000 * attempt + n), n)
        wait_until(lambda: device.statistics().received == 20, "twenty received messages")
        assert [len(device.data_writes(n, since)) for n in identifiers] == [1] * 20
        device.service.stop()
        for n in identifiers:
            device.tags.write(received_at(n), number(0))
        device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))


@pytest.mark.timeout(120)
def test_retained_message_that_comes_in_one_piece_with_the_answer_arrives(device, scripted):
    partner = scripted()
    partner.after_subscribe_answer = publish_packet("plc/command/1", number(5), retain=True)
    device.configure(subscriptions=[subscription()])
    for _ in range(10):
        device.run()
        device.wait_received(number(5))
        device.service.stop()
        device.tags.write(received_at(1), number(0))
        device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))


def test_message_shows_in_the_record_then_in_the_statistics_then_in_the_data(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription(Topic="a/+")])
    device.run()
    since = device.tags.writes_made()
    partner.publish("a/bc", number(7))
    device.wait_received(number(7))
    record, statistics, data = device.tags.journal(since=since)
    assert (record.position, record.size) == (subscription_at(1), SubscriptionStatus.SIZE)
    assert record.data[:12] == bytes([1, 0, 1, 0]) + "a/bc".encode("utf-16-le")
    assert statistics.position == configuration.STATISTICS_AT
    assert records.Statistics.decode(statistics.data) == (0, 0, 1, 0)
    assert (data.position, data.size, data.data) == (received_at(1), 4, number(7))


def test_record_tells_topic_and_time_of_the_last_message(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription(Topic="a/+")])
    device.run()
    for count, topic in enumerate(("a/a long one", "a/b"), 1):
        before = int(time.time())
        partner.publish(topic)
        wait_until(lambda: device.statistics().received == count, f"the count, which follows the record, of '{topic}'")
        status = device.subscription()
        assert status == SUBSCRIBED._replace(received=1, topic=topic, time=status.time)
        assert before <= status.time <= int(time.time())


@pytest.mark.parametrize("topic", ["halle/öfen", "漢字", "a/😀/b", "\u200f\uffee", "x" * 255, "ä" * 200, "😀" * 120])
def test_topic_stands_in_the_record_as_utf16(device, mosquitto, send, topic):
    partner = mosquitto()
    device.configure(subscriptions=[subscription(Topic="#")])
    device.run()
    send(partner).publish(topic, number(3))
    device.wait_received(number(3))
    field = device.tags.read(subscription_at(1) + SubscriptionStatus.TOPIC_AT, 512)
    expected = (topic + "\0").encode("utf-16-le")
    assert field[: len(expected)] == expected


def test_received_bit_is_set_again_after_the_application_cleared_it(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription()])
    device.run()
    for value in (1, 2, 3):
        partner.publish("plc/command/1", number(value))
        device.wait_received(number(value))
        assert device.subscription().received == 1
        device.tags.write(subscription_at(1) + SubscriptionStatus.RECEIVED_BIT_AT, b"\0")
        assert device.subscription().received == 0


def test_every_subscription_that_takes_a_message_is_counted(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription(n, Topic="all/#") for n in (1, 2, 3)])
    device.run()
    for value in range(1, 6):
        partner.publish("all/of/them", number(value))
    device.wait_received(number(5), 3)
    assert device.statistics() == (0, 0, 15, 0)


def test_message_on_no_subscribed_topic_only_gives_a_line(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription()])
    device.run(*VERBOSE)
    since = device.tags.writes_made()
    partner.publish("plc/command/11", number(1))
    text = "Accepted message does not belong to any topic"
    wait_until(lambda: csvlog.has_message(text, severity="DEBUG"), "the line")
    assert device.tags.journal(since=since) == []


def test_loss_of_the_connection_is_written_for_every_subscription_that_was_made(device, mosquitto):
    partner = mosquitto()
    device.configure(subscriptions=[subscription(1), subscription(2, SubscribeAtBoot=0), subscription(3, QOS=1)])
    device.run()
    since = device.tags.writes_made()
    partner.stop()
    device.wait_lost()
    wait_until(lambda: device.statistics().dropped == 3, lambda: f"three dropped; {device.statistics()}")
    lost = failed(records.SUBSCRIPTION_LOST)
    assert [device.subscription(n) for n in (1, 2, 3)] == [lost, NEVER_SUBSCRIBED, lost]
    # the loss itself, and the broker's order to show the record, which all of its subscriptions get
    assert [len(device.record_writes(n, since)) for n in (1, 2, 3)] == [2, 1, 2]


def test_loss_keeps_what_the_record_tells_of_the_last_message(device, scripted):
    partner = scripted()
    device.configure(subscriptions=[subscription()])
    device.run()
    partner.publish("plc/command/1", number(9))
    device.wait_received(number(9))
    before = device.subscription()
    partner.drop_all()
    device.wait_lost()
    assert device.subscription() == before._replace(subscribed=0, code=records.SUBSCRIPTION_LOST)
    assert device.received() == number(9)


def test_loss_of_one_broker_leaves_the_subscriptions_of_the_other(device, scripted):
    partners = [scripted(1883), scripted(1884)]
    device.configure(
        brokers=[broker(1), broker(2, Port=1884)],
        subscriptions=[subscription(1, Topic="t"), subscription(2, Topic="t", CBrokerID=2)],
    )
    device.run()
    partners[0].drop_all()
    device.wait_lost()
    partners[1].publish("t", number(6))
    device.wait_received(number(6), 2)
    assert device.subscription(1).code == records.SUBSCRIPTION_LOST
    assert device.received(1) == number(0)
    wait_until(lambda: device.statistics().dropped == 1, lambda: f"one dropped; {device.statistics()}")


def test_same_filter_at_two_brokers_is_two_subscriptions(device, mosquitto, send):
    senders = [send(mosquitto(port)) for port in (1883, 1884)]
    device.configure(
        brokers=[broker(1), broker(2, Port=1884)],
        subscriptions=[subscription(1, Topic="t", CBrokerID=2), subscription(2, Topic="t", CBrokerID=1)],
    )
    device.run()
    senders[0].publish("t", number(1))
    senders[1].publish("t", number(2))
    device.wait_received(number(2), 1)
    device.wait_received(number(1), 2)


def test_subscription_without_a_broker_is_named_and_harms_nobody(device, scripted):
    partner = scripted()
    orphans = [subscription(n, Name=f"orphan<{n}>", CBrokerID=text) for n, text in enumerate([99, None, "x", -1], 2)]
    device.configure(subscriptions=[*orphans, subscription(1)])
    device.run()
    errors = csvlog.messages("ERROR")
    assert all(any(f"orphan<{n}>" in error for error in errors) for n in range(2, 6))
    assert [device.subscription(n) for n in range(2, 6)] == [failed(records.NOT_CONNECTED)] * 4
    assert device.general().subscriptions == 5
    partner.publish("plc/command/1", number(1))
    device.wait_received(number(1))


def test_variables_in_topics_are_filled_in(device, scripted):
    partner = scripted()
    topics = {
        "cmd/{PLC.MAC}/#": "cmd/02:00:00:00:00:01/#",
        "{PLC.SN}/+": "SN123/+",
        "a/{PLC.NAME}": "a/press",
        "{PLC.NOTHING}/b": "{PLC.NOTHING}/b",
    }
    device.configure(subscriptions=[subscription(n, Topic=text) for n, text in enumerate(topics, 1)])
    device.run()
    assert [subscribe.topics for subscribe in partner.subscribes] == [[(text, 0)] for text in topics.values()]
    partner.publish("cmd/02:00:00:00:00:01/start", number(1))
    partner.publish("SN123/x", number(2))
    partner.publish("a/press", number(3))
    for n in (1, 2, 3):
        device.wait_received(number(n), n)


def test_variable_that_is_empty_leaves_an_empty_level(device, scripted):
    partner = scripted()
    device.script(MAC_SCRIPT, "echo")
    device.configure(subscriptions=[subscription(1, Topic="a/{PLC.MAC}/b"), subscription(2, Topic="a/+/b")])
    device.run()
    assert partner.subscribes[0].topics == [("a//b", 0)]
    partner.publish("a//b", number(4))
    device.wait_received(number(4), 1)
    device.wait_received(number(4), 2)


def test_subscriptions_over_tls(device, mosquitto, send):
    authority = certs.Authority("ca")
    partner = mosquitto(TLS_PORT, tls=authority.issue("server"))
    device.configure(
        brokers=[broker(EncryptionType=2, Port=TLS_PORT, CAFileName="ca.crt")], subscriptions=[subscription(QOS=1)]
    )
    device.run()
    send(partner).publish("plc/command/1", number(77), qos=1)
    device.wait_received(number(77))


def test_kept_session_is_subscribed_and_served_at_every_start(device, mosquitto, send):
    partner = mosquitto()
    sender = send(partner)
    device.configure(brokers=[broker(CleanSession=0)], subscriptions=[subscription(QOS=1)])
    for start in range(3):
        device.run()
        assert device.broker() == records.BrokerStatus(1, 1 if start else 0, 0)
        assert device.subscription().subscribed == 1
        sender.publish("plc/command/1", number(10 + start), qos=1)
        device.wait_received(number(10 + start))
        device.service.stop()
        device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))


def test_data_and_record_may_lie_in_the_operand_window(device, scripted):
    partner = scripted()
    window = tags.OPERAND_BASE
    device.configure(
        subscriptions=[subscription(DataAddr=window + 16, SubAddr=window + 1024, DataType=f"{STR8}_7")]
    )
    device.run()
    partner.publish("plc/command/1", b"operand!")
    wait_until(lambda: device.tags.read(window + 16, 8) == b"operand!", "the data")
    assert device.tags.subscription(window + 1024).topic == "plc/command/1"


def test_addresses_outside_tag_memory_harm_nobody(device, scripted):
    partner = scripted()
    device.configure(
        subscriptions=[
            subscription(1, DataAddr=0x7000000),
            subscription(2, SubAddr=0xFFFFFFFF),
            subscription(3, DataAddr=0xFFFFFFFF, SubAddr=0x7000000),
            subscription(4),
        ]
    )
    device.run()
    for n in range(1, 5):
        partner.publish(f"plc/command/{n}", number(n))
    device.wait_received(number(4), 4)
    assert device.received(2) == number(2)
    assert device.statistics().received == 4


@pytest.mark.timeout(120)
def test_three_hundred_subscriptions_are_served(device, mosquitto, send):
    partner = mosquitto()
    identifiers = range(1, 301)
    device.configure(subscriptions=[subscription(n, DataType=UINT16) for n in identifiers])
    service = device.start()
    wait_until(lambda: device.status() == records.RUNNING or service.has_ended(), "the service to run", timeout=60)
    assert not service.has_ended()
    sender = send(partner)
    for n in identifiers:
        sender.publish(f"plc/command/{n}", n.to_bytes(2, "little"))
    device.wait_received((300).to_bytes(2, "little"), 300)
    assert [int.from_bytes(device.received(n, 2), "little") for n in identifiers] == list(identifiers)
    assert device.general().subscriptions == 300


def test_element_of_another_name_behind_the_first_is_a_subscription_too(device, scripted):
    partner = scripted()
    device.configure()
    inner = caller_xml(subscription(1), "SubscriptionConf") + caller_xml(subscription(2), "Other")
    configuration.SUBSCRIPTIONS_FILE.write_text(
        f"<SubscriptionsConf><Subscriptions>{inner}</Subscriptions></SubscriptionsConf>"
    )
    device.run()
    assert len(partner.subscribes) == 2
    assert device.general().subscriptions == 2


def test_subscription_file_with_another_top_element_holds_none(device):
    device.configure(brokers=[broker(AutoConnect=0)])
    configuration.SUBSCRIPTIONS_FILE.write_text("<Other><Subscriptions><SubscriptionConf/></Subscriptions></Other>")
    device.run()
    assert device.general().subscriptions == 0


def test_service_hears_its_own_publications(device, mosquitto):
    mosquitto()
    device.tags.write(configuration.data_at(1), b"\x2a")
    device.configure(
        publications=[configuration.publication(Topic="loop", DataType=UINT8, PeriodicInterval=50)],
        subscriptions=[subscription(Topic="loop", DataType=UINT8)],
    )
    device.run()
    device.wait_received(b"\x2a")
