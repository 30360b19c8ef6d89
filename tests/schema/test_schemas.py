"""The XML schemas: what the service is meant to get validates, and a mistake is found in its line."""

import re
import subprocess

import pytest
from support import configuration, records
from support.build import REPOSITORY
from support.configuration import broker, member, publication, subscription, will

SAMPLES = [
    REPOSITORY / "Platform" / "DeviceRoot" / "VEL/UserApps/Config/MQTT",
    REPOSITORY / "Platform" / "SelfTest" / "VEL/UserApps/Config/MQTT",
    REPOSITORY / "docs" / "examples",
]
FILES = ["MQTTClientConf", "Brokers", "Subscriptions", "Publications"]


def validate(path, name):
    """The parser's complaints, as (line, text)."""
    schema = REPOSITORY / "schemas" / f"{name}.xsd"
    finished = subprocess.run(
        ["xmllint", "--noout", "--schema", schema, path], capture_output=True, check=False, text=True
    )
    complaints = re.findall(rf"^{re.escape(str(path))}:(\d+): (.*)$", finished.stderr, re.MULTILINE)
    assert (finished.returncode == 0) == (not complaints), finished.stderr
    return [(int(line), text) for line, text in complaints]


def complaints_about(text, name, tmp_path):
    path = tmp_path / f"{name}.xml"
    path.write_text(text, encoding="utf-8")
    return validate(path, name)


@pytest.mark.parametrize("name", FILES)
@pytest.mark.parametrize("directory", SAMPLES, ids=lambda path: path.relative_to(REPOSITORY).parts[1])
def test_files_that_are_shipped_validate(directory, name):
    assert validate(directory / f"{name}.xml", name) == []


MEMBERS = [member(0, records.UINT32, "number"), member(4, "11_20", "text"), member(26, records.REAL, "values", 3)]
GENERATED = {
    "general": ("MQTTClientConf", configuration.general_xml()),
    "brokers of all levels": (
        "Brokers",
        configuration.brokers_xml(
            [
                broker(1),
                broker(2, EncryptionType=2, CAFileName="ca.pem", **will(30)),
                broker(3, EncryptionType=4, CAFileName="c", ClientCertificateFileName="d", ClientKeyFileName="k"),
                broker(4, EncryptionType=5, CAFileName="c", ClientKeyFileName="k", GoogleCloudProjectID="p",
                       JWTAlgorithm="ES256"),
                broker(5, IPOrURL="[::1]", ClientID=None, CleanSession=0, UserName="müller", Password="geheim"),
                broker(6, CAFileName="", ClientKeyFileName="", JWTAlgorithm="", GoogleCloudProjectID=""),
            ]
        ),
    ),
    "no entries": ("Publications", configuration.callers_xml([], "Publication")),
    "publications": (
        "Publications",
        configuration.callers_xml(
            [publication(1), publication(2, MEMBERS, DataType=records.STRUCT, PayloadFormat=1),
             publication(3, DataType="12_63", PeriodicInterval=-1, QOS=2, RetainFlag=1)],
            "Publication",
        ),
    ),
    "subscriptions": (
        "Subscriptions",
        configuration.callers_xml(
            [subscription(1), subscription(2, MEMBERS, DataType=records.STRUCT, PayloadFormat=1, IsBuffered=1),
             subscription(3, Topic="plc/+/alarm"), subscription(4, Topic="plc/#"), subscription(5, Topic="#")],
            "Subscription",
        ),
    ),
}  # fmt: skip


@pytest.mark.parametrize("name, text", GENERATED.values(), ids=GENERATED)
def test_configurations_of_the_tests_validate(name, text, tmp_path):
    assert complaints_about(text, name, tmp_path) == []


TURNED_ROUND = '<ClientConf>\n<!-- first --><Statistics Addr="1"/><General Addr="2"/>\n</ClientConf>'


def test_order_counts_only_where_the_service_looks_at_it(tmp_path):
    assert complaints_about(TURNED_ROUND, "MQTTClientConf", tmp_path) == []


# The parser names the line in which an element's tag ends.
BROKER_LINE = 6
PUBLICATION_LINE = 6
SECOND_PUBLICATION_LINE = 9
SUBSCRIPTION_LINE = 6
MEMBER_LINE = 11

# What is replaced in an example file, by what, and where it is found.
MISTAKES = [
    ("MQTTClientConf", '<General Addr="1024"/>', "", 2, "General"),
    ("MQTTClientConf", ' Addr="1024"', "", 3, "Addr"),
    ("MQTTClientConf", 'Addr="1024"', 'Addr="0x400"', 3, "Addr"),
    ("MQTTClientConf", 'Addr="1024"', 'Addr="4294967296"', 3, "Addr"),
    ("MQTTClientConf", 'Addr="1024"', 'Adr="1024"', 3, "Adr"),
    ("MQTTClientConf", '<General Addr="1024"/>', '<General Addr="1"/><General Addr="2"/>', 3, "General"),
    ("MQTTClientConf", "ClientConf", "Conf", 2, "Conf"),
    ("Brokers", "Brokers>", "brokers>", 3, "brokers"),
    ("Brokers", "<BrokerConf ", "<Broker ", BROKER_LINE, "Broker"),
    ("Brokers", 'Port="1883"', 'Port="0"', BROKER_LINE, "Port"),
    ("Brokers", 'Port="1883"', 'Port="65536"', BROKER_LINE, "Port"),
    ("Brokers", 'Port="1883"', "", BROKER_LINE, "Port"),
    ("Brokers", 'IPOrURL="127.0.0.1"', 'IPOrURL="mqtt://127.0.0.1"', BROKER_LINE, "IPOrURL"),
    ("Brokers", 'IPOrURL="127.0.0.1"', 'IPOrURL="127.0.0.1:1883"', BROKER_LINE, "IPOrURL"),
    ("Brokers", 'IPOrURL="127.0.0.1"', f'IPOrURL="{128 * "a"}"', BROKER_LINE, "IPOrURL"),
    ("Brokers", 'AutoConnect="1"', 'AutoConnect="true"', BROKER_LINE, "AutoConnect"),
    ("Brokers", 'KeepAlive="30"', 'KeepAlive="70000"', BROKER_LINE, "KeepAlive"),
    ("Brokers", 'ClientID="line-1"', f'ClientID="{232 * "a"}"', BROKER_LINE, "ClientID"),
    ("Brokers", ' LastWillAddr="-1"', "", BROKER_LINE, "LastWillAddr"),
    ("Brokers", 'LastWillAddr="-1"', 'LastWillAddr="-2"', BROKER_LINE, "LastWillAddr"),
    ("Brokers", 'ID="1"', 'ID="1" EncryptionType="6"', BROKER_LINE, "EncryptionType"),
    ("Brokers", 'ID="1"', 'ID="1" JWTAlgorithm="rs256"', BROKER_LINE, "JWTAlgorithm"),
    ("Brokers", 'ID="1"', 'ID="1" DataType="10"', BROKER_LINE, "DataType"),
    ("Brokers", 'ID="1"', 'ID="1" LastWillTopic="a/#"', BROKER_LINE, "LastWillTopic"),
    ("Brokers", 'ID="1"', 'ID="65536"', BROKER_LINE, "ID"),
    ("Brokers", 'ID="1"', 'id="1"', BROKER_LINE, "id"),
    ("Publications", 'DataType="8"', 'DataType="13"', PUBLICATION_LINE, "DataType"),
    ("Publications", 'DataType="8"', 'DataType="0"', PUBLICATION_LINE, "DataType"),
    ("Publications", 'DataType="8"', 'DataType="11"', PUBLICATION_LINE, "DataType"),
    ("Publications", 'DataType="8"', 'DataType="8_4"', PUBLICATION_LINE, "DataType"),
    ("Publications", 'DataType="8"', 'DataType="11_0"', PUBLICATION_LINE, "DataType"),
    ("Publications", 'DataType="8"', 'DataType="REAL"', PUBLICATION_LINE, "DataType"),
    ("Publications", 'Topic="plant/{PLC.NAME}/speed"', 'Topic="plant/+/speed"', PUBLICATION_LINE, "Topic"),
    ("Publications", 'Topic="plant/{PLC.NAME}/speed"', 'Topic=""', PUBLICATION_LINE, "Topic"),
    ("Publications", 'Topic="plant/{PLC.NAME}/speed"', f'Topic="{256 * "a"}"', PUBLICATION_LINE, "Topic"),
    ("Publications", 'PeriodicInterval="1000"', 'PeriodicInterval="-2"', PUBLICATION_LINE, "PeriodicInterval"),
    ("Publications", 'PeriodicInterval="1000"', "", PUBLICATION_LINE, "PeriodicInterval"),
    ("Publications", 'DataType="8"', 'DataType="8" QOS="3"', PUBLICATION_LINE, "QOS"),
    ("Publications", 'DataType="8"', 'DataType="8" QoS="1"', PUBLICATION_LINE, "QoS"),
    ("Publications", 'PayloadFormat="1"', 'PayloadFormat="json"', PUBLICATION_LINE, "PayloadFormat"),
    ("Publications", 'DataType="8"', 'DataType="8" Ent="-1"', PUBLICATION_LINE, "Ent"),
    ("Publications", ' BrokerReceivedAddr="-1"', "", PUBLICATION_LINE, "BrokerReceivedAddr"),
    ("Publications", 'ID="2"', 'ID="1"', SECOND_PUBLICATION_LINE, ".ID"),
    ("Publications", 'Off="0x0"', 'Off="0"', MEMBER_LINE, "Off"),
    ("Publications", 'Off="0x0"', 'Off="0x10000"', MEMBER_LINE, "Off"),
    ("Publications", 'Off="0x0" DataType="6"', 'Off="0x0" DataType="10"', MEMBER_LINE, "DataType"),
    ("Publications", ' DName="number"', "", MEMBER_LINE, "DName"),
    ("Publications", 'DName="number"', "DName='num\"ber'", MEMBER_LINE, "DName"),
    ("Publications", 'DName="pressures"', 'DName="number"', MEMBER_LINE + 1, ".DName"),
    ("Subscriptions", ' SubAddr="8192"', "", SUBSCRIPTION_LINE, "SubAddr"),
    ("Subscriptions", 'Topic="plant/{PLC.NAME}/set/speed"', 'Topic="a/b#"', SUBSCRIPTION_LINE, "Topic"),
    ("Subscriptions", 'Topic="plant/{PLC.NAME}/set/speed"', 'Topic="a/#/c"', SUBSCRIPTION_LINE, "Topic"),
    ("Subscriptions", 'Topic="plant/{PLC.NAME}/set/speed"', 'Topic="+/b/#"', SUBSCRIPTION_LINE, "Topic"),
    ("Subscriptions", 'SubscribeAtBoot="1"', 'SubscribeAtBoot="yes"', SUBSCRIPTION_LINE, "SubscribeAtBoot"),
    ("Subscriptions", 'SubscribeAtBoot="1"', 'RetainFlag="1"', SUBSCRIPTION_LINE, "RetainFlag"),
]


@pytest.mark.parametrize("name, right, wrong, line, about", MISTAKES)
def test_a_mistake_is_found_in_its_line(name, right, wrong, line, about, tmp_path):
    example = (REPOSITORY / "docs" / "examples" / f"{name}.xml").read_text(encoding="utf-8")
    assert right in example
    complaints = complaints_about(example.replace(right, wrong), name, tmp_path)
    assert complaints
    first_line, text = complaints[0]
    assert first_line == line
    assert re.search(rf"(?<!\w){re.escape(about)}(?!\w)" if about[0] != "." else re.escape(about), text)


def test_a_file_may_name_its_schema(tmp_path):
    example = (REPOSITORY / "docs" / "examples" / "Brokers.xml").read_text(encoding="utf-8")
    naming = example.replace(
        "<BrokersConf ",
        '<BrokersConf xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xsi:noNamespaceSchemaLocation="Brokers.xsd" ',
    )
    assert naming != example
    assert complaints_about(naming, "Brokers", tmp_path) == []


# Editors show them while one types.
@pytest.mark.parametrize("name", FILES)
def test_every_element_and_attribute_is_documented(name):
    text = (REPOSITORY / "schemas" / f"{name}.xsd").read_text(encoding="utf-8")
    declarations = re.findall(r"<xs:(?:element|attribute) name=.*>\n\s*(.*)", text)
    assert declarations
    assert set(declarations) == {"<xs:annotation>"}
