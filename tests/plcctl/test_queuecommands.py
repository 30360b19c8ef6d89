"""The commands of the request queue."""

from exitstatus import DONE, FAILED, NOTHING_TO_READ


def test_a_created_queue_has_the_default_attributes(controller):
    result = controller.run("plcctl queue create && plcctl queue show && plcctl queue show --json")
    assert (result.status, result.errors) == (DONE, "")
    assert result.lines[0] == "/MQTTQueue: 0 of 10 messages (0 % full), up to 1500 bytes each"
    expected = '{"name":"/MQTTQueue","messages":0,"maximumMessages":10,"messageSize":1500,"fillPercent":0}'
    assert result.lines[1] == expected


def test_creating_the_same_queue_again_is_fine(controller):
    result = controller.run(
        "plcctl queue create --messages 5 --size 600 && plcctl queue create --messages 5 --size 600"
    )
    assert (result.status, result.text, result.errors) == (DONE, "", "")


def test_creating_a_different_queue_fails_and_says_what_to_do(controller):
    result = controller.run(
        "plcctl queue create; plcctl queue create --messages 5; echo $?; plcctl queue show --json"
    )
    assert result.lines[0] == str(FAILED)
    assert "10 messages of 1500 bytes, not 5 messages of 1500 bytes; `plcctl queue remove` first" in result.errors
    assert '"maximumMessages":10' in result.lines[1]


def test_a_queue_too_large_for_the_service_is_created_with_a_warning(controller):
    result = controller.run("plcctl queue create --size 1501")
    assert result.status == DONE
    assert "the service reads at most 1500 bytes" in result.errors


def test_a_queue_that_the_system_refuses_fails_and_names_the_limits(controller):
    result = controller.run("plcctl queue create --messages 65536 --size 16777216")
    assert result.status == FAILED
    assert "fs.mqueue.msg_max" in result.errors


def test_showing_a_queue_that_is_missing_is_status_3(controller):
    result = controller.run("plcctl queue show")
    assert (result.status, result.text) == (NOTHING_TO_READ, "")
    assert "`plcctl queue create`" in result.errors


def test_a_removed_queue_is_gone_and_removing_it_twice_is_fine(controller):
    result = controller.run(
        "plcctl queue create; plcctl queue remove; echo $?; plcctl queue remove; echo $?; plcctl queue show"
    )
    assert result.lines == ["0", "0"]
    assert result.status == NOTHING_TO_READ


def test_the_fill_of_the_queue_is_shown(controller):
    send = (
        "import ctypes, os\n"
        "c = ctypes.CDLL(None, use_errno=True)\n"
        "q = c.mq_open(b'/MQTTQueue', os.O_WRONLY)\n"
        "assert q >= 0\n"
        "for _ in range(3): assert c.mq_send(q, b'x', 1, 0) == 0\n"
    )
    result = controller.run(
        'plcctl queue create --messages 4; /usr/bin/python3 -c "$SEND" && plcctl queue show',
        SEND=send,
    )
    assert result.lines == ["/MQTTQueue: 3 of 4 messages (75 % full), up to 1500 bytes each"], result.errors
