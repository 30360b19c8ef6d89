"""The configuration of docs/configuration.md works as it is told there, and a file may name its schema."""

import json
import shutil
import struct
import subprocess

import pytest
from support import build, configuration
from support.waiting import wait_until

EXAMPLES = build.REPOSITORY / "docs" / "examples"
PLCCTL = build.DIRECTORY / "bin" / "plcctl"

ENTRIES = 1, 2, 1
SPEED_AT, BATCH_AT, WANTED_AT, RECORD_AT, BLOCK_AT = 2048, 2064, 4096, 8192, 1088

NAMESPACE = 'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"'


def schema_of(path):
    return f'xsi:noNamespaceSchemaLocation="/usr/share/mqttclientmanager/schemas/{path.stem}.xsd"'


@pytest.fixture
def examples():
    """The four files of the page, in their places."""
    shutil.copytree(EXAMPLES, configuration.DIRECTORY)
    return sorted(configuration.DIRECTORY.glob("*.xml"))


@pytest.fixture
def naming(examples):
    """The same; each file names its schema."""
    for path in examples:
        text = path.read_text(encoding="utf-8")
        path.write_text(text.replace(' Version="1.0"', f' Version="1.0" {NAMESPACE} {schema_of(path)}'))
        assert schema_of(path) in path.read_text(encoding="utf-8")
    return examples


def numbers_of_entries(device):
    general = device.general()
    return general.brokers, general.publications, general.subscriptions


def plcctl(*arguments):
    subprocess.run([str(PLCCTL), *arguments], check=True, capture_output=True, timeout=50)


def test_the_smallest_configuration_publishes_and_takes_a_setpoint(device, examples, mosquitto, listen, send):
    server = mosquitto()
    listener = listen(server)
    device.tags.write(SPEED_AT, struct.pack("<f", 12.5))
    device.tags.write(BATCH_AT, struct.pack("<Ihhh17s", 7, 31, 32, 33, b"cola"))
    device.run()
    assert numbers_of_entries(device) == ENTRIES
    assert device.tags.broker(BLOCK_AT).connected == 1
    assert device.tags.subscription(RECORD_AT).subscribed == 1

    listener.wait_for("plant/press/speed")
    assert listener.on("plant/press/speed")[0].payload == b"12.5"
    listener.wait_for("plant/press/batch", timeout=20)
    batch = json.loads(listener.on("plant/press/batch")[0].payload)
    assert batch == {"number": 7, "pressures": [31, 32, 33], "label": "cola"}

    sender = send(server)

    def setpoint_is_there():
        sender.publish("plant/press/set/speed", b"99.5")
        return device.tags.read(WANTED_AT, 4) == struct.pack("<f", 99.5)

    wait_until(setpoint_is_there, "the setpoint in its tag")


def test_a_file_that_names_its_schema_is_read_as_without(device, naming):
    device.run()
    assert numbers_of_entries(device) == ENTRIES


def test_the_name_of_the_schema_survives_a_change_by_request(device, naming):
    device.run()
    plcctl("request", "pause")
    plcctl("config", "set", "broker", "plant", "Port=1884")
    plcctl("config", "set", "publication", "speed", "QoS=1")
    plcctl("config", "set", "subscription", "speed wanted", "QoS=2")
    for path in naming:
        text = path.read_text(encoding="utf-8")
        assert NAMESPACE in text
        assert schema_of(path) in text
    assert 'Port="1884"' in configuration.BROKERS_FILE.read_text(encoding="utf-8")
    plcctl("request", "start")
    assert numbers_of_entries(device) == ENTRIES


# What a request has written is still what an editor takes.
def test_a_file_that_the_service_has_written_validates(device, examples):
    device.run()
    plcctl("request", "pause")
    plcctl("config", "set", "broker", "plant", "ClientID=press-1", "Password=geheim")
    for path in examples:
        schema = build.REPOSITORY / "schemas" / f"{path.stem}.xsd"
        finished = subprocess.run(
            ["xmllint", "--noout", "--schema", schema, path], capture_output=True, check=False, text=True
        )
        assert finished.returncode == 0, finished.stderr
