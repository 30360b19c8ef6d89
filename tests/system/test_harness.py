"""The tests' own tools, tried on independent partners."""

import os
import pathlib
import ssl
from xml.etree import ElementTree

import paho.mqtt.client

from support import certs, configuration, device as device_support, records, tags
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
    device_support.create_queue()


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
        client.publish("a/b", b"payload", qos=qos, retain=True).wait_for_publish(5)
    publishes = broker.on("a/b")
    assert [publish[:5] for publish in publishes] == [("a/b", b"payload", qos, True, False) for qos in range(3)]
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


def test_configuration_values_survive_xml():
    text = "a\"b<c>&'\n;ü"
    xml = configuration.brokers_xml([configuration.broker(Name=text, Port=None)])
    assert "Port=" not in xml
    assert ElementTree.fromstring(xml).find("Brokers/BrokerConf").get("Name") == text
