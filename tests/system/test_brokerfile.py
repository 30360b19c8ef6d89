"""What becomes of each attribute of a broker: the calls that the client library sees, and the CONNECT on the wire."""

import re

import pytest

from support import configuration, records
from support.configuration import broker, will
from support.device import VERBOSE, client_library_calls
from support.records import BrokerStatus
from support.waiting import holds_for, wait_until


def creations(device, *brokers):
    """The MQTTClient_create calls of a start with these brokers."""
    device.configure(brokers=list(brokers))
    device.run(spy=True)
    return client_library_calls("create")


def connect_options(device, **attributes):
    """The options of the first connection attempt of a broker that nobody runs."""
    device.configure(brokers=[broker(Port=4, ConnectionInterval=0, **attributes)])
    device.run(spy=True)
    return client_library_calls("connect")[0]["options"]


def connect_packet(device, scripted, **attributes):
    partner = scripted()
    device.configure(brokers=[broker(**attributes)])
    device.run()
    return partner.connects[0]


def test_client_is_created_with_file_persistence(device):
    assert creations(device, broker(AutoConnect=0)) == [
        {
            "function": "create",
            "serverURI": "tcp://127.0.0.1:1883",
            "clientId": "plc-1",
            "persistence_type": 0,
            "persistence_context": "/tmp/MQTT_PERSISTENCE",
            "result": 0,
        }
    ]


def test_callbacks_are_set_before_each_attempt(device):
    device.configure(brokers=[broker(Port=4)])
    device.run(spy=True)
    wait_until(lambda: len(client_library_calls("connect")) >= 2, "a second attempt")
    calls = [call["function"] for call in client_library_calls()][:5]
    assert calls == ["create", "setCallbacks", "connect", "setCallbacks", "connect"]
    assert client_library_calls("setCallbacks")[0] == {
        "function": "setCallbacks",
        "context": True,
        "connectionLost": True,
        "messageArrived": True,
        "deliveryComplete": True,
        "result": 0,
    }


def test_scheme_follows_from_the_encryption_level(device):
    schemes = {0: "tcp", 1: "ssl", 2: "ssl", 3: "ssl", 4: "ssl", 6: "ssl", 99: "ssl"}
    brokers = [broker(n, EncryptionType=level, AutoConnect=0) for n, level in enumerate(schemes, 1)]
    calls = creations(device, *brokers)
    assert [call["serverURI"] for call in calls] == [f"{scheme}://127.0.0.1:1883" for scheme in schemes.values()]


def test_port_is_read_without_validation(device):
    ports = {"abc": 0, "": 0, None: 0, "-1": 0, "0x10": 0, "4294967296": 0, " 77 ": 77, "4294967295": 4294967295}
    calls = creations(device, *(broker(n, Port=text, AutoConnect=0) for n, text in enumerate(ports, 1)))
    assert [call["serverURI"] for call in calls] == [f"tcp://127.0.0.1:{port}" for port in ports.values()]


def test_host_name_and_client_identifier_are_handed_over_as_utf8(device):
    (call,) = creations(device, broker(IPOrURL="bröker.example", ClientID="käse/漢字", AutoConnect=0))
    assert (call["serverURI"], call["clientId"]) == ("tcp://bröker.example:1883", "käse/漢字")


def test_missing_client_identifier_is_made_up_anew_for_each_start(device):
    made_up = []
    for identifier in ("", None):
        (call,) = creations(device, broker(ClientID=identifier, AutoConnect=0))[len(made_up) :]
        made_up.append(call["clientId"])
        device.service.kill()
        device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))
    assert all(re.fullmatch(r"[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}", text) for text in made_up)
    assert made_up[0] != made_up[1]


def test_client_identifier_of_blanks_is_taken_as_it_stands(device):
    (call,) = creations(device, broker(ClientID="   ", AutoConnect=0))
    assert call["clientId"] == "   "


def test_variables_are_expanded_in_the_will_topic_only(device):
    with_variables = {"ClientID": "{PLC.SN}", "UserName": "{PLC.NAME}"}
    options = connect_options(device, **with_variables, **will(5, topic="a/{PLC.SN}/{PLC.NAME}"))
    assert client_library_calls("create")[0]["clientId"] == "{PLC.SN}"
    assert options["username"] == "{PLC.NAME}"
    assert options["will"]["topicName"] == "a/SN123/press"


def test_connect_packet_carries_the_configured_values(device, scripted):
    packet = connect_packet(
        device, scripted, ClientID="press-7", KeepAlive=77, CleanSession=0, UserName="öl", Password="geheim€"
    )
    assert packet[:8] == ("MQTT", 4, "press-7", False, 77, None, "öl", "geheim€")


def test_empty_user_and_password_are_none(device, scripted):
    packet = connect_packet(device, scripted, UserName="", Password=None)
    assert (packet.user, packet.password) == (None, None)


def test_user_without_password_is_sent_alone(device, scripted):
    packet = connect_packet(device, scripted, UserName="anna")
    assert (packet.user, packet.password) == ("anna", None)


@pytest.mark.parametrize(
    "text, clean", [("1", True), ("0", False), ("2", True), ("-1", True), ("true", False), (None, False)]
)
def test_flags_are_numbers(device, scripted, text, clean):
    assert connect_packet(device, scripted, CleanSession=text).clean_session is clean


def test_missing_auto_connect_means_no_attempt(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(AutoConnect=None)])
    device.run()
    holds_for(lambda: partner.connections == 0, "no attempt", 2.5)
    assert device.broker() == BrokerStatus(0, 0, 0)


def test_missing_file_attributes_leave_the_bare_directory(device):
    options = connect_options(device, EncryptionType=4)
    directory = "/VEL/UserApps/Config/MQTT/"
    assert [options["ssl"][field] for field in ("trustStore", "keyStore", "privateKey")] == [directory] * 3


def test_file_attributes_that_the_level_does_not_read_are_ignored(device):
    options = connect_options(
        device, EncryptionType=1, CAFileName="ca.crt", ClientCertificateFileName="c.crt", ClientKeyFileName="c.key"
    )
    assert [options["ssl"][field] for field in ("trustStore", "keyStore", "privateKey")] == [None] * 3


def test_will_address_of_minus_1_means_no_will(device):
    assert connect_options(device, LastWillTopic="plc/gone", LastWillAddr=-1, DataType="11_5")["will"] is None


def test_missing_will_address_means_address_0(device):
    device.tags.write(0, b"down\0")
    options = connect_options(device, LastWillTopic="plc/gone", LastWillAddr=None, DataType="11_5")
    assert options["will"]["message"] == "down"


def test_will_without_a_size_is_an_empty_message(device):
    device.tags.write(configuration.WILLS_AT, b"down\0")
    data_types = [None, "", "0", "11", "x_y", "13", "-4", "10_4"]
    attributes = {"Port": 4, "ConnectionInterval": 0} | will(5)
    device.configure(brokers=[broker(n, **attributes | {"DataType": text}) for n, text in enumerate(data_types, 1)])
    device.run(spy=True)
    messages = [call["options"]["will"]["message"] for call in client_library_calls("connect")]
    assert messages == [""] * len(data_types)


def test_parts_behind_the_length_are_ignored(device):
    device.tags.write(configuration.WILLS_AT, b"abcdefghij")
    assert connect_options(device, **will(5) | {"DataType": "11_3_9"})["will"]["message"] == "abcd"


def test_element_of_another_name_behind_the_first_is_a_broker_too(device):
    device.configure(brokers=[broker(1, AutoConnect=0), broker(2, AutoConnect=0), broker(3, AutoConnect=0)])
    before, first, second, third = configuration.BROKERS_FILE.read_text().split("<BrokerConf ")
    text = f"{before}<BrokerConf {first}<Anything {second}<BrokerConf {third}"
    configuration.BROKERS_FILE.write_text(text)
    device.run(spy=True)
    assert device.general().brokers == 3
    assert [call["clientId"] for call in client_library_calls("create")] == ["plc-1", "plc-2", "plc-3"]


def test_comments_and_text_between_brokers_are_passed_over(device):
    device.configure(brokers=[broker(1, AutoConnect=0), broker(2, AutoConnect=0)])
    text = configuration.BROKERS_FILE.read_text().replace("<BrokerConf ", "words<!-- remark --><BrokerConf ")
    configuration.BROKERS_FILE.write_text(text)
    device.run()
    assert device.general().brokers == 2


def test_attribute_names_are_case_sensitive(device):
    device.configure(brokers=[broker(AutoConnect=0, ClientID=None, clientid="x", Clientid="y")])
    device.run(spy=True)
    assert len(client_library_calls("create")[0]["clientId"]) == 36


def test_two_brokers_with_one_identifier_are_both_kept_and_the_first_is_found(device, scripted):
    first, second = scripted(1883), scripted(1884)
    device.configure(
        brokers=[broker(1, ID=5), broker(2, ID=5, Port=1884)],
        publications=[configuration.publication(CBrokerID=5, PeriodicInterval=20)],
    )
    device.run()
    assert device.general().brokers == 2
    wait_until(lambda: len(first.publishes) > 5, "publications on the first")
    assert len(first.connects) == len(second.connects) == 1
    assert second.publishes == []


def test_status_block_lies_at_the_configured_address(device, scripted):
    scripted()
    device.configure(brokers=[broker(BrokerAddr=0x7777)])
    device.run()
    assert device.tags.broker(0x7777) == BrokerStatus(1, 0, 0)


def test_status_block_outside_tag_memory_does_no_harm(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(
        brokers=[broker(BrokerAddr=4294967295)], publications=[configuration.publication(PeriodicInterval=50)]
    )
    device.run()
    listener.wait_for("plc/data/1", 3)


def test_file_in_another_encoding_is_read_by_its_declaration(device):
    device.configure(brokers=[broker(AutoConnect=0, ClientID="käse")])
    text = '<?xml version="1.0" encoding="ISO-8859-1"?>\n' + configuration.BROKERS_FILE.read_text()
    configuration.BROKERS_FILE.write_bytes(text.encode("iso-8859-1"))
    device.run(*VERBOSE, spy=True)
    assert client_library_calls("create")[0]["clientId"] == "käse"
