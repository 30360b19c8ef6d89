"""Which topics a subscription takes. The rules are the service's own: the broker delivers, the service decides."""

import pytest

from support.configuration import subscription, subscription_at
from support.exchange import fence_subscription, pass_fence
from support.waiting import wait_until

# (filter, topic, whether the subscription takes the message). Some filters are none for a real broker.
TABLE = [
    # the multi-level wildcard: what stands ahead of it is compared as a text
    ("a/#", "a/b/c", True),
    ("a/#", "a/b", True),
    ("a/#", "a/", True),
    ("a/#", "a", False),
    ("a/#", "ab", False),
    ("a/#", "A/b", False),
    ("a/#", "a/#", True),
    ("a/b#", "a/bc", True),
    ("a/b#", "a/b", True),
    ("a/b#", "a/bc/d/e", True),
    ("a/b#", "a/c", False),
    ("a/#/c", "a/x/y", True),
    ("a/#/c", "a/x/c", True),
    ("a/#/c", "a/", True),
    ("a/#/c", "b/x/c", False),
    ("+/b/#", "x/b/c", False),
    ("+/b/#", "x/b/#", True),
    ("+/b/#", "+/b/c/d", True),
    ("+/#", "a/b", False),
    ("+/#", "a/#", True),
    ("#", "a", True),
    ("#", "/", True),
    ("#", "/a/b/c/d", True),
    ("#", "$data/a", True),
    ("/#", "/a", True),
    ("/#", "a", False),
    ("#/a", "whatever", True),
    ("ä/#", "ä/ö", True),
    ("ä/#", "ö/ä", False),
    # the single-level wildcard: as many levels as the filter has
    ("a/+", "a/b", True),
    ("a/+", "a/", True),
    ("a/+", "a/b/c", False),
    ("a/+", "a", False),
    ("a/+/c", "a/b/c", True),
    ("a/+/c", "a//c", True),
    ("a/+/c", "a/c", False),
    ("a/+/c", "a/b/c/d", False),
    ("a/+/c", "a/b/C", False),
    ("+", "a", True),
    ("+", "$data", True),
    ("+", "a/", False),
    ("+/+", "/", True),
    ("+/+", "a/b", True),
    ("+/+", "$data/a", True),
    ("+/b", "ö/b", True),
    ("a+/b", "a+/b", True),
    ("a+/b", "ab/b", False),
    ("a++/b", "ax/b", False),
    # no wildcard
    ("a/b", "a/b", True),
    ("a/b", "a/b/", False),
    ("a/b", "/a/b", False),
    ("a/b", "a/B", False),
    ("a/b", "a", False),
    ("a//b", "a//b", True),
    ("$data/a", "$data/a", True),
    (" a", " a", True),
    (" a", "a", False),
]
FILTERS = list(dict.fromkeys(row[0] for row in TABLE))
TOPICS = list(dict.fromkeys(row[1] for row in TABLE))


def by_the_rules(text, topic):
    """The rules once more, read as plainly as they can be told."""
    if text == topic:
        return True
    levels, parts = text.split("/"), topic.split("/")
    if len(levels) == len(parts) and all(level in ("+", part) for level, part in zip(levels, parts)):
        return True
    return "#" in text and topic.startswith(text[: text.index("#")])


def test_table_follows_from_the_rules():
    assert [row for row in TABLE if by_the_rules(*row[:2]) != row[2]] == []


def takers(device, sender, topic, filters):
    """The filters whose records tell of a message on `topic`."""
    since = device.tags.writes_made()
    sender.publish(topic, b"\1\0\0\0")
    pass_fence(device, sender)
    # The last message is the fence's own, which some of the filters take as well.
    written = {write.position for write in device.tags.journal(since=since)[:-3] if _tells_of(write, topic)}
    return {text for n, text in enumerate(filters, 1) if subscription_at(n) in written}


def _tells_of(write, topic):
    return write.size == 524 and write.data[4:].startswith((topic + "\0").encode("utf-16-le")[:28])


def test_every_filter_takes_the_topics_that_the_rules_give_it(device, scripted):
    partner = scripted()
    entries = [subscription(n, Topic=text) for n, text in enumerate(FILTERS, 1)]
    device.configure(subscriptions=[*entries, fence_subscription()])
    device.run()
    assert [subscribe.topics[0][0] for subscribe in partner.subscribes] == [*FILTERS, "fence"]
    for topic in TOPICS:
        found = takers(device, partner, topic, FILTERS)
        assert found == {text for text in FILTERS if by_the_rules(text, topic)}, topic
        rows = {(text, taken) for text, of, taken in TABLE if of == topic}
        assert rows == {(text, text in found) for text, _ in rows}, topic


def test_real_brokers_deliveries_are_sorted_by_the_same_rules(device, mosquitto, send):
    filters = ["#", "a/#", "+/b/#", "a/+", "a/+/c", "+/+", "a/b", "$data/#", "$data/+", "$data"]
    topics = ["a", "a/", "a/b", "a/b/c", "a//c", "x/b/c", "$data", "$data/a", "$data/a/b"]
    partner = mosquitto()
    entries = [subscription(n, Topic=text) for n, text in enumerate(filters, 1)]
    device.configure(subscriptions=[*entries, fence_subscription()])
    device.run()
    sender = send(partner)
    for topic in topics:
        found = takers(device, sender, topic, filters)
        assert found == {text for text in filters if by_the_rules(text, topic)}, topic


def test_parent_level_is_delivered_and_not_taken(device, mosquitto, send):
    partner = mosquitto()
    device.configure(subscriptions=[subscription(1, Topic="a/#"), subscription(2, Topic="b")])
    device.run()
    sender = send(partner)
    sender.publish("a", b"1234")
    sender.publish("b", b"1234")
    device.wait_received(b"1234", 2)
    assert device.subscription(1).received == 0


@pytest.mark.parametrize("topic", ["$SYS/broker/uptime", "$SYS/broker/version"])
def test_topics_of_the_broker_itself_are_taken_like_any_other(device, mosquitto, topic):
    mosquitto()
    filters = {1: topic, 2: "$SYS/broker/+", 3: "broker/#"}
    device.configure(subscriptions=[subscription(n, Topic=text) for n, text in filters.items()])
    device.run()
    wait_until(lambda: device.subscription(1).topic == topic, "the broker's own message", timeout=30)
    wait_until(lambda: device.subscription(2).topic.startswith("$SYS/broker/"), "the same by the wildcard")
    assert device.subscription(3).received == 0
