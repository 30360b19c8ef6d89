"""The rows of the table: what is tried, and how it is proved. A check fails by an AssertionError that tells what came."""

import itertools
import signal
from typing import Callable, NamedTuple

from support import records, requests
from support.configuration import WILLS_AT, received_at, will
from support.waiting import holds_for, wait_until

FILES = {"ClientCertificateFileName": "client.crt", "ClientKeyFileName": "client.key"}

LARGE = 1 << 16
HUGE = 1 << 20


def number(value):
    return value.to_bytes(4, "little")


def passes_messages(rig, **attributes):
    """A message each way, in QoS 1."""
    listener, sender = rig.listen(), rig.send()
    rig.run([rig.publication(QOS=1)], [rig.subscription(QOS=1)], **attributes)
    assert rig.send_publication(b"ping") == requests.DONE
    assert listener.wait_for(rig.topic("out"))[0].payload == b"ping"
    sender.publish(rig.topic("in"), b"pong", qos=1)
    rig.device.wait_received(b"pong")


def is_turned_away(rig, code, **attributes):
    rig.device.configure([rig.broker(**attributes)])
    rig.device.run()
    rig.device.wait_code(code)
    assert rig.device.broker().connected == 0


def user_comes_in(rig):
    user = rig.partner.user or ("plc", "secret")
    passes_messages(rig, UserName=user[0], Password=user[1])


def wrong_password_is_refused(rig):
    user = rig.partner.user or ("plc", "secret")
    is_turned_away(rig, rig.partner.refusal, UserName=user[0], Password="wrong")


def unverified_tls(rig):
    passes_messages(rig, EncryptionType=1)


def stranger_is_no_broker(rig):
    is_turned_away(rig, -1, CAFileName="strangers.crt")


def client_certificate(rig):
    passes_messages(rig, EncryptionType=4, **FILES)


def foreign_client_certificate(rig):
    """With TLS 1.3 a broker looks at it when the connection stands for the client, so that the code is its own."""
    files = {"ClientCertificateFileName": "stranger.crt", "ClientKeyFileName": "stranger.key"}
    rig.device.configure([rig.broker(EncryptionType=4, **files)])
    rig.device.run()
    wait_until(lambda: rig.device.broker().code != 0, "the attempt to fail")
    holds_for(lambda: rig.device.broker().connected == 0, "the refusal", 2)


def quiet_connection_stays(rig):
    """Four times the interval without a message."""
    rig.run(KeepAlive=2)
    holds_for(lambda: rig.device.broker() == records.BrokerStatus(1, 0, 0), "the connection", 8)


def publishes(rig, qos):
    listener = rig.listen()
    rig.run([rig.publication(QOS=qos)])
    values = [number(value) for value in range(1, 4)]
    answers = [rig.send_publication(value) for value in values]
    assert answers == [requests.DONE] * len(values), f"requests answered {answers}"
    listener.wait_for(rig.topic("out"), len(values))
    wait_until(
        lambda: rig.device.statistics()[:2] == (len(values), len(values) if qos else 0),
        lambda: f"all acknowledgements; {rig.device.statistics()}",
    )
    assert [message.payload for message in listener.on(rig.topic("out"))] == values


def receives(rig, qos):
    sender = rig.send()
    rig.run(subscriptions=[rig.subscription(QOS=qos)])
    assert rig.device.subscription()[:2] == (1, 0)
    for value in range(1, 21):
        sender.publish(rig.topic("in"), number(value), qos)
    rig.device.wait_received(number(20))
    assert [write.data for write in rig.device.data_writes()] == [number(value) for value in range(1, 21)]
    assert rig.device.statistics().received == 20


def filters_with_wildcards(rig):
    sender = rig.send()
    filters = [f"{rig.name}/+/speed", f"{rig.name}/oven/#"]
    rig.run(subscriptions=[rig.subscription(identifier=n, Topic=text) for n, text in enumerate(filters, 1)])
    sender.publish(f"{rig.name}/oven/speed", number(7), qos=1)
    for identifier in (1, 2):
        rig.device.wait_received(number(7), identifier)


def retained_publication_waits(rig):
    rig.run([rig.publication(QOS=1, RetainFlag=1)])
    assert rig.send_publication(b"keep") == requests.DONE
    wait_until(lambda: rig.device.statistics().acknowledged == 1, "the acknowledgement")
    rig.device.service.stop()
    (message,) = rig.listen(rig.topic("out")).wait_for(rig.topic("out"))
    assert (message.payload, message.retain) == (b"keep", True)


def retained_message_reaches_the_tag(rig, **attributes):
    rig.send().publish(rig.topic("in"), b"kept", qos=1, retain=True)
    rig.run(subscriptions=[rig.subscription(QOS=1, **attributes)])
    rig.device.wait_received(b"kept")


def retained_message_finds_a_wildcard(rig):
    retained_message_reaches_the_tag(rig, Topic=f"{rig.name}/in/+")


def run_with_will(rig, **attributes):
    rig.device.tags.write(WILLS_AT, b"gone\0")
    listener = rig.listen()
    rig.run(**will(10, rig.topic("state")), **attributes)
    return listener


def will_of_a_killed_service(rig):
    listener = run_with_will(rig)
    rig.device.service.kill()
    assert listener.wait_for(rig.topic("state"))[0].payload == b"gone"


def will_of_a_service_ended_by_signal(rig):
    listener = run_with_will(rig)
    rig.device.service.stop()
    assert listener.wait_for(rig.topic("state"))[0].payload == b"gone"


def will_of_a_silent_service(rig):
    """The broker has to notice by itself, after one and a half times the keep-alive interval."""
    listener = run_with_will(rig, KeepAlive=2)
    rig.device.service.signal(signal.SIGSTOP)
    assert listener.wait_for(rig.topic("state"), timeout=15)[0].payload == b"gone"


def no_will_after_a_disconnect(rig):
    listener = run_with_will(rig)
    assert rig.device.requests.ask(requests.DISCONNECT, 1, timeout=20) == requests.DONE
    holds_for(lambda: not listener.received, "the silence", 2)


def messages_while_away(rig, qos):
    cable = rig.forwarder()
    sender = rig.send()
    rig.run(subscriptions=[rig.subscription(QOS=qos)], CleanSession=0, Port=cable.port)
    sender.publish(rig.topic("in"), number(0), qos)
    wait_until(rig.device.data_writes, "a message ahead of the cut")
    cable.cut()
    rig.device.wait_code(records.CONNECTION_LOST)
    for value in range(1, 6):
        sender.publish(rig.topic("in"), number(value), qos)
    cable.mend()
    wait_for_values(rig, range(6))
    assert rig.device.broker() == records.BrokerStatus(1, 1, 0)


def wait_for_values(rig, values):
    expected = [number(value) for value in values]

    def arrived():
        return [write.data for write in rig.device.data_writes()]

    wait_until(lambda: len(arrived()) >= len(expected), lambda: f"{expected}; {arrived()} arrived", 15)
    assert arrived() == expected


def session_outlives_the_broker(rig):
    """The subscription is still in force at the broker after its restart: nobody subscribes anew."""
    rig.run(subscriptions=[rig.subscription(QOS=1)], CleanSession=0)
    restart_broker(rig)
    rig.send().publish(rig.topic("in"), number(1), 1)
    wait_for_values(rig, [1])
    assert rig.device.broker().session_present == 1


def restart_broker(rig):
    rig.partner.stop()
    wait_until(lambda: rig.device.broker().connected == 0, "the loss of the connection")
    rig.partner.start()
    rig.device.wait_connected(timeout=30)


def comes_back_after_a_restart(rig):
    rig.run([rig.publication(QOS=1)], [rig.subscription(QOS=1)])
    restart_broker(rig)
    listener, sender = rig.listen(), rig.send()
    assert rig.send_publication(b"back") == requests.DONE
    listener.wait_for(rig.topic("out"))
    assert rig.device.requests.ask(requests.SUBSCRIBE, 1, timeout=20) == requests.DONE
    sender.publish(rig.topic("in"), b"here", qos=1)
    rig.device.wait_received(b"here")


def largest_publication(rig, **attributes):
    """5,000 bytes, which is all that a publication may have."""
    listener = rig.listen()
    rig.run([rig.publication(QOS=1, **attributes)])
    assert rig.send_publication(b"x" * 4998 + b"\0\0") == requests.DONE
    return listener.wait_for(rig.topic("out"))[0].payload


def largest_raw_publication(rig):
    payload = largest_publication(rig, DataType=records.UINT8, Ent=5000)
    assert payload == b"x" * 4998 + b"\0\0"


def largest_json_publication(rig):
    payload = largest_publication(rig, DataType=f"{records.STR8}_4998", PayloadFormat=records.JSON)
    assert payload == b'"' + b"x" * 4998 + b'"'


def large_message(rig):
    sender = rig.send()
    rig.run(subscriptions=[rig.subscription(QOS=1, DataType=records.UINT8, Ent=LARGE)])
    data = bytes(itertools.islice(itertools.cycle(range(251)), LARGE))
    sender.publish(rig.topic("in"), data, qos=1)
    wait_until(lambda: rig.device.tags.read(received_at(1), LARGE) == data, "the whole message in the tag")


def huge_message_does_no_harm(rig):
    """The tag has 4 bytes and takes no more; what the sender says next arrives as ever."""
    sender = rig.send()
    rig.run(subscriptions=[rig.subscription(QOS=1)])
    before = rig.device.tags.read(received_at(1) + 4, 64)
    sender.publish(rig.topic("in"), bytes([1]) * HUGE, qos=1)
    rig.device.wait_received(b"\1\1\1\1")
    sender.publish(rig.topic("in"), number(2), qos=1)
    rig.device.wait_received(number(2))
    assert rig.device.tags.read(received_at(1) + 4, 64) == before


class Check(NamedTuple):
    title: str
    run: Callable
    arguments: tuple = ()
    door: str = ""  # none: it is tried at those of both transports


# Tried once, each at a door of its own.
ENTRIES = {
    "user": Check("user name and password", user_comes_in, door="password"),
    "wrong-password": Check("a wrong password is refused", wrong_password_is_refused, door="password"),
    "level-1": Check("TLS, nothing verified (level 1)", unverified_tls, door="tls"),
    "level-2": Check("TLS, the broker's certificate verified (level 2)", passes_messages, door="tls"),
    "level-2-stranger": Check("a broker of another authority is turned down (level 2)", stranger_is_no_broker, door="tls"),
    "level-4": Check("TLS with a client certificate (level 4)", client_certificate, door="certificate"),
    "level-4-stranger": Check("a client certificate of another authority is refused", foreign_client_certificate, door="certificate"),
}

# Tried over TCP, and over TLS at level 2.
FEATURES = {
    "publish-0": Check("publications with QoS 0: each arrives once", publishes, (0,)),
    "publish-1": Check("publications with QoS 1: once, and acknowledged", publishes, (1,)),
    "publish-2": Check("publications with QoS 2: once, and acknowledged", publishes, (2,)),
    "receive-0": Check("subscription with QoS 0: all messages, in order", receives, (0,)),
    "receive-1": Check("subscription with QoS 1: all messages, once, in order", receives, (1,)),
    "receive-2": Check("subscription with QoS 2: all messages, once, in order", receives, (2,)),
    "wildcards": Check("filters with `+` and `#`", filters_with_wildcards),
    "retained-out": Check("retained publication reaches who comes later", retained_publication_waits),
    "retained-in": Check("retained message reaches the tag at subscribe", retained_message_reaches_the_tag),
    "retained-wildcard": Check("the same with a wildcard in the filter", retained_message_finds_a_wildcard),
    "will-killed": Check("will, when the service is killed", will_of_a_killed_service),
    "will-signal": Check("will, when the service ends by a signal", will_of_a_service_ended_by_signal),
    "will-silent": Check("will, when the service falls silent", will_of_a_silent_service),
    "will-none": Check("no will after a disconnect request", no_will_after_a_disconnect),
    "keep-alive": Check("a quiet connection stays (keep-alive)", quiet_connection_stays),
    "away-1": Check("`CleanSession` 0: messages of a cut connection's time, QoS 1", messages_while_away, (1,)),
    "away-2": Check("`CleanSession` 0: messages of a cut connection's time, QoS 2", messages_while_away, (2,)),
    "session-restart": Check("`CleanSession` 0: the session outlives the broker's restart", session_outlives_the_broker),
    "restart": Check("`CleanSession` 1: back at work after the broker's restart", comes_back_after_a_restart),
    "raw-out": Check("publication of 5,000 bytes, the largest", largest_raw_publication),
    "json-out": Check("the same as JSON", largest_json_publication),
    "large-in": Check("message of 64 KiB into a tag", large_message),
    "huge-in": Check("message of 1 MiB for a tag of 4 bytes does no harm", huge_message_does_no_harm),
}
