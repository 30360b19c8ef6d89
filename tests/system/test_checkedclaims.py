"""What `plcctl check` says that the service makes of a mistake, held against the service itself."""

import json
import subprocess

import pytest
from support import build, configuration, records
from support.configuration import broker, member, subscription
from support.waiting import wait_until

PLCCTL = build.DIRECTORY / "bin" / "plcctl"


def rules():
    finished = subprocess.run(
        [str(PLCCTL), "check", "--json"], capture_output=True, check=False, timeout=60, text=True
    )
    return {finding["rule"]: finding["text"] for finding in json.loads(finished.stdout)["findings"]}


def spoil(file, before, after):
    text = file.read_text()
    assert before in text
    file.write_text(text.replace(before, after, 1))


def test_element_of_another_name_behind_the_first_is_read_as_a_broker(device):
    device.configure(brokers=[broker(1, AutoConnect=0)])
    spoil(configuration.BROKERS_FILE, "</Brokers>", configuration.element("Spare", broker(2, AutoConnect=0)) + "</Brokers>")
    assert "is read as a BrokerConf" in rules()["entry-name"]
    device.run()
    assert device.general().brokers == 2


def test_second_list_is_passed_over(device):
    device.configure(brokers=[broker(1, AutoConnect=0)])
    second = configuration.element("BrokerConf", broker(2, AutoConnect=0))
    spoil(configuration.BROKERS_FILE, "</Brokers>", f"</Brokers><Brokers>{second}</Brokers>")
    assert "the service takes the first alone" in rules()["repeated-element"]
    device.run()
    assert device.general().brokers == 1


def test_last_of_two_attributes_of_one_name_is_taken(device):
    device.configure(brokers=[broker(1, AutoConnect=0)])
    spoil(configuration.BROKERS_FILE, "BrokerAddr=", 'BrokerAddr="512" BrokerAddr=')
    assert "the service takes the last one" in rules()["repeated-attribute"]
    device.run()
    assert device.block_writes(1)
    assert not device.tags.journal(512)


@pytest.mark.parametrize("text", ["0x1010", "", "4112 bytes", "4112.0"])
def test_text_that_is_no_number_is_taken_as_0(device, text):
    device.configure(brokers=[broker(1, AutoConnect=0, BrokerAddr=text)])
    assert "the service takes 0" in rules()["no-number"]
    device.run()
    assert device.tags.journal(0)
    assert not device.block_writes(1)


def test_identifier_that_is_too_long_ends_the_start(device):
    device.configure(brokers=[broker(1, AutoConnect=0, ClientID="x" * 250)])
    assert "the service ends at its start" in rules()["client-id"]
    device.run_to_its_end()
    assert device.status() == records.FAILED


def test_offset_without_a_prefix_loses_two_digits(device, mosquitto, send):
    server = mosquitto()
    members = [member("0x0", records.UINT8, "a"), member("1204", records.UINT8, "b")]
    device.configure(
        brokers=[broker(Port=server.port)],
        subscriptions=[subscription(1, members, DataType=records.STRUCT, PayloadFormat=records.JSON)],
    )
    assert "and takes 4;" in rules()["offset-form"]
    device.run()
    send(server).publish("plc/command/1", b'{"a":7,"b":9}')
    device.wait_received(b"\x07\0\0\0\x09")


def test_plus_ahead_of_hash_and_the_parent_level_match_nothing_here(device, mosquitto, send):
    server = mosquitto()
    device.configure(
        brokers=[broker(Port=server.port)],
        subscriptions=[
            subscription(1, Topic="+/set/#", DataType=records.UINT8),
            subscription(2, Topic="set/#", DataType=records.UINT8),
        ],
    )
    assert "filter-differs" in rules()
    device.run()
    sender = send(server)
    sender.publish("x/set/y", b"\x01")
    sender.publish("set", b"\x02")
    sender.publish("set/y", b"\x03")
    device.wait_received(b"\x03", 2)
    assert [write.data[0] for write in device.data_writes(2)] == [3]
    assert not device.data_writes(1)
    wait_until(lambda: device.statistics().received == 1, "the one message that matches to be counted")
