"""The sample device: its configuration is sound, its scripts keep their contracts."""

import json
import subprocess
import xml.etree.ElementTree as ElementTree

import pytest

from conftest import DEVICE_ROOT

CONFIGURATION = DEVICE_ROOT / "VEL/UserApps/Config/MQTT"
SCRIPTS = "/VEL/System/Config/Scripts"
PROTOBUF = "/VEL/UserApps/Config/MQTT/Protobuf"

BROKER = {"Name", "IPOrURL", "ClientID", "EncryptionType", "UserName", "Password", "LastWillTopic", "Port", "KeepAlive",
          "ConnectionInterval", "LastWillAddr", "ID", "CleanSession", "AutoConnect", "BrokerAddr", "DataType"}
ENTITY = {"ID", "Name", "Topic", "QOS", "PayloadEncryption", "DataAddr", "CBrokerID", "Ent", "PayloadFormat",
          "DataType"}
PUBLICATION = ENTITY | {"RetainFlag", "PeriodicInterval", "BrokerReceivedAddr"}
SUBSCRIPTION = ENTITY | {"IsBuffered", "SubscribeAtBoot", "SubAddr"}
MEMBER = {"Off", "DataType", "DName", "Ent"}
UNIT_SIZES = {1: 1, 2: 1, 3: 1, 4: 2, 5: 2, 6: 4, 7: 4, 8: 4, 9: 4, 11: 1, 12: 2}
STRINGS = (9, 11, 12)
STRUCT = "10"


def elements(file, path):
    return ElementTree.parse(CONFIGURATION / file).getroot().findall(path)


def brokers():
    return elements("Brokers.xml", "Brokers/BrokerConf")


def publications():
    return elements("Publications.xml", "Publications/PublicationConf")


def subscriptions():
    return elements("Subscriptions.xml", "Subscriptions/SubscriptionConf")


def size_of(data_type, entries):
    number, _, length = data_type.partition("_")
    unit = UNIT_SIZES[int(number)]
    return unit * (int(length) + 1) if int(number) in STRINGS else unit * max(1, int(entries))


def data_size(entity):
    if entity.get("DataType") != STRUCT:
        return size_of(entity.get("DataType"), entity.get("Ent"))
    last = entity.findall("DataMembers/DataMember")[-1]
    return int(last.get("Off"), 16) + size_of(last.get("DataType"), last.get("Ent"))


def tags():
    """Every place in tag memory that the configuration names: (position, size, name)."""
    general = ElementTree.parse(CONFIGURATION / "MQTTClientConf.xml").getroot()
    yield int(general.find("General").get("Addr")), 12, "general record"
    yield int(general.find("Statistics").get("Addr")), 16, "statistics record"
    yield 44, 1, "link state of port 1"
    yield 47, 1, "link state of port 2"
    for broker in brokers():
        yield int(broker.get("BrokerAddr")), 4, f"{broker.get('Name')} status"
        if broker.get("LastWillAddr") != "-1":
            yield int(broker.get("LastWillAddr")), size_of(broker.get("DataType"), "0"), f"{broker.get('Name')} will"
    for publication in publications():
        yield int(publication.get("DataAddr")), data_size(publication), f"{publication.get('Name')} data"
        if publication.get("BrokerReceivedAddr") != "-1":
            yield int(publication.get("BrokerReceivedAddr")), 1, f"{publication.get('Name')} acknowledgement"
    for subscription in subscriptions():
        yield int(subscription.get("DataAddr")), data_size(subscription), f"{subscription.get('Name')} data"
        yield int(subscription.get("SubAddr")), 524, f"{subscription.get('Name')} record"


def test_every_element_has_exactly_its_attributes():
    for broker in brokers():
        certificate = {"CAFileName"} if broker.get("EncryptionType") == "2" else set()
        assert set(broker.keys()) == BROKER | certificate, broker.get("Name")
    for publication in publications():
        assert set(publication.keys()) == PUBLICATION, publication.get("Name")
    for subscription in subscriptions():
        assert set(subscription.keys()) == SUBSCRIPTION, subscription.get("Name")
    for entity in publications() + subscriptions():
        for member in entity.findall("DataMembers/DataMember"):
            assert set(member.keys()) == MEMBER


def test_no_two_tags_overlap_and_all_lie_low():
    end, before = 0, "the beginning"
    for position, size, name in sorted(tags()):
        assert position >= end, f"{name} begins inside {before}"
        end, before = position + size, name
    assert end <= 65536


def test_ids_are_unique_and_every_entity_names_a_broker():
    known = {broker.get("ID") for broker in brokers()}
    for group in (brokers(), publications(), subscriptions()):
        ids = [entry.get("ID") for entry in group]
        assert len(ids) == len(set(ids)) > 0
    assert {entity.get("CBrokerID") for entity in publications() + subscriptions()} <= known


def test_struct_members_stand_by_rising_offset_without_overlap():
    structs = [entity for entity in publications() + subscriptions() if entity.get("DataType") == STRUCT]
    assert len(structs) == 2
    for entity in structs:
        end = 0
        for member in entity.findall("DataMembers/DataMember"):
            assert member.get("Off").startswith("0x") and int(member.get("Off"), 16) >= end
            end = int(member.get("Off"), 16) + size_of(member.get("DataType"), member.get("Ent"))


def test_settings_name_the_controller():
    settings = DEVICE_ROOT / "VEL/System/Config/RetainedConfig/SystemRegistry/PlcSettings.json"
    assert json.loads(settings.read_text())["plcName"] == "bottling-1"


def test_no_file_of_the_ca_directory_counts_as_a_candidate():
    directory = DEVICE_ROOT / "etc/CA_Certificates"
    assert list(directory.iterdir()) and not [*directory.glob("*.pem"), *directory.glob("*.crt")]


@pytest.mark.parametrize("command", [
    ["python", f"{SCRIPTS}/PYGetPLCSerial.py"],
    [f"{SCRIPTS}/ManageMac.sh", "Get", "Ac"],
])
def test_identity_is_one_line_that_counts_as_known(sandbox, command):
    output = sandbox.output(*command)
    assert output.count("\n") == 1 and output.strip() and "00000000000" not in output


def test_mac_script_knows_one_question(sandbox):
    assert sandbox.run(f"{SCRIPTS}/ManageMac.sh", "Set", "Ac").returncode == 2


@pytest.mark.parametrize("year, answer", [("1970", "0\n"), ("2019", "0\n"), ("2020", "1\n"), ("2031", "1\n")])
def test_clock_check_goes_by_the_year(sandbox, tmp_path, year, answer):
    clock = tmp_path / "date"
    clock.write_text(f"#!/bin/sh\necho {year}\n")
    clock.chmod(0o755)
    options = ["--ro-bind", clock, "/usr/bin/date"]
    assert sandbox.output(f"{SCRIPTS}/ValidateSystemTimeIsSet.sh", options=options) == answer


def triggered_operation(sandbox, *arguments):
    result = "/tmp/HandleMQTTTriggeredOp_URL.txt"
    script = f'{PROTOBUF}/HandleMQTTTriggeredOp.sh "$@"; if [ -e {result} ]; then cat {result}; fi'
    return sandbox.output("sh", "-c", script, "sh", *arguments)


def test_triggered_operation_hands_back_a_text_or_nothing_or_fails(sandbox):
    assert triggered_operation(sandbox, "url", "report.csv") == "0\nhttp://controller/export/report.csv\0"
    assert triggered_operation(sandbox, "check") == "1\n"
    for arguments in (["unknown"], [], ["url"]):
        output = triggered_operation(sandbox, *arguments)
        assert "0" not in output and "1" not in output


PROTOBUF_HELPER = ["python", "/usr/UserApps_0/Config/MQTT/Protobuf/CreateProtobufBuffer.py"]


@pytest.mark.parametrize("description, message", [
    ('{"1": 150}', "08 96 01"),
    ('{"2": "testing"}', "12 07 74 65 73 74 69 6e 67"),
    ('{"1": -1, "16": true}', "08 ff ff ff ff ff ff ff ff ff 01 80 01 01"),
    ('{"3": 8.5}', "19 00 00 00 00 00 00 21 40"),
])
def test_protobuf_helper_encodes_the_described_fields(sandbox, description, message):
    (sandbox.device / "VEL/UserApps/Config/MQTT/Protobuf/Test.json").write_text(description)
    sandbox.output(*PROTOBUF_HELPER, f"{PROTOBUF}/Test.json")
    assert (sandbox.device / "VEL/System/Config/ProtobufForMQTT").read_bytes() == bytes.fromhex(message)


@pytest.mark.parametrize("description", ["no JSON", "[1]", '{"1": null}', '{"x": 1}', '{"1": "' + "x" * 5000 + '"}'])
def test_protobuf_helper_leaves_no_message_on_an_error(sandbox, description):
    (sandbox.device / "VEL/UserApps/Config/MQTT/Protobuf/Test.json").write_text(description)
    stale = sandbox.device / "VEL/System/Config/ProtobufForMQTT"
    stale.write_bytes(b"stale")
    assert sandbox.run(*PROTOBUF_HELPER, f"{PROTOBUF}/Test.json").returncode == 1
    assert not stale.exists()


@pytest.fixture
def tls_server(tmp_path):
    """A TLS server on a port of its own, with a certificate that its CA (ca.pem) signed; other.pem is another CA."""
    def openssl(*arguments):
        subprocess.run(["openssl", *arguments], cwd=tmp_path, check=True, capture_output=True)

    for name in ("ca", "other"):
        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{name}.key", "-out", f"{name}.pem",
                "-subj", f"/CN={name}")
    openssl("req", "-newkey", "rsa:2048", "-nodes", "-keyout", "server.key", "-out", "server.csr",
            "-subj", "/CN=server")
    openssl("x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-out", "server.pem")
    return tmp_path


@pytest.mark.parametrize("ca_file, unknown_issuer", [("ca.pem", False), ("other.pem", True), ("missing.pem", True)])
def test_connectivity_check_counts_unknown_issuers(sandbox, tls_server, ca_file, unknown_issuer):
    check = f"{SCRIPTS}/OpenSslCheckConnectivity.sh 127.0.0.1 8883 /certificates/no.crt /certificates/no.key " \
            f"/certificates/{ca_file} /VEL/UserApps/Config/MQTT/"
    script = f"""
openssl s_server -accept 8883 -cert /certificates/server.pem -key /certificates/server.key -quiet </dev/null &
for attempt in $(seq 100); do
    if python -c 'import socket; socket.create_connection(("127.0.0.1", 8883))' 2>/dev/null; then break; fi
done
{check}
"""
    output = sandbox.run("sh", "-c", script, options=["--bind", tls_server, "/certificates"]).stdout
    assert output.strip().isdigit() and (int(output) > 0) == unknown_issuer


def test_connectivity_check_of_a_server_that_is_not_there_is_0(sandbox):
    check = [f"{SCRIPTS}/OpenSslCheckConnectivity.sh", "127.0.0.1", "8883", "", "", "/ca.pem", "/VEL"]
    assert sandbox.run(*check).stdout == "0\n"
