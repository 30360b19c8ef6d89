"""Tags by type: get, set and watch."""

import json
import re

import pytest

from exitstatus import DONE, USAGE


@pytest.mark.parametrize(
    ("type_name", "value", "bytes_in_memory", "shown"),
    [
        ("BOOL", "true", "01", "true"),
        ("INT8", "-1", "ff", "-1"),
        ("UINT8", "255", "ff", "255"),
        ("INT16", "-2", "fe ff", "-2"),
        ("UINT16", "0x1234", "34 12", "4660"),
        ("INT32", "-5", "fb ff ff ff", "-5"),
        ("UINT32", "4294967295", "ff ff ff ff", "4294967295"),
        ("REAL", "0.1", "cd cc cc 3d", "0.1"),
        ("STR8", "'ä b'", "c3 a4 20 62 00", "ä b"),
        ("STR16", "😀", "3d d8 00 de 00 00", "😀"),
        ("STR32", "😀", "00 f6 01 00 00 00 00 00", "😀"),
        ("BYTES", "00fF 10", "00 ff 10", "00"),
    ],
)
def test_a_value_that_was_set_is_in_memory_and_is_read_back(controller, type_name, value, bytes_in_memory, shown):
    size = len(bytes_in_memory.split())
    result = controller.run(
        f"plcctl tag set 2048 {type_name} {value} && plcctl tag get 2048 BYTES --count {size} &&"
        f"plcctl tag get 2048 {type_name}"
    )
    assert (result.status, result.errors) == (DONE, "")
    assert result.lines == [bytes_in_memory, shown]


def test_an_array_is_written_with_one_write_and_read_back(controller):
    result = controller.run(
        "plcctl tag set 0x900 INT16 1 -2 0x10; plcctl tag get 2304 INT16 --count 3;"
        "plcctl tag get 2304 INT16 --count 3 --json; plcctl journal --json"
    )
    assert result.lines[0] == "1 -2 16"
    assert result.lines[1] == '{"position":2304,"type":"INT16","value":[1,-2,16]}'
    write = json.loads(result.lines[2])
    assert len(result.lines) == 3
    assert (write["position"], write["size"], write["bytes"]) == (2304, 6, "0100feff1000")


def test_an_operand_address_is_converted(controller):
    result = controller.run(
        "plcctl tag set --operand 65536 UINT8 9; plcctl tag get 0x7F410000 UINT8;"
        "plcctl tag get --operand 65536 UINT8 --json"
    )
    assert result.lines == ["9", '{"position":2134966272,"operand":65536,"type":"UINT8","value":9}']


def test_a_text_with_a_length_fills_its_slot(controller):
    result = controller.run(
        "plcctl tag set 100 UINT8 7 7 7 7 7 7 7; plcctl tag set 100 STR8 ab --length 4; "
        "plcctl tag get 100 BYTES --count 7"
    )
    assert result.lines == ["61 62 00 00 00 07 07"]


def test_a_text_without_a_length_leaves_what_follows_its_terminator(controller):
    result = controller.run(
        "plcctl tag set 100 UINT8 7 7 7 7; plcctl tag set 100 STR8 ab; plcctl tag get 100 BYTES --count 4"
    )
    assert result.lines == ["61 62 00 07"]


def test_a_value_that_looks_like_an_option_comes_after_two_dashes(controller):
    result = controller.run(
        "plcctl tag set 100 REAL -- -inf && plcctl tag get 100 REAL && plcctl tag get 100 REAL --json"
    )
    assert result.lines == ["-inf", '{"position":100,"type":"REAL","value":"-inf"}']


def test_a_text_that_would_command_the_terminal_is_spelled_out_and_json_has_it_as_it_is(controller):
    result = controller.run(
        "plcctl tag set 100 BYTES 1b5b324a00; plcctl tag get 100 STR8; plcctl tag get 100 STR8 --json"
    )
    assert result.lines[0] == "\\x1b[2J"
    assert result.lines[1] == '{"position":100,"type":"STR8","value":"\\u001b[2J"}'


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        ("100 INT8 128", "it holds -128 to 127"),
        ("100 UINT16 -1", "it holds 0 to 65535"),
        ("100 INT32 1 2 x", "'x'"),
        ("100 REAL 1e39", "single precision"),
        ("100 STR8 hello --length 4", "takes 5 characters"),
        ("100 STR16 😀 --length 1", "takes 2 characters"),
        ("100 STR8 \"$(printf 'a\\377')\"", "no valid UTF-8"),
        ("100 STR8 two words", "one text"),
        ("100 BYTES 123", "two hexadecimal digits"),
        ("100 STRUCT 1", "no type of tag; there are BOOL,"),
        ("abc INT8 1", "no address"),
        ("16777213 INT32 1", "outside tag memory"),
        ("--operand 16777216 INT8 1", "operand addresses go from 0 to 16777215"),
    ],
)
def test_a_value_that_cannot_be_is_refused_and_nothing_is_written(controller, arguments, message):
    result = controller.run(
        f"plcctl link up; plcctl tag set {arguments}; status=$?; plcctl journal --json; exit $status"
    )
    assert result.status == USAGE
    assert message in result.errors
    assert [write["position"] for write in result.objects] == [44, 47]


def test_reading_stops_at_the_end_of_tag_memory(controller):
    result = controller.run(
        "plcctl tag set 16777215 STR8 ''; plcctl tag get 16777215 STR8; echo $?;"
        "plcctl tag get 16777215 INT16; echo $?;"
        "plcctl tag get 16777216 STR8; echo $?; plcctl tag get 0 INT32 --count 16384; echo $?"
    )
    assert result.lines == ["", "0", "2", "2", "2"]


def test_watching_prints_the_first_value_and_each_change(controller):
    result = controller.run(
        """
        plcctl tag set 100 INT16 1
        plcctl tag watch 100 INT16 --interval 5 --count-changes 2 --json > watched & watcher=$!
        wait_for grep -qs '"value":1}' watched
        plcctl tag set 100 INT16 1
        plcctl tag set 100 INT16 -7
        wait_for grep -qs '"value":-7}' watched
        plcctl tag set 100 INT16 300
        wait $watcher; echo $?
        cat watched
        """.replace("watched", "/tmp/watched")
    )
    assert result.lines[0] == str(DONE), result.errors
    lines = [json.loads(line) for line in result.lines[1:]]
    assert [line["value"] for line in lines] == [1, -7, 300]
    assert all(re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z", line["time"]) for line in lines)


def test_a_watch_ends_when_its_time_is_up(controller):
    result = controller.run("plcctl tag set 100 STR8 still; plcctl tag watch 100 STR8 --interval 3600000 --for 0.1")
    assert result.status == DONE
    assert len(result.lines) == 1
    assert result.lines[0].endswith("  still")


@pytest.mark.parametrize("signal", ["INT", "TERM"])
@pytest.mark.parametrize(
    "command", ["tag watch 44 UINT8 --interval 3600000", "journal --follow --from 0", "status --watch"]
)
def test_a_signal_ends_watching_with_status_0_and_all_lines_written(plant, command, signal):
    result = plant.run(
        f"plcctl link up; plcctl {command} > /tmp/out & watcher=$!; wait_for [ -s /tmp/out ];"
        f"kill -{signal} $watcher; wait $watcher; echo $?; wc -l < /tmp/out"
    )
    assert result.lines[0] == str(DONE), result.errors
    assert int(result.lines[1]) >= 1
