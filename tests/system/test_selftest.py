"""The built-in self-test, and the dumps of verbose mode."""

import pathlib
import re
import shutil

import pytest

from support import build, csvlog, requests
from support.configuration import broker, member, publication, subscription
from support.device import STANDARD_ERROR, VERBOSE
from support.records import RUNNING, STR8, STRUCT, UINT16, UINT32, PublicationConfiguration
from support.requests import PAUSE, SET_PUBLICATION, START, status_position
from support.waiting import wait_until

RESULTS = pathlib.Path("/VEL/System/AutoTests/Results/MQTTClientManager.txt")
SAMPLE = build.REPOSITORY / "Platform" / "SelfTest" / "VEL"
WITH_SELF_TEST = (*VERBOSE, "x", "true")
STATUS_AT = status_position(8208)
TESTS = 63
LOOKUPS_OF_THE_SAMPLE = ["look-up of broker 6", "look-up of publication 6", "look-up of subscription 6"]

# Date and time, and the name that begins every dump.
DUMP = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} MQTTClientManager \*\* (.*)")


def results(verdict):
    return [line.removeprefix(verdict).strip() for line in RESULTS.read_text().splitlines() if line.startswith(verdict)]


def dumps():
    lines = STANDARD_ERROR.read_text(errors="replace").splitlines()
    return [match.group(1) for match in map(DUMP.fullmatch, lines) if match]


def wait_dumped(beginning):
    wait_until(lambda: any(dump.startswith(beginning) for dump in dumps()), f"the dump {beginning!r}")
    return [dump for dump in dumps() if dump.startswith(beginning)]


def test_self_test_passes_on_the_shipped_sample(device):
    shutil.copytree(SAMPLE, "/VEL", dirs_exist_ok=True)
    device.run(*WITH_SELF_TEST)
    text = RESULTS.read_text()
    assert text.splitlines()[0] == "Self-test MQTTClientManager"
    assert results("FAIL") == []
    assert len(results("PASS")) == TESTS
    assert text.splitlines()[-1] == f"MQTTClientManager: {TESTS} tests, {TESTS} passed, 0 failed"
    assert results("PASS")[3:6] == LOOKUPS_OF_THE_SAMPLE
    rows = [row.message for row in csvlog.rows() if row.function == "MQTTClientManager::RunAutoTest"]
    assert (rows[0], rows[-1]) == ("Enter function", "End function")
    # The handlers are the real ones: each of the eleven writes to the status tag.
    answers = [int.from_bytes(write.data, "little", signed=True) for write in device.tags.journal(STATUS_AT)]
    assert answers == [2, -2] * 11
    assert device.status() == RUNNING


def test_another_configuration_fails_three_look_ups_and_the_service_runs_on(device):
    device.configure()
    device.run(*WITH_SELF_TEST)
    assert results("FAIL") == LOOKUPS_OF_THE_SAMPLE
    assert RESULTS.read_text().splitlines()[-1] == f"MQTTClientManager: {TESTS} tests, {TESTS - 3} passed, 3 failed"
    assert device.requests.ask(PAUSE) == requests.DONE


@pytest.mark.parametrize("words", ["", "-verbose true", "-verbose true true", "-verbose true x yes"])
def test_without_the_fourth_position_there_is_no_self_test(device, words):
    RESULTS.parent.mkdir(parents=True)
    RESULTS.write_text("of another day")
    device.configure()
    device.run(*words.split())
    assert RESULTS.read_text() == "of another day"


@pytest.mark.parametrize("words", ["x true y true", "x y z true"])
def test_fourth_position_alone_decides_on_the_self_test(device, words):
    device.configure()
    device.run(*words.split())
    assert len(results("PASS")) == TESTS - 3
    assert csvlog.messages("DEBUG") == []


def test_self_test_without_a_place_for_its_results_harms_nothing(device):
    RESULTS.parent.parent.mkdir(parents=True)
    RESULTS.parent.write_text("not a directory")
    device.configure()
    device.run(*WITH_SELF_TEST)
    assert device.requests.ask(PAUSE) == requests.DONE


def test_verbose_mode_dumps_what_is_configured(device):
    members = [member(0, UINT16, "count"), member(2, f"{STR8}_10", "label")]
    device.configure(
        brokers=[broker(2, AutoConnect=0, Password='se"cret', LastWillTopic="a\nb")],
        publications=[publication(1, CBrokerID=2, QOS=1, RetainFlag=1), publication(2, members, CBrokerID=2, DataType=STRUCT)],
        subscriptions=[subscription(3, CBrokerID=2, Topic="a/+", Ent=3, IsBuffered=1)],
    )
    device.run("x", "true")  # with dumps, without debug lines in the log
    [entity] = wait_dumped("Broker Entity members are:")
    for text in ('UniqueID=2', 'Name="broker2"', 'IPorURL="127.0.0.1"', r'Password="se\"cret"', r'LastWillTopic="a\nb"', "CallersCounter=3"):
        assert text in entity, text
    second, third, first = wait_dumped("Caller Entity members are:")
    for text in ('UniqueID=3', 'Topic="a/+" (SPECIAL)', f"DataType={UINT32}", "TypeName=AT_UINT32", "DataSize=12", "Ent=3 LEN ARRAY"):
        assert text in first, text
    for text in ('Topic="plc/data/1" (NOT SPECIAL)', "QoS=1", "Ent=NOT AN ARRAY"):
        assert text in second, text
    assert '; Name="label", Type=11, Entry=0, Len=10, Offset=2' in third
    assert "RetainFlag=true, PerInterval=100, ReceiveAddress=4294967295" in wait_dumped("Publisher Entity")[0]
    assert "BufferedFlag=true, SubscribeAtBootTime=true" in wait_dumped("Subscriber Entity")[0]
    [tags] = wait_dumped("Registered tags number is ")
    assert tags.startswith("Registered tags number is 5. Details:")
    assert csvlog.messages("DEBUG") == []
    # Once, whatever is started later.
    device.requests.ask(PAUSE)
    assert device.requests.ask(START) == requests.DONE
    assert len(wait_dumped("Broker Entity")) == 1


def test_verbose_mode_dumps_records_as_they_are_written(device, scripted):
    partner = scripted()
    device.configure(publications=[publication(1)], subscriptions=[subscription(1, IsBuffered=1)])
    device.run(*VERBOSE)
    wait_dumped("Broker Cfg Struct members are: ")
    partner.publish("plc/command/1", b"\1\0\0\0")
    assert 'topicName="plc/command/1"' in wait_dumped("MQTTMessage members are:")[0]
    wait_until(lambda: 'LastMessageTopic="plc/command/1"' in wait_dumped("Subscriber Cfg Struct members are: ")[-1], "the topic")
    for opcode, heading in (
        (requests.GET_BROKER, "CBrokerConfigurationStruct members are:"),
        (requests.GET_SUBSCRIPTION, "SubscriptionConfigurationStruct members are:"),
        (requests.GET_PUBLICATION, "PublicationConfigurationStruct members are:"),
    ):
        device.requests.ask(opcode, 1)
        assert len(wait_dumped(heading)) == 1
    device.requests.ask(PAUSE)
    record = PublicationConfiguration("changed", 3, 0, 0)
    device.requests.ask(SET_PUBLICATION, 1, payload=record.encode())
    # With the validated value.
    assert 'Topic="changed", QoS=0' in wait_dumped("PublicationConfigurationStruct members are:")[1]


def test_without_verbose_mode_nothing_is_dumped(device, scripted):
    partner = scripted()
    device.configure(publications=[publication(1)], subscriptions=[subscription(1, IsBuffered=1)])
    device.run("-verbose", "false")
    device.wait_connected()
    partner.publish("plc/command/1", b"\1\0\0\0")
    wait_until(lambda: device.statistics().received == 1, "the message")
    device.requests.ask(requests.GET_PUBLICATION, 1)
    assert dumps() == []
