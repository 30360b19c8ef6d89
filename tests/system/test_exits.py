"""Starts that end by themselves: status 0, the right words in the log, and nothing in tag memory but what is told."""

import os

import pytest

from support import configuration, csvlog, records
from support.device import VERBOSE, exit_status

NAMED_FILES = {
    "MQTTClientConf.xml": configuration.GENERAL_FILE,
    "Brokers.xml": configuration.BROKERS_FILE,
    "Subscriptions.xml": configuration.SUBSCRIPTIONS_FILE,
    "Publications.xml": configuration.PUBLICATIONS_FILE,
}
PARSE_FAILURES = {
    "Brokers.xml": "ParseXMLFileBrokers failed",
    "Subscriptions.xml": "ParseXMLFileSubscriptions failed",
    "Publications.xml": "ParseXMLFilePublications failed",
}


def errors():
    return csvlog.messages("ERROR")


def assert_ended_without_a_trace(device, wait_status):
    assert exit_status(wait_status) == 0
    assert device.tags.writes_made() == 0
    assert device.tags.registrations() == {}


@pytest.mark.parametrize("name", NAMED_FILES)
def test_missing_file_ends_the_start(device, name):
    device.configure()
    NAMED_FILES[name].unlink()
    assert_ended_without_a_trace(device, device.run_to_its_end())
    assert errors() == (["can't open xml file for read", PARSE_FAILURES[name]] if name in PARSE_FAILURES else [])


@pytest.mark.parametrize("name", NAMED_FILES)
def test_missing_file_is_not_made(device, name):
    device.configure()
    NAMED_FILES[name].unlink()
    device.run_to_its_end()
    assert not NAMED_FILES[name].exists()


@pytest.mark.parametrize("name", NAMED_FILES)
@pytest.mark.parametrize("mode", [0o000, 0o444, 0o222])
def test_file_that_can_not_be_read_and_written_ends_the_start(device, name, mode):
    device.configure()
    NAMED_FILES[name].chmod(mode)
    assert not os.access(NAMED_FILES[name], os.R_OK | os.W_OK)
    assert_ended_without_a_trace(device, device.run_to_its_end())
    assert errors() == (["can't open xml file for read", PARSE_FAILURES[name]] if name in PARSE_FAILURES else [])


@pytest.mark.parametrize("name", NAMED_FILES)
def test_directory_in_place_of_a_file_ends_the_start(device, name):
    device.configure()
    NAMED_FILES[name].unlink()
    NAMED_FILES[name].mkdir()
    assert_ended_without_a_trace(device, device.run_to_its_end())


@pytest.mark.parametrize("name", NAMED_FILES)
def test_malformed_file_ends_the_start_with_the_place_of_the_error(device, name):
    device.configure()
    NAMED_FILES[name].write_text("<Root>\n  <Child>\n</Root>\n")
    assert_ended_without_a_trace(device, device.run_to_its_end())
    first, *rest = errors()
    assert first.startswith("invalid content due to ")
    assert "(line=3 | column=" in first and first.endswith(")")
    assert rest == ([PARSE_FAILURES[name]] if name in PARSE_FAILURES else [])


def test_missing_general_file_keeps_the_others_from_being_read(device):
    device.configure()
    configuration.GENERAL_FILE.unlink()
    configuration.BROKERS_FILE.write_text("no XML")
    device.run_to_its_end(*VERBOSE)
    assert errors() == []
    assert csvlog.has_message("    initilize failed in parseConfigurationFiles", severity="DEBUG")


def test_broken_broker_file_keeps_the_publications_from_being_read(device):
    device.configure()
    configuration.BROKERS_FILE.unlink()
    configuration.PUBLICATIONS_FILE.unlink()
    device.run_to_its_end()
    assert errors() == ["can't open xml file for read", "ParseXMLFileBrokers failed"]


@pytest.mark.parametrize("missing", ["General", "Statistics"])
def test_general_file_without_one_of_its_elements_ends_the_start(device, missing):
    device.configure()
    text = configuration.GENERAL_FILE.read_text()
    configuration.GENERAL_FILE.write_text(text.replace(f"<{missing} ", "<Other "))
    assert_ended_without_a_trace(device, device.run_to_its_end())
    assert errors() == []


def test_general_file_with_another_top_element_ends_the_start(device):
    device.configure()
    configuration.GENERAL_FILE.write_text(configuration.general_xml().replace("ClientConf", "ClientConfig"))
    assert_ended_without_a_trace(device, device.run_to_its_end())
    assert errors() == []


@pytest.mark.parametrize(
    "content",
    ["<BrokersConf/>", "<BrokersConf><Brokers/></BrokersConf>", "<Other><Brokers><BrokerConf/></Brokers></Other>",
     "<BrokersConf><brokers><BrokerConf/></brokers></BrokersConf>"],
    ids=["no Brokers", "no BrokerConf", "other top element", "wrong case"],
)  # fmt: skip
def test_no_broker_ends_the_start(device, content):
    device.configure()
    configuration.BROKERS_FILE.write_text(content)
    assert_ended_without_a_trace(device, device.run_to_its_end(*VERBOSE))
    assert errors() == []
    assert csvlog.has_message("    empty MQTT configurtion", severity="DEBUG")


def test_client_that_can_not_be_created_leaves_a_failed_status(device):
    # The library makes a directory of this name, and directory names end at 255 bytes.
    too_long = configuration.broker(2, ClientID="x" * 256, Name="oven")
    device.configure(
        brokers=[configuration.broker(1), too_long, configuration.broker(3)],
        publications=[configuration.publication()],
    )
    device.tags.write(configuration.broker_at(3), b"\x55\x55\x55\x55")
    wait_status = device.run_to_its_end(*VERBOSE)
    assert exit_status(wait_status) == 0
    assert device.general() == records.General(records.FAILED, 3, 1, 0, 0)
    assert errors()[-1] == "initilize failed in MQTTClients creation"
    assert any("oven" in error for error in errors())
    assert csvlog.has_message("failed with status (-2)", severity="DEBUG")
    assert device.broker(1) == records.BrokerStatus(0, 0, 0)
    assert device.broker(2) == records.BrokerStatus(0, 0, -2)
    assert device.tags.journal(configuration.broker_at(3)) == []
    assert device.tags.registrations_made() == 0


def test_end_before_the_run_leaves_no_handler_and_no_teardown(device):
    device.configure()
    configuration.GENERAL_FILE.unlink()
    device.run_to_its_end(*VERBOSE)
    assert not csvlog.has_message("isInitDone?")
