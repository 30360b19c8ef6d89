"""Tables of cases in one run of the service: tags on their way out, messages on their way in."""

from support.configuration import data_at, data_size, publication, subscription
from support.records import BOOL, INT8, INT16, INT32, REAL, STR8, STR16, STR32, UINT8, UINT16, UINT32
from support.waiting import wait_until

# Bytes of a tag, by its type and its entries.
RAW_SIZES = {
    (BOOL, 0): 1,
    (INT8, 0): 1,
    (UINT8, 0): 1,
    (INT16, 0): 2,
    (UINT16, 0): 2,
    (UINT32, 0): 4,
    (INT32, 0): 4,
    (REAL, 0): 4,
    (f"{STR32}_3", 0): 16,
    (f"{STR8}_10", 0): 11,
    (f"{STR16}_10", 0): 22,
    (UINT32, 1): 4,
    (UINT32, 4): 16,
    (INT8, 5): 5,
    (f"{STR8}_10", 7): 11,
    (f"{UINT16}_9", 0): 2,
}

# What a subscription's data holds ahead of its first message, and behind it for ever.
UNTOUCHED = b"\xee"
GUARD = 64

FENCE = 300


def payloads(device, mosquitto, listen, memory, *cases):
    """What goes out for these bytes of tag memory: the payload of each case, a dict of attributes, sent three times."""
    listener = listen(mosquitto())
    publications = []
    for number, attributes in enumerate(cases, 1):
        device.tags.write(data_at(number), memory)
        publications.append(publication(number, **{"PeriodicInterval": 50} | attributes))
    device.configure(publications=publications)
    device.run()
    sent = [{message.payload for message in listener.wait_for(f"plc/data/{n}", 3)} for n in range(1, len(cases) + 1)]
    assert [len(different) for different in sent] == [1] * len(cases)
    return [different.pop() for different in sent]


def arrivals(device, mosquitto, send, *cases):
    """The tags' bytes after a message to each: a case is a dict of attributes, then one or more payloads in order."""
    entries = [subscription(number, **attributes) for number, (attributes, *_) in enumerate(cases, 1)]
    sender = subscribed_sender(device, mosquitto, send, entries)
    for entry, (_, *messages) in zip(entries, cases):
        for payload in messages:
            sender.publish(entry["Topic"], payload)
    pass_fence(device, sender)
    assert device.stray_writes() == []
    return [data_of(device, entry) for entry in entries]


def subscribed_sender(device, mosquitto, send, entries, *arguments):
    """Runs the service with these subscriptions, their data untouched, and gives a sender to their broker."""
    broker = mosquitto()
    for entry in entries:
        device.tags.write(entry["DataAddr"], UNTOUCHED * (data_size(entry) + GUARD))
    device.configure(subscriptions=[*entries, fence_subscription()])
    device.run(*arguments)
    return send(broker)


def fence_subscription():
    return subscription(FENCE, Topic="fence")


def pass_fence(device, sender):
    """Returns when all that `sender` sent before has been dealt with: messages are dealt with in their order."""
    number = int.from_bytes(device.received(FENCE), "little") + 1
    sender.publish("fence", number.to_bytes(4, "little"))
    wait_until(
        lambda: device.received(FENCE) == number.to_bytes(4, "little"), f"message {number} of the fence", timeout=20
    )


def data_of(device, entry):
    """A subscription's data. Nothing behind it may have been touched."""
    size = data_size(entry)
    data = device.tags.read(entry["DataAddr"], size + GUARD)
    assert data[size:] == UNTOUCHED * GUARD
    return data[:size]


def assert_only_what_went_out_is_counted(device, listener):
    """Once the service has ended. A message may have been on its way out, not counted yet, when the signal came."""
    sent = device.statistics().sent
    wait_until(lambda: len(listener.received) >= sent, lambda: f"{sent} messages; {len(listener.received)} came")
    assert len(listener.received) <= sent + 1
