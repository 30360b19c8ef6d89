"""The service's records, decoded, and its registrations."""

from exitstatus import DONE, NOTHING_TO_READ


# Running (1), 2 brokers, 6 publications, 1 subscription; 7 sent, 5 acknowledged, 258 received, 1 dropped.
RECORDS = """
plcctl tag set 1024 BYTES '01000000 0200 0600 0100 0000'
plcctl tag set 1536 BYTES '07000000 05000000 02010000 01000000'
plcctl tag set 4096 BYTES '01 01 00 00'
plcctl tag set 4100 BYTES '00 00 f3 00'
"""


def test_status_shows_every_value_of_the_records_with_its_meaning(plant):
    result = plant.run(RECORDS + "plcctl status")
    assert (result.status, result.errors) == (DONE, "")
    assert result.lines == [
        "general     at 1024: PS_RUNNING (1), running; 2 brokers, 6 publications, 1 subscription",
        "statistics  at 1536: 7 sent, 5 acknowledged, 258 received, 1 dropped",
        "broker 1    at 4096: 'plant' 127.0.0.1:1883, connected, stored session; last result CB_OK (0), done",
        "broker 2    at 4100: 'cloud' cloud.example:8883, not connected, no stored session; "
        "last result CB_CONNECTION_LOST (-13), the connection was lost",
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
    assert "general     at 1024: 77, unknown code; " in result.lines[0]
    assert "stored session (byte 2); last result -1, failed: " in result.lines[2]
    assert result.lines[2].endswith("; reserved 9")


def test_status_with_a_missing_file_shows_the_rest_with_status_3(plant):
    (plant.configuration / "MQTTClientConf.xml").unlink()
    result = plant.run(RECORDS + "plcctl status")
    assert result.status == NOTHING_TO_READ
    assert "/VEL/UserApps/Config/MQTT/MQTTClientConf.xml: can't be read: No such file or directory" in result.errors
    assert result.lines[0] == "general     no address, because the configuration can't be read"
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
    assert result.lines[1].startswith("statistics  at 1552: 99 sent")


def test_status_of_a_broker_outside_tag_memory_is_status_3(plant):
    broker = '<BrokerConf ID="1" BrokerAddr="16777213"/>'
    plant.write("Brokers.xml", f"<BrokersConf><Brokers>{broker}</Brokers></BrokersConf>")
    result = plant.run(RECORDS + "plcctl status")
    assert result.status == NOTHING_TO_READ
    assert result.lines[2].endswith("outside tag memory")


def test_watching_the_status_prints_it_again_when_something_changed(plant):
    result = plant.run(
        RECORDS
        + """
        plcctl status --watch --json --interval 5 > /tmp/out & watcher=$!
        wait_for [ -s /tmp/out ]
        plcctl tag set 4096 UINT8 0
        wait_for grep -q '"connected":0.*"connected":0' /tmp/out
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
