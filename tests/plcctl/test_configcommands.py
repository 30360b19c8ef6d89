"""Reading and changing the configuration by requests, answered by a stand-in of the service."""

import struct

import pytest
from exitstatus import DONE, FAILED, NO_ANSWER, NOT_SENT, USAGE

QUEUE = "plcctl queue create || exit\n"

# Where the answer and the record go if nothing else is said, as they stand in a message.
STATUS = "e8030000"
RECORD = "d0070000"
EMPTY_QUEUE = "/MQTTQueue: 0 of 10 messages (0 % full), up to 1500 bytes each"
RECORD_POSITION = 0x7F400000 + 2000


def utf16(text, size):
    data = text.encode("utf-16-le")
    assert len(data) < size
    return data.ljust(size, b"\0")


def broker_record(
    address="127.0.0.1",
    port=1883,
    auto_connect=1,
    client="line",
    user="u",
    password="secret",
    will="plant/offline",
    interval=5,
    keep_alive=30,
    encryption=0,
    clean=1,
):
    return (
        utf16(address, 256)
        + struct.pack("<HBx", port, auto_connect)
        + utf16(client, 464)
        + utf16(user, 256)
        + utf16(password, 512)
        + utf16(will, 512)
        + struct.pack("<IHBB", interval, keep_alive, encryption, clean)
    )


def caller_record(topic, *numbers):
    return utf16(topic, 512) + bytes(numbers).ljust(4, b"\0")


@pytest.fixture
def service(plant):
    """Answers plcctl with these steps, and with the record if there is one."""

    def answer(command, *steps, record=None, before="", after=""):
        if record is not None:
            (plant.configuration / "record").write_bytes(record)
            steps = ("@/VEL/UserApps/Config/MQTT/record", *steps)
        result = plant.run(
            f"{QUEUE}{before}\ntagmemoryuser answer {' '.join(map(str, steps))} > /tmp/messages &\n"
            f"plcctl config {command}; status=$?; wait; {after}\ncat /tmp/messages; exit $status"
        )
        messages = [line for line in result.lines if is_message(line)]
        result.lines = [line for line in result.lines if not is_message(line)]
        return result, messages

    return answer


def is_message(line):
    return len(line) >= 8 and not set(line) - set("0123456789abcdef")


@pytest.mark.parametrize(
    "arguments, record, message",
    [
        ("broker 1", broker_record(), "0000 0700 0100 00 00" + STATUS + RECORD),
        ("broker plant --status 5 --address 0x4000", broker_record(), "0000 0700 0100 00 00 05000000 00400000"),
        ("subscription setpoint", caller_record("a"), "0000 0900 0300 00 00" + STATUS + RECORD),
        ("publication 7", caller_record("a"), "0000 0b00 0700 00 00" + STATUS + RECORD),
    ],
)
def test_a_record_is_asked_for_with_where_it_goes(service, arguments, record, message):
    result, messages = service(f"get {arguments}", 2, 0, record=record)
    assert (result.status, result.errors) == (DONE, "")
    assert messages == [message.replace(" ", "")]


def test_a_broker_is_shown_field_by_field(service):
    result, _ = service("get broker 1", 2, 0, record=broker_record(user="müller 🙂"))
    assert result.lines == [
        f"broker 1 'plant', read back at operand 2000 (position {RECORD_POSITION})",
        "  IPorUrl           '127.0.0.1'",
        "  Port              1883",
        "  AutoConnect       true",
        "  ClientID          'line'",
        "  Username          'müller 🙂'",
        "  Password          hidden, --show-passwords shows it",
        "  LastWillTopic     'plant/offline'",
        "  ReconnectTrials   5",
        "  KeepAliveTime     30",
        "  Encryption        not reported, whatever the level is",
        "  CleanSessionFlag  true",
    ]


def test_json_is_one_object_with_the_fields(service):
    result, _ = service("get subscription 3 --json", 2, 0, record=caller_record("plc/+/ü", 1, 2, 0, 1))
    assert result.objects == [
        {
            "kind": "subscription",
            "id": 3,
            "name": "setpoint",
            "recordOperand": 2000,
            "fields": {"Topic": "plc/+/ü", "QoS": 1, "PayloadFormat": 2, "SubscribeAtBoot": False, "Buffered": True},
            "unterminated": [],
            "result": {"code": 0, "name": "SC_AC_OK", "text": "done"},
        }
    ]


def test_passwords_are_shown_on_request_only(service):
    result, _ = service("get broker 1 --json", 2, 0, record=broker_record())
    assert result.objects[0]["fields"]["Password"] is None
    assert "secret" not in result.text
    result, _ = service("get broker 1 --json --show-passwords", 2, 0, record=broker_record())
    assert result.objects[0]["fields"]["Password"] == "secret"


def test_a_text_that_runs_into_the_next_field_is_told_of(service):
    record = ("x" * 129).encode("utf-16-le").ljust(2012, b"\0")
    result, _ = service("get broker 1", 2, 0, record=record)
    assert f"  IPorUrl           '{'x' * 128}', runs into the next field" in result.lines
    result, _ = service("get broker 1 --json", 2, 0, record=record)
    assert result.objects[0]["unterminated"] == ["IPorUrl"]


def test_tag_memory_is_put_back_unless_an_address_was_given(service):
    look = "plcctl tag get --operand {} BYTES --count 4"
    fill = "plcctl tag set --operand 2000 BYTES 01020304; plcctl tag set --operand 5000 BYTES 01020304"
    record = caller_record("ab")
    result, _ = service("get publication 7 > /dev/null", 2, 0, record=record, before=fill, after=look.format(2000))
    assert result.text.startswith("01 02 03 04\n")
    result, _ = service(
        "get publication 7 --address 5000 > /dev/null", 2, 0, record=record, before=fill, after=look.format(5000)
    )
    assert result.text.startswith("61 00 62 00\n")


def test_record_and_answer_avoid_what_the_configuration_uses_and_each_other(plant, service):
    plant.write(
        "MQTTClientConf.xml",
        f'<ClientConf><General Addr="{0x7F400000 + 995}"/><Statistics Addr="{0x7F400000 + 3000}"/></ClientConf>',
    )
    result, (message,) = service("get broker 1", 2, 0, record=broker_record())
    assert (result.status, message[16:]) == (DONE, "ef030000" + "c80b0000")  # behind general, behind statistics
    result, (message,) = service("get broker 1 --status 3100", 2, 0, record=broker_record())
    assert (result.status, message[16:]) == (DONE, "1c0c0000" + "1d0c0000")
    result, (message,) = service("get publication 7 --address 600", 2, 0, record=caller_record("a"))
    assert (result.status, message[16:]) == (DONE, "5c040000" + "58020000")
    assert "the record at operand 600 " in result.errors and "overwrites general" in result.errors


@pytest.mark.parametrize(
    "command, codes, status, text",
    [
        ("get broker 1", (2, -3), 103, "SC_AC_ERROR_GET_CFG_FAILED (-3), the record could not be written"),
        ("get publication 99", (2, -2), 102, "publication 99: SC_AC_ERROR_INVALID_ID (-2), no entity has this"),
        ("set subscription 99 QoS=1", (2, -2), 102, "subscription 99: SC_AC_ERROR_INVALID_ID (-2)"),
    ],
)
def test_a_refused_read_back_has_its_code_as_status_and_nothing_is_changed(service, command, codes, status, text):
    result, messages = service(command, *codes)
    assert (result.status, result.text, len(messages)) == (status, f"{messages[0]}\n", 1)
    assert text in result.errors
    result, _ = service(f"{command} --json", *codes)
    assert result.objects[0]["result"]["code"] == 100 - status


def test_a_publication_is_set_whole_with_the_changed_fields(service):
    result, messages = service(
        "set publication 7 qos=2 TOPIC='plc/größe' --config /tmp",
        *(2, 0, "next", 2, 0),
        record=caller_record("old", 1, 1, 1),
    )
    assert (result.status, result.errors) == (DONE, "")
    assert messages[1] == "00000c0007000000" + STATUS + caller_record("plc/größe", 2, 1, 1).hex()
    assert result.lines == [
        "publication 7 is set; `plcctl request start` makes the service use it",
        "  QoS               1 -> 2",
        "  Topic             'old' -> 'plc/größe'",
    ]


def test_a_broker_is_set_in_two_messages(service):
    result, messages = service(
        "set broker 1 Port=8883 Password=new AutoConnect=true --config /tmp",
        *(2, 0, "next", 2, 2, "next", 0),
        record=broker_record(),
    )
    assert (result.status, result.errors) == (DONE, "")
    record = broker_record(port=8883, password="new").hex()
    assert messages[1] == "0000080001000000" + STATUS + record[: 2 * 980]
    assert messages[2] == "00001000" + record[2 * 980 :]
    assert result.lines[1:] == [
        "  Port              1883 -> 8883",
        "  Password          changed",
        "  AutoConnect       unchanged",
    ]


def test_what_a_change_did_comes_as_json(service):
    result, _ = service(
        "set broker 1 Port=8883 Password=new Username=u --config /tmp --json",
        *(2, 0, "next", 2, 2, "next", 0),
        record=broker_record(),
    )
    assert result.objects == [
        {
            "kind": "broker",
            "id": 1,
            "name": "",
            "changes": [
                {"field": "Port", "changed": True, "old": 1883, "new": 8883},
                {"field": "Password", "changed": True, "old": None, "new": None},
                {"field": "Username", "changed": False, "old": "u", "new": "u"},
            ],
            "result": {"code": 0, "name": "SC_AC_OK", "text": "done"},
        }
    ]


@pytest.mark.parametrize(
    "code, text",
    [
        (-4, "possible only while the service is paused: `plcctl request pause` first; nothing was changed"),
        (-2, "no entity has this unique ID; nothing was changed"),
        (-1, "the configuration file could not be updated; nothing was changed"),
    ],
)
def test_the_second_message_is_not_sent_if_the_first_failed(service, code, text):
    result, messages = service(
        "set broker 1 Port=1",
        *(2, 0, "next", 2, code),
        record=broker_record(),
        after="plcctl queue show",
    )
    assert result.status == 100 - code
    assert [message[4:8] for message in messages] == ["0700", "0800"]
    assert result.lines == [EMPTY_QUEUE]
    assert text in result.errors


def test_a_second_message_that_failed_is_told_of(service):
    result, messages = service(
        "set broker 1 Port=1 --json", *(2, 0, "next", 2, 2, "next", -1), record=broker_record()
    )
    assert (result.status, len(messages)) == (101, 3)
    assert result.objects[0]["result"]["code"] == -1
    assert "the record's second part, from Password on: the first part is in the file" in result.errors


def test_an_answer_that_stays_in_progress_behind_the_second_message_is_no_success(service):
    result, messages = service(
        "set broker 1 Port=1 --timeout 6", *(2, 0, "next", 2, 2, "next"), record=broker_record()
    )
    assert (result.status, len(messages)) == (NO_ANSWER, 3)
    assert "a part of the record may be set: set it again, or `plcctl request start`" in result.errors


def test_a_first_message_that_is_only_taken_up_gets_no_second(service):
    result, messages = service(
        "set broker 1 Port=1 --timeout 6", *(2, 0, "next", 2), record=broker_record(), after="plcctl queue show"
    )
    assert (result.status, len(messages)) == (NO_ANSWER, 2)
    assert result.lines == [EMPTY_QUEUE]


def test_only_the_given_fields_change_in_what_the_file_has(plant, service):
    plant.write(
        "Publications.xml",
        '<PublicationsConf><Publications><PublicationConf ID="7" Name="level" DataAddr="3000" DataType="8"'
        ' BrokerReceivedAddr="-1" Topic="{PLC.NAME}/ü" QOS="1" PayloadFormat="1" RetainFlag="1"/>'
        "</Publications></PublicationsConf>",
    )
    result, messages = service(
        "set publication 7 QoS=2", *(2, 0, "next", 2, 0), record=caller_record("press/Ã¼", 1, 1, 1)
    )
    assert messages[1].endswith(caller_record("{PLC.NAME}/ü", 2, 1, 1).hex())
    # The stand-in answers "done" and leaves the file alone.
    assert result.status == FAILED
    assert "the service answered that it is done, but Publications.xml doesn't hold the record" in result.errors


def test_a_change_that_is_in_the_file_is_done(plant, service):
    plant.write(
        "Subscriptions.xml",
        '<SubscriptionsConf><Subscriptions><SubscriptionConf ID="3" Name="setpoint" DataAddr="8192" DataType="8"'
        ' SubAddr="9000" Topic="t" QOS="2" PayloadFormat="1" SubscribeAtBoot="1" IsBuffered="0"/>'
        "</Subscriptions></SubscriptionsConf>",
    )
    result, _ = service("set subscription 3 qos=2", *(2, 0, "next", 2, 0), record=caller_record("t", 1, 1, 1, 0))
    assert (result.status, result.errors) == (DONE, "")
    assert result.lines[1] == "  QoS               unchanged"


def test_a_record_that_was_cut_is_not_sent_back(service):
    record = b"x\0" * 256 + b"\1\1\1\0"
    result, messages = service("set publication 7 QoS=2", 2, 0, record=record)
    assert (result.status, len(messages)) == (FAILED, 1)
    assert "Topic has a value that the request can't carry" in result.errors
    result, messages = service(
        "set publication 7 Topic=short --config /tmp", *(2, 0, "next", 2, 0), record=record
    )
    assert (result.status, len(messages)) == (DONE, 2)
    assert messages[1].endswith(caller_record("short", 1, 1, 1).hex())


@pytest.mark.parametrize(
    "arguments, text",
    [
        ("broker 1 Prot=1", "a broker has no field 'Prot', did you mean Port?"),
        ("broker 1 Port=65536", "Port can't be '65536': it is a number from 0 to 65535"),
        ("broker 1 Encryption=1", "Encryption can't be set by a request"),
        ("broker 1 Port", "'Port' is no FIELD=VALUE"),
        ("publication 7 Retained=yes", "Retained can't be 'yes': it is one of 0, 1, true, false"),
        ("broker nobody Port=1", "there is no broker 'nobody'; there are 1 'plant', 2 'cloud'"),
        ("broker 1 Port=1 --status 100 --address 100", "the status byte would lie within the record"),
        ("broker 1 Port=1 --address 16777000", "2012 bytes at operand 16777000"),
    ],
)
def test_a_wrong_change_is_status_2_and_nothing_is_sent(plant, arguments, text):
    result = plant.run(f"{QUEUE}plcctl config set {arguments}; status=$?; ls /dev/shm; plcctl queue show; exit $status")
    assert result.status == USAGE
    assert text in result.errors
    assert result.lines == [EMPTY_QUEUE]


def test_without_a_queue_it_is_status_5_and_nothing_is_touched(plant):
    result = plant.run("plcctl config get broker 1; status=$?; ls /dev/shm; exit $status")
    assert (result.status, result.text) == (NOT_SENT, "")


def test_without_an_answer_it_is_status_4(plant):
    result = plant.run(f"{QUEUE}plcctl config get broker 1 --timeout 0.2")
    assert (result.status, result.text) == (NO_ANSWER, "")
    assert "no answer, and 1 message in the queue: is the service running" in result.errors
