"""The journal of writes."""

import re

from exitstatus import DONE


def test_the_journal_lists_every_write_in_order_with_its_name(plant):
    result = plant.run(
        "plcctl link up --port 1; plcctl tag set 4096 BYTES 010000 00; plcctl tag set --operand 5 INT8 -1; "
        "plcctl journal"
    )
    assert result.status == DONE
    time = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}"
    expected = [
        rf"#0  {time}  pid \d+  at 44  size 1  01  \|\.\|  link of port 1",
        rf"#1  {time}  pid \d+  at 4096  size 4  01 00 00 00  \|\.\.\.\.\|  broker 'plant' status",
        rf"#2  {time}  pid \d+  at operand 5 \(position 2134900741\)  size 1  ff  \|\.\|",
    ]
    assert len(result.lines) == len(expected)
    for line, pattern in zip(result.lines, expected):
        assert re.fullmatch(pattern, line), line


def test_the_journal_names_all_that_the_configuration_knows(plant):
    positions = [47, 1024, 1536, 4100, 3000, 3100, 8192, 9000, 5000]
    result = plant.run(
        "".join(f"plcctl tag set {position} UINT8 1;" for position in positions) + "plcctl journal --json"
    )
    assert [write.get("name") for write in result.objects] == [
        "link of port 2",
        "general",
        "statistics",
        "broker 'cloud' status",
        "publication 'level' data",
        "publication 'level' acknowledgement",
        "subscription 'setpoint' data",
        "subscription 'setpoint' record: subscribed",
        None,
    ]


def test_the_journal_takes_names_from_the_given_directory_and_needs_none(plant):
    result = plant.run("plcctl tag set 1024 UINT8 1; plcctl journal --json --config /nowhere")
    assert (result.status, result.errors) == (DONE, "")
    assert "name" not in result.objects[0]


def test_the_journal_can_begin_at_a_number_or_with_the_last_ones(controller):
    fill = "for i in 0 1 2 3 4; do plcctl tag set 10$i UINT8 $i; done;"
    result = controller.run(
        fill + "plcctl journal --json --from 3; plcctl journal --json --last 1; plcctl journal --json --count 2"
    )
    assert [write["number"] for write in result.objects] == [3, 4, 4, 0, 1]


def test_the_journal_shows_only_writes_that_touch_the_wanted_bytes(controller):
    fill = (
        "plcctl tag set 96 INT32 1; plcctl tag set 99 INT8 1; plcctl tag set 100 INT8 1;"
        f"plcctl tag set 90 BYTES {'00' * 12};"
    )
    result = controller.run(
        fill + "plcctl journal --json --at 99; plcctl journal --json --at 98:2 --last 1; "
        "plcctl journal --json --at 0x64:4"
    )
    assert [write["number"] for write in result.objects] == [0, 1, 3, 3, 2, 3]


def test_a_long_write_shows_its_first_32_bytes(controller):
    result = controller.run("plcctl tag set 100 STR8 '' --length 99; plcctl journal --json; plcctl journal")
    assert result.lines[0].count("00" * 32) == 1
    assert '"size":100' in result.lines[0]
    assert " 00 ...  |" in result.lines[1]


def test_following_shows_new_writes_as_they_come(controller):
    result = controller.run(
        """
        plcctl link up
        plcctl journal --follow --json --count 3 --last 1 > /tmp/out & follower=$!
        wait_for [ -s /tmp/out ]
        plcctl tag set 100 UINT8 5
        wait_for grep -qs '"position":100,' /tmp/out
        plcctl tag set 101 UINT8 6
        wait $follower; echo $?
        grep -o '"position":[0-9]*' /tmp/out
        """
    )
    assert result.lines == ["0", '"position":47', '"position":100', '"position":101']


def test_following_alone_begins_with_the_next_write(controller):
    result = controller.run(
        """
        plcctl link up
        plcctl journal --follow --json --count 1 > /tmp/out & follower=$!
        number=0
        while kill -0 $follower 2> /dev/null && [ $number -lt 1000 ]; do
            plcctl tag set 500 UINT8 1; number=$((number + 1)); sleep 0.01
        done
        wait $follower; echo $?
        cat /tmp/out
        """
    )
    assert result.lines[0] == str(DONE)
    assert '"position":500' in result.lines[1]


def test_overwritten_writes_are_counted_as_lost(controller):
    result = controller.run(
        "tagmemoryuser write 65546 || exit; plcctl journal --from 3 --count 1;"
        "plcctl journal --from 3 --json --count 1; plcctl journal --json --count 1"
    )
    assert result.status == DONE, result.errors
    assert result.lines[0] == "... 7 writes lost"
    assert result.lines[1].startswith("#10  ")
    assert result.lines[2] == '{"lost":7}'
    assert '"number":10,' in result.lines[3]
    assert '"number":10,' in result.lines[4]
