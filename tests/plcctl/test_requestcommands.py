"""Requests to the service, answered by a stand-in of it."""

import pytest
from exitstatus import DONE, FAILED, NO_ANSWER, NOT_SENT, USAGE

QUEUE = "plcctl queue create || exit\n"

# Operand 1000, where the answer goes if nothing else is said, as it stands in a record.
DEFAULT_STATUS = "e8030000"

IN_PROGRESS_LINE = "SC_AC_IN_PROGRESS (2), taken up, not finished yet"


def answered(controller, request, *codes):
    """The result of the request when the stand-in answers with these codes, and the message that it got."""
    result = controller.run(
        f"{QUEUE}tagmemoryuser answer {' '.join(map(str, codes))} > /tmp/message &\n"
        f"plcctl request {request}; status=$?; wait; cat /tmp/message; exit $status"
    )
    *lines, message = result.lines
    result.lines = lines
    return result, message


@pytest.mark.parametrize(
    "request_line, message",
    [
        ("subscribe 3", "0000 0000 0300 00 00" + DEFAULT_STATUS),
        ("subscribe-all 1", "0000 0100 0100 00 00" + DEFAULT_STATUS),
        ("unsubscribe setpoint", "0000 0200 0300 00 00" + DEFAULT_STATUS),
        ("unsubscribe-all cloud", "0000 0300 0200 00 00" + DEFAULT_STATUS),
        ("connect plant", "0000 0400 0100 00 00" + DEFAULT_STATUS),
        ("disconnect 2", "0000 0500 0200 00 00" + DEFAULT_STATUS),
        ("send level", "0000 0600 0700 00 00" + DEFAULT_STATUS),
        ("pause", "0000 0d00" + DEFAULT_STATUS),
        ("start", "0000 0e00" + DEFAULT_STATUS),
        ("publish-state 7 on", "0000 0f00 0700 01 00" + DEFAULT_STATUS),
        ("publish-state 7 off", "0000 0f00 0700 00 00" + DEFAULT_STATUS),
        ("connect 9999 --status 0x12345", "0000 0400 0f27 00 00 45230100"),
        ("raw 0x11 --status 5", "0000 1100 0000 00 00 05000000"),
        ("raw 4 --id 65535 --main 258 --status 5", "0201 0400 ffff 00 00 05000000"),
        ("raw 8 --id 1 --status 5 --payload 'aa bb'", "0000 0800 0100 00 00 05000000 aabb"),
        ("raw 0 --status 5 --length 14", "0000 0000 0000 00 00 05000000 0000"),
        ("raw 13 --status 5", "0000 0d00 05000000"),
    ],
)
def test_a_request_goes_out_as_its_record_with_what_it_needs(plant, request_line, message):
    result, got = answered(plant, request_line, 2, 0)
    assert (result.status, result.errors) == (DONE, "")
    assert got == message.replace(" ", "")


@pytest.mark.parametrize(
    "request_line, message",
    [
        ("4 --id 1 --length 5", "0000 0400 01"),
        ("4 --status-address 0xffffffff", "0000 0400 0000 00 00 ffffffff"),
        ("16 --payload 0102", "0000 1000 0102"),
        ("7 --length 0", ""),
    ],
)
def test_a_raw_record_without_a_status_byte_is_sent_and_not_waited_for(plant, request_line, message):
    result = plant.run(f"{QUEUE}plcctl request raw {request_line} && ls /dev/shm; tagmemoryuser answer")
    assert (result.errors, result.lines[0]) == ("", f"opcode {request_line.split()[0]}, sent")
    assert result.lines[1:] == [message.replace(" ", "")]


def test_every_value_of_the_status_byte_is_shown_with_its_name(plant):
    result, _ = answered(plant, "connect 1", 2, -10)
    assert result.status == 110
    head, progress, final = result.lines
    assert head == "connect broker 1 'plant', status byte at operand 1000 (position 2134901736)"
    assert progress.endswith(f" s  {IN_PROGRESS_LINE}")
    assert final.endswith(" s  SC_AC_ERROR_BROKER_FAILED (-10), connecting or disconnecting failed")
    assert 0 <= float(progress.split()[0]) <= float(final.split()[0]) < 20


def test_json_is_one_object_with_every_value(plant):
    result, _ = answered(plant, "send 7 --json", 2, 2, -8)
    (answer,) = result.objects[:1]
    assert result.status == 108
    times = [value.pop("seconds") for value in answer["values"]]
    assert times == sorted(times) and times[0] >= 0
    progress = {"code": 2, "name": "SC_AC_IN_PROGRESS", "text": "taken up, not finished yet"}
    final = {"code": -8, "name": "SC_AC_ERROR_NOT_APERIODIC", "text": "the publication is periodic"}
    assert answer == {
        "request": "send",
        "opcode": 6,
        "id": 7,
        "name": "level",
        "statusOperand": 1000,
        "values": [progress, progress, final],
        "lostWrites": 0,
        "result": final,
    }


@pytest.mark.parametrize("code", [*range(-16, 0), -128])
def test_the_exit_status_of_an_error_tells_its_code(plant, code):
    result, _ = answered(plant, "pause", 2, code)
    assert result.status == 100 - code


def test_an_answer_that_no_service_gives_is_status_1(plant):
    result, _ = answered(plant, "pause", 5)
    assert result.status == FAILED
    assert result.lines[-1].endswith("5, unknown code")


def test_the_status_byte_is_made_neutral_ahead_of_the_request(plant):
    result = plant.run(
        f"{QUEUE}plcctl tag set --operand 1000 INT8 0; tagmemoryuser answer 2 0 > /dev/null & plcctl request pause > /dev/null\n"
        "wait; plcctl journal --json --operand --at 1000"
    )
    assert [write["bytes"] for write in result.objects] == ["00", "7f", "02", "00"]


def test_the_status_byte_left_out_avoids_what_the_configuration_uses(plant):
    operand_1000 = 0x7F400000 + 1000
    plant.write(
        "Publications.xml",
        "<PublicationsConf><Publications>"
        f'<PublicationConf ID="7" Name="level" DataAddr="{operand_1000 - 2}" DataType="8" BrokerReceivedAddr="-1"/>'
        "</Publications></PublicationsConf>",
    )
    result, message = answered(plant, "pause", 0)
    assert message == "00000d00" + "ea030000"
    assert result.lines[0] == "pause, status byte at operand 1002 (position 2134901738)"


def test_a_status_byte_that_the_configuration_uses_is_named(plant):
    plant.write(
        "MQTTClientConf.xml",
        f'<ClientConf><General Addr="{0x7F400000 + 50}"/><Statistics Addr="1536"/></ClientConf>',
    )
    result, _ = answered(plant, "pause --status 61", 0)
    assert result.status == DONE
    assert "the status byte at operand 61 (position 2134900797) overwrites general" in result.errors


def test_values_that_the_journal_lost_are_told_and_the_last_one_is_seen(plant):
    result = plant.run(
        f"{QUEUE}plcctl request pause > /tmp/answer & request=$!\n"
        "has_message() { plcctl queue show | grep -q ': 1 of'; }\n"
        "wait_for has_message; kill -STOP $request\n"
        "tagmemoryuser answer 2 -5 > /dev/null; tagmemoryuser write 70000; kill -CONT $request\n"
        "wait $request; status=$?; cat /tmp/answer; exit $status"
    )
    assert result.status == 105
    head, final, lost = result.lines
    assert "SC_AC_ERROR_ALREADY_PAUSED (-5)" in final
    assert lost.startswith("... ") and lost.endswith(" writes lost: values may be missing")


def test_without_an_answer_it_is_status_4_and_the_queue_is_told_of(plant):
    result = plant.run(f"{QUEUE}plcctl request connect 1 --timeout 0.2")
    assert result.status == NO_ANSWER
    assert "no answer, and 1 message in the queue: is the service running" in result.errors


def test_a_request_that_was_taken_and_not_answered_is_status_4(plant):
    result, _ = answered(plant, "connect 1 --timeout 6")
    assert result.status == NO_ANSWER
    assert "no answer, though the request was taken from the queue" in result.errors


def test_a_request_that_is_never_finished_is_status_4_with_no_result(plant):
    result, _ = answered(plant, "connect 1 --timeout 6 --json", 2)
    assert result.status == NO_ANSWER
    assert result.objects[0]["result"] is None
    assert [value["code"] for value in result.objects[0]["values"]] == [2]
    assert "the service took the request up and has not finished it" in result.errors


def test_a_time_out_of_0_does_not_wait_and_touches_no_tag(plant):
    result = plant.run(f"{QUEUE}plcctl request pause --timeout 0; ls /dev/shm; plcctl queue show")
    assert result.lines[0] == "pause, status byte at operand 1000 (position 2134901736)"
    assert result.lines[1].startswith("/MQTTQueue: 1 of 10 messages")
    assert result.errors == ""


def test_without_a_queue_it_is_status_5_and_nothing_is_touched(plant):
    result = plant.run("plcctl request pause; status=$?; ls /dev/shm; exit $status")
    assert (result.status, result.text) == (NOT_SENT, "")
    assert "there is no /MQTTQueue: the service opens it once, when it starts" in result.errors
    assert "`plcctl queue create` first" in result.errors


@pytest.mark.parametrize(
    "queue, status, text",
    [
        ("--messages 1", NOT_SENT, "/MQTTQueue is full, 1 waiting: no service reads it"),
        ("--size 8", FAILED, "the request has 12 bytes, and /MQTTQueue takes 8 at most"),
    ],
)
def test_a_queue_that_does_not_take_the_request_is_told_of(plant, queue, status, text):
    result = plant.run(
        f"plcctl queue create {queue}; plcctl request pause --timeout 0 > /dev/null; plcctl request connect 1"
    )
    assert result.status == status
    assert text in result.errors


def test_an_unknown_name_is_refused_with_the_known_ones_and_nothing_is_sent(plant):
    result = plant.run(f"{QUEUE}plcctl request connect Plant; status=$?; plcctl queue show; exit $status")
    assert result.status == USAGE
    assert "there is no broker 'Plant'; there are 1 'plant', 2 'cloud'" in result.errors
    assert result.lines[0].startswith("/MQTTQueue: 0 of")


def test_an_id_needs_no_configuration(controller):
    result, message = answered(controller, "connect 1", 0)
    assert result.status == DONE
    assert message.startswith("000004000100")


def test_ctrl_c_ends_the_waiting_with_status_4(plant):
    result = plant.run(
        f"{QUEUE}plcctl request pause > /tmp/answer & request=$!\n"
        "has_begun() { grep -qs pause /tmp/answer; }\n"
        "wait_for has_begun; kill -INT $request; wait $request"
    )
    assert result.status == NO_ANSWER
