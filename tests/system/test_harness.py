"""The tests' own tools, tried on independent partners."""

import os
import pathlib
import ssl
import struct
import threading
from xml.etree import ElementTree

import paho.mqtt.client

from support import certs, configuration, records, requests, tags
from support.scriptedbroker import Will, tls12_context
from support.waiting import wait_until


def connected_client(port=1883, **options):
    client = paho.mqtt.client.Client(**options)
    client.results = []
    client.on_connect = lambda _client, _context, flags, code: client.results.append((code, flags["session present"]))
    client.delivered = []
    client.on_publish = lambda _client, _context, identifier: client.delivered.append(identifier)
    return client


def test_each_test_has_a_controller_of_its_own():
    assert os.listdir("/VEL") == []
    assert not pathlib.Path(tags.SHARED_MEMORY).exists()
    assert not pathlib.Path("/dev/mqueue/MQTTQueue").exists()
    requests.Queue().close()


def test_scripted_broker_decodes_a_connect(scripted):
    broker = scripted()
    client = connected_client(client_id="käse", clean_session=False)
    client.username_pw_set("user", "secret")
    client.will_set("last/words", b"gone", qos=1, retain=True)
    client.connect("127.0.0.1", 1883, keepalive=77)
    client.loop_start()
    wait_until(lambda: client.results, "the answer")
    assert client.results == [(0, 0)]
    connect = broker.connects[0]
    assert connect[:8] == ("MQTT", 4, "käse", False, 77, Will("last/words", b"gone", 1, True), "user", "secret")
    client.loop_stop()


def test_scripted_broker_delivers_at_every_quality_of_service(scripted):
    broker = scripted()
    client = connected_client()
    client.connect("127.0.0.1", 1883)
    client.loop_start()
    for qos in range(3):
        message = client.publish("a/b", b"payload", qos=qos, retain=True)
        message.wait_for_publish(20)
        assert message.is_published()
    publishes = broker.on("a/b")
    assert [publish[:5] for publish in publishes] == [("a/b", b"payload", qos, True, False) for qos in range(3)]
    client.loop_stop()


def test_scripted_broker_delivers_messages_at_every_quality_of_service(scripted):
    broker = scripted()
    client = connected_client()
    granted, received = [], []
    client.on_subscribe = lambda _client, _context, _identifier, codes: granted.extend(codes)
    client.on_message = lambda _client, _context, message: received.append(message)
    client.connect("127.0.0.1", 1883)
    client.loop_start()
    client.subscribe([("ä/#", 2), ("b", 0)])
    wait_until(lambda: granted, "the answer to the subscription")
    assert granted == [2, 0]
    assert broker.subscribes[0].topics == [("ä/#", 2), ("b", 0)]
    for qos in range(3):
        broker.publish("ä/b", bytes(300), qos, 10 + qos, retain=True)
    wait_until(lambda: len(received) == 3, "the messages")
    assert [(message.topic, message.payload, message.qos, message.retain) for message in received] == [
        ("ä/b", bytes(300), qos, True) for qos in range(3)
    ]
    wait_until(lambda: broker.acknowledged == [11, 12], "the acknowledgements")
    client.loop_stop()


def test_scripted_broker_refuses_with_a_code(scripted):
    broker = scripted()
    broker.refuse = 5
    client = connected_client()
    client.connect("127.0.0.1", 1883)
    client.loop_start()
    wait_until(lambda: client.results, "the refusal")
    assert client.results[0] == (5, 0)
    client.loop_stop()


def test_tls12_listener_speaks_nothing_newer(scripted, device):
    device.configure()
    server = certs.Authority().issue("server")
    broker = scripted(tls=tls12_context(server, "DEFAULT"))
    client = connected_client()
    client.tls_set(str(server.authority), cert_reqs=ssl.CERT_REQUIRED)
    client.tls_insecure_set(True)
    client.connect("127.0.0.1", 1883)
    client.loop_start()
    wait_until(lambda: client.results, "the answer")
    assert [version for _, version in broker.ciphers] == ["TLSv1.2"]
    client.loop_stop()


def test_mosquitto_asks_for_a_client_certificate(mosquitto):
    authority = certs.Authority()
    broker = mosquitto(port=8883, tls=authority.issue("server"), client_authority=authority.certificate)
    identity = authority.issue("client")
    client = connected_client()
    client.tls_set(str(authority.certificate), str(identity.certificate), str(identity.key))
    client.tls_insecure_set(True)
    client.connect("127.0.0.1", 8883)
    client.loop_start()
    wait_until(lambda: client.results, "the answer")
    assert client.results == [(0, 0)]
    client.loop_stop()
    assert broker.logged("New client connected")


def test_tag_memory_records_are_decoded_by_offset():
    memory = tags.TagMemory()
    memory.write(100, bytes([4, 0, 0, 0, 2, 0, 3, 0, 5, 0, 0, 0]))
    assert memory.general(100) == records.General(records.TIME_NOT_SET, 2, 3, 5, 0)
    memory.write(tags.OPERAND_BASE + 8, bytes([1, 0, 0xF3, 0]))
    assert memory.broker(tags.OPERAND_BASE + 8) == records.BrokerStatus(1, 0, records.CONNECTION_LOST, 0)


def test_subscription_record_is_decoded_by_offset():
    memory = tags.TagMemory()
    topic = "a/ä😀".encode("utf-16-le")
    memory.write(2000, bytes([1, 0xF1, 1, 1]) + topic + b"\0\0left over")
    memory.write(2000 + 516, bytes([4, 3, 2, 1, 2, 0, 0, 0]))
    expected = records.SubscriptionStatus(1, records.SUBSCRIPTION_LOST, 1, 1, "a/ä😀", 0x01020304, 2)
    assert memory.subscription(2000) == expected
    assert records.SubscriptionStatus.SIZE == 524


def test_write_that_is_being_made_is_waited_for(monkeypatch):
    memory = tags.TagMemory()
    image = os.open(tags.SHARED_MEMORY, os.O_RDWR)
    whole = tags.JOURNAL_ENTRY.pack(1, 2_000_000_000, 44, 1, 17, b"\7")
    os.pwrite(image, bytes(8) + whole[8:], tags.JOURNAL_AT)
    os.pwrite(image, struct.pack("<Q", 1), 8)
    monkeypatch.setattr(tags, "WRITER_TIMEOUT", 0.5)
    assert memory.journal() == [], "a writer that was killed is not waited for without end"
    monkeypatch.setattr(tags, "WRITER_TIMEOUT", 30.0)
    writer = threading.Timer(0.2, os.pwrite, (image, whole, tags.JOURNAL_AT))
    writer.start()
    assert memory.journal() == [tags.Write(0, 2.0, 44, 1, 17, b"\7")]
    writer.join()
    os.close(image)


def test_writes_outside_of_what_is_configured_are_found(device):
    device.configure(
        brokers=[configuration.broker(AutoConnect=0)], subscriptions=[configuration.subscription(SubscribeAtBoot=0)]
    )
    device.run()
    assert device.stray_writes() == []
    device.configure(brokers=[], subscriptions=[])
    strays = {(write.position, write.size) for write in device.stray_writes()}
    assert strays == {(configuration.broker_at(1), 4), (configuration.subscription_at(1), 524)}


def test_configuration_values_survive_xml():
    text = "a\"b<c>&'\n;ü"
    xml = configuration.brokers_xml([configuration.broker(Name=text, Port=None)])
    assert "Port=" not in xml
    assert ElementTree.fromstring(xml).find("Brokers/BrokerConf").get("Name") == text
