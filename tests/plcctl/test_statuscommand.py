"""The service's records, decoded, and its registrations."""

import struct

import pytest
from exitstatus import DONE, NOTHING_TO_READ


# Running (1), 2 brokers, 6 publications, 1 subscription; 7 sent, 5 acknowledged, 258 received, 1 dropped.
RECORDS = """
plcctl tag set 1024 BYTES '01000000 0200 0600 0100 0000'
plcctl tag set 1536 BYTES '07000000 05000000 02010000 01000000'
plcctl tag set 4096 BYTES '01 01 00 00'
plcctl tag set 4100 BYTES '00 00 f3 00'
"""


def record(subscribed=0, result=0, received=0, full=0, topic="", seconds=0, state=0, padding=b"\0\0\0"):
    """The command that writes a subscription's record as the service lays it out; `topic` may be its 512 bytes."""
    units = topic if isinstance(topic, bytes) else topic.encode("utf-16-le")
    data = struct.pack("<BbBB512sIB3s", subscribed, result, received, full, units, seconds, state, padding)
    return f"plcctl tag set 9000 BYTES {data.hex()}\n"


def subscription_line(plant, script):
    result = plant.run(RECORDS + script + "plcctl status")
    assert (result.status, result.errors) == (DONE, "")
    return result.lines[-1]


def subscription_object(plant, script):
    result = plant.run(RECORDS + script + "plcctl status --json")
    assert result.status == DONE
    return result.objects[0]["subscriptions"][0]


def test_status_shows_every_value_of_the_records_with_its_meaning(plant):
    result = plant.run(RECORDS + "plcctl status")
    assert (result.status, result.errors) == (DONE, "")
    assert result.lines == [
        "general         at 1024: PS_RUNNING (1), running; 2 brokers, 6 publications, 1 subscription",
        "statistics      at 1536: 7 sent, 5 acknowledged, 258 received, 1 dropped",
        "broker 1        at 4096: 'plant' 127.0.0.1:1883, connected, stored session; last result CB_OK (0), done",
        "broker 2        at 4100: 'cloud' cloud.example:8883, not connected, no stored session; "
        "last result CB_CONNECTION_LOST (-13), the connection was lost",
        "subscription 3  at 9000: 'setpoint', not subscribed; last result SSC_OK (0), done; no message yet, "
        "received bit 0",
    ]


def test_status_as_json_has_every_value_of_the_records(plant):
    result = plant.run(RECORDS + "plcctl status --json")
    assert result.status == DONE
    (status,) = result.objects
    assert status["general"] == {
        "address": 1024,
        "processStatus": {"code": 1, "name": "PS_RUNNING", "text": "running"},
        "brokers": 2,
        "publications": 6,
        "subscriptions": 1,
        "reserved": 0,
    }
    assert status["statistics"] == {"address": 1536, "sent": 7, "acknowledged": 5, "received": 258, "dropped": 1}
    assert [broker["id"] for broker in status["brokers"]] == [1, 2]
    assert status["brokers"][1]["block"] == {
        "connected": 0,
        "sessionPresent": 0,
        "returnCode": {"code": -13, "name": "CB_CONNECTION_LOST", "text": "the connection was lost"},
        "reserved": 0,
    }
    assert (status["problems"], status["complete"]) == ([], True)


def test_codes_of_the_client_library_and_unknown_ones_are_shown_by_number(plant):
    result = plant.run("plcctl tag set 1024 INT32 77; plcctl tag set 4096 BYTES 0002ff09; plcctl status")
    assert "general         at 1024: 77, unknown code; " in result.lines[0]
    assert "stored session (byte 2); last result -1, failed: " in result.lines[2]
    assert result.lines[2].endswith("; reserved 9")


def test_status_with_a_missing_file_shows_the_rest_with_status_3(plant):
    (plant.configuration / "MQTTClientConf.xml").unlink()
    result = plant.run(RECORDS + "plcctl status")
    assert result.status == NOTHING_TO_READ
    assert "/VEL/UserApps/Config/MQTT/MQTTClientConf.xml: can't be read: No such file or directory" in result.errors
    assert result.lines[0] == "general         no address, because the configuration can't be read"
    assert "'plant' 127.0.0.1:1883, connected" in result.lines[2]


def test_status_with_a_broken_file_shows_what_comes_before_the_break_with_status_3(plant):
    plant.write("Brokers.xml", '<BrokersConf><Brokers><BrokerConf ID="1" Name="plant" BrokerAddr="4096"/><Broker')
    result = plant.run(RECORDS + "plcctl status --json")
    assert result.status == NOTHING_TO_READ
    (status,) = result.objects
    assert [broker["name"] for broker in status["brokers"]] == ["plant"]
    assert status["statistics"]["sent"] == 7
    assert [problem["file"] for problem in status["problems"]] == ["/VEL/UserApps/Config/MQTT/Brokers.xml"]
    assert "Brokers.xml: line 1, column " in result.errors


def test_status_reads_the_given_directory(plant):
    result = plant.run(
        RECORDS + 'cp -r /VEL/UserApps/Config/MQTT /tmp/other; sed -i s/1536/1552/ /tmp/other/MQTTClientConf.xml;'
        "plcctl tag set 1552 UINT32 99; plcctl status --config /tmp/other"
    )
    assert result.lines[1].startswith("statistics      at 1552: 99 sent")


def test_status_of_a_broker_outside_tag_memory_is_status_3(plant):
    broker = '<BrokerConf ID="1" BrokerAddr="16777213"/>'
    plant.write("Brokers.xml", f"<BrokersConf><Brokers>{broker}</Brokers></BrokersConf>")
    result = plant.run(RECORDS + "plcctl status")
    assert result.status == NOTHING_TO_READ
    assert result.lines[2].endswith("outside tag memory")


def test_a_subscription_shows_its_state_and_its_last_message(plant):
    line = subscription_line(plant, record(1, -12, 1, topic="cmd/press/é😀", seconds=1_714_979_289))
    assert line == (
        "subscription 3  at 9000: 'setpoint', subscribed; last result SSC_ERROR_INVALID_JSON (-12), a message was no "
        "valid JSON: the tag keeps its old data; last message 2024-05-06T07:08:09Z on 'cmd/press/é😀', received bit 1"
    )


@pytest.mark.parametrize(
    "fields, shown",
    [
        ({"result": -11}, "not subscribed; last result SSC_ERROR_NOT_CONNECTED (-11), the broker is not connected;"),
        ({"result": -15}, "last result SSC_ERROR_CONNECTION_LOST (-15), the connection was lost while subscribed;"),
        ({"result": -128}, "last result -128, refused by the broker;"),
        ({"result": 77}, "last result 77, unknown code;"),
        ({"full": 1, "state": 2}, "received bit 0; queue full; messages wait"),
        ({"state": 1}, "received bit 0; a message is being handed over"),
    ],
)
def test_a_subscription_says_what_its_bytes_mean(plant, fields, shown):
    assert shown in subscription_line(plant, record(**fields))


def test_a_subscription_as_json_has_every_field_of_its_record(plant):
    topic = "plant/" + "x" * 249
    assert subscription_object(plant, record(1, -14, 1, 0, topic, 1_714_979_289, 2)) == {
        "id": 3,
        "name": "setpoint",
        "buffered": False,
        "address": 9000,
        "record": {
            "subscribed": 1,
            "subscriptionStatus": {"code": -14, "name": "SSC_ERROR_ALREADY_SUBSCRIBED", "text": "subscribed already"},
            "receivedBit": 1,
            "queueFull": 0,
            "lastMessageTopic": topic,
            "lastMessageSeconds": 1_714_979_289,
            "lastMessageTime": "2024-05-06T07:08:09Z",
            "bufferedDataStatus": 2,
            "padding": "000000",
        },
    }


def test_a_subscription_without_a_message_has_no_time_in_json(plant):
    fields = subscription_object(plant, record(1))["record"]
    assert (fields["lastMessageTopic"], fields["lastMessageSeconds"], fields["lastMessageTime"]) == ("", 0, None)


def test_a_long_topic_loses_its_middle_in_the_line(plant):
    topic = "site/" + "m" * 200 + "/line-7/alarm"
    line = subscription_line(plant, record(topic=topic, seconds=1))
    shown = line.split(" on '")[1].split("'")[0]
    assert len(shown) == 64
    assert shown == topic[:30] + "..." + topic[-31:]


def test_a_topic_of_64_characters_is_shown_whole(plant):
    assert f"on '{'t' * 64}'" in subscription_line(plant, record(topic="t" * 64, seconds=1))


def test_a_topic_cannot_command_the_terminal(plant):
    topic = "a\x1b[2J\nb\u009b".encode("utf-16-le") + b"\x00\xd8z\0"
    script = record(topic=topic, seconds=1)
    assert r"on 'a\x1b[2J\nb\x9b�z', received bit 0" in subscription_line(plant, script)
    assert subscription_object(plant, script)["record"]["lastMessageTopic"] == "a\x1b[2J\nb\u009b\ufffdz"


def test_an_unterminated_topic_ends_with_its_field(plant):
    script = record(topic="u" * 256, seconds=0x41414141)
    line = subscription_line(plant, script)
    assert f"on '{'u' * 30}...{'u' * 31}' without a terminator, received bit 0" in line
    assert subscription_object(plant, script)["record"]["lastMessageTopic"] == "u" * 256


def test_a_record_full_of_garbage_is_shown_as_what_it_is(plant):
    script = f"plcctl tag set 9000 BYTES {'ff' * 524}\n"
    line = subscription_line(plant, script)
    assert "'setpoint', subscribed (byte 255); last result -1, " in line
    assert "; last message 2106-02-07T06:28:15Z on '" in line
    assert line.endswith(
        "without a terminator, received bit 255; queue full (byte 255); unknown hand-over state 255; padding ff ff ff"
    )
    fields = subscription_object(plant, script)["record"]
    assert (fields["lastMessageSeconds"], fields["bufferedDataStatus"], fields["padding"]) == (0xFFFFFFFF, 255, "ffffff")


@pytest.mark.parametrize("address", [16777216 - 523, 4294967295])
def test_status_of_a_subscription_outside_tag_memory_is_status_3(plant, address):
    entry = f'<SubscriptionConf ID="3" Name="lost" SubAddr="{address}"/>'
    plant.write("Subscriptions.xml", f"<SubscriptionsConf><Subscriptions>{entry}</Subscriptions></SubscriptionsConf>")
    result = plant.run(RECORDS + "plcctl status; status=$?; plcctl status --json; exit $status")
    assert result.status == NOTHING_TO_READ
    assert result.lines[-2] == f"subscription 3  at {address}: 'lost', outside tag memory"
    assert '"record":null' in result.lines[-1]


def test_the_last_record_that_fits_into_tag_memory_is_shown(plant):
    entry = f'<SubscriptionConf ID="3" Name="last" SubAddr="{16777216 - 524}"/>'
    plant.write("Subscriptions.xml", f"<SubscriptionsConf><Subscriptions>{entry}</Subscriptions></SubscriptionsConf>")
    line = subscription_line(plant, "")
    assert line.endswith("'last', not subscribed; last result SSC_OK (0), done; no message yet, received bit 0")


def test_watching_the_status_prints_it_again_when_something_changed(plant):
    result = plant.run(
        RECORDS
        + """
        plcctl status --watch --json --interval 5 > /tmp/out & watcher=$!
        wait_for [ -s /tmp/out ]
        plcctl tag set 4096 UINT8 0
        wait_for grep -qs '"connected":0.*"connected":0' /tmp/out
        kill -INT $watcher; wait $watcher; echo $?
        grep -c . /tmp/out
        """
    )
    assert result.lines == ["0", "2"], result.errors


def test_registrations_are_listed_with_their_tags(plant):
    result = plant.run("tagmemoryuser register && plcctl registrations")
    assert result.status == DONE, result.errors
    assert result.lines == [
        "registration 1: 3 tags",
        "  at 3000  size 4  publication 'level' data",
        "  at 44  size 1  link of port 1",
        "  at 5000  size 2",
        "registration 2: 1 tag",
        "  at 44  size 1  link of port 1",
    ]


def test_registrations_that_ended_are_not_listed(plant):
    result = plant.run("tagmemoryuser register && tagmemoryuser unregister 1 && plcctl registrations --json")
    assert result.objects == [
        {"registrations": [{"id": 2, "entries": [{"address": 44, "length": 1, "name": "link of port 1"}]}]}
    ], result.errors


def test_no_registrations_are_told(controller):
    result = controller.run("plcctl link up; plcctl registrations; plcctl registrations --json")
    assert result.lines == ["no registrations", '{"registrations":[]}']
