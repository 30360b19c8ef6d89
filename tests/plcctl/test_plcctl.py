"""The program as a whole: help, usage, what it leaves alone, and how its output ends."""

import re

import pytest

from exitstatus import DONE, FAILED, NOTHING_TO_READ, USAGE

COMMANDS = [
    "status",
    "tag",
    "tag get",
    "tag set",
    "tag watch",
    "journal",
    "link",
    "link up",
    "link down",
    "link show",
    "queue",
    "queue create",
    "queue remove",
    "queue show",
    "registrations",
    "request",
    "request subscribe",
    "request subscribe-all",
    "request unsubscribe",
    "request unsubscribe-all",
    "request connect",
    "request disconnect",
    "request send",
    "request publish-state",
    "request pause",
    "request start",
    "request raw",
    "config",
    "config get",
    "config set",
    "app",
    "explain",
    "convert",
    "diagnose",
]

LOOKING = [
    "status",
    "tag get 100 INT32",
    "tag watch 100 INT32 --for 1",
    "journal",
    "journal --follow --for 1",
    "link show",
    "registrations",
]


def test_help_of_every_command_says_how_to_use_it_with_an_example(controller):
    result = controller.run("".join(f"plcctl {command} --help || exit\necho ====\n" for command in COMMANDS))
    assert result.status == DONE, result.errors
    pages = result.text.split("====\n")[:-1]
    assert len(pages) == len(COMMANDS)
    for command, page in zip(COMMANDS, pages):
        assert f"Usage: plcctl {command}" in page
        assert re.search(rf"Examples?:\n  plcctl {command.split()[0]}", page), page


def test_help_of_the_program_lists_commands_and_exit_statuses(controller):
    result = controller.run("plcctl --help")
    assert result.status == DONE
    for command in {command.split()[0] for command in COMMANDS}:
        assert re.search(rf"^  {command} ", result.text, re.MULTILINE)
    for status in [0, 1, 2, 3, 4, 5, "101 to 228"]:
        assert re.search(rf"^  {status}  \w", result.text, re.MULTILINE)


def test_the_version_is_told(controller):
    result = controller.run("plcctl --version")
    assert (result.status, result.errors) == (DONE, "")
    assert re.fullmatch(r"plcctl \d+\.\d+\.\d+\n", result.text)


@pytest.mark.parametrize(
    "arguments",
    ["", "tag", "link", "queue", "nonsense", "status --nonsense", "tag get", "tag get 100", "tag set 100 INT8"]
    + ["link up --port 3", "link up --port 0", "queue create --messages 0", "queue create --messages x"]
    + ["tag get 100 INT8 --count 0", "tag get 100 INT8 --count 2 --length 2", "tag watch 100 INT8 --interval 0"]
    + ["request", "request connect", "request nonsense 1", "request publish-state 7", "request publish-state 7 maybe"]
    + ["request pause --timeout -1", "request pause --status 16777216", "request pause --status x", "request raw"]
    + ["request raw 65536", "request raw 13 --id 1", "request raw 16 --id 1", "request raw 16 --status-address 1"]
    + ["request raw 0 --status 1 --status-address 1", "request raw 0 --payload abc", "app --messages 0"]
    + ["config", "config get", "config get broker", "config get plant 1", "config set broker 1"]
    + ["config get broker 1 --address x", "config get broker 1 --timeout -1", "config set broker 1 port=1 port=2"]
    + ["journal --for 1", "journal --last 1 --from 1 --follow", "status --interval 5"],
)
def test_wrong_usage_is_status_2_with_a_message_and_no_output(controller, arguments):
    result = controller.run(f"plcctl {arguments}; status=$?; ls /dev/shm; exit $status")
    assert result.status == USAGE
    assert result.errors
    assert result.text == ""


@pytest.mark.parametrize("command", LOOKING)
def test_looking_without_a_controller_is_status_3_and_creates_nothing(plant, command):
    result = plant.run(f"plcctl {command}; status=$?; ls -A /dev/shm; exit $status")
    assert result.status == NOTHING_TO_READ
    assert result.text == ""
    assert "no controller here: tag memory does not exist; start the service or `plcctl link up` first" in result.errors


def test_looking_writes_nothing_to_tag_memory(plant):
    looks = "".join(f"plcctl {command} > /dev/null || exit\n" for command in LOOKING)
    result = plant.run(f"plcctl link up\n sum() {{ sha256sum /dev/shm/TagMemory; }}\n sum\n{looks}sum")
    assert result.status == DONE, result.errors
    before, after = result.lines
    assert before == after


def test_tag_memory_of_another_layout_is_named(controller):
    result = controller.run(
        "plcctl link up; printf X | dd of=/dev/shm/TagMemory conv=notrunc status=none; plcctl link show"
    )
    assert result.status == FAILED
    assert "another layout" in result.errors


def test_output_that_cannot_be_written_is_status_1(controller):
    result = controller.run("plcctl link up; plcctl link show > /dev/full")
    assert result.status == FAILED
    assert "standard output could not be written" in result.errors
