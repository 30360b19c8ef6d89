"""The clock script: one "1" anywhere in what it prints means that the clock is set, and no answer means it too."""

import pytest

from support import configuration, csvlog, records
from support.configuration import broker, publication
from support.device import CLOCK_SCRIPT, VERBOSE
from support.waiting import holds_for, wait_until


def status_with(device, body, *arguments):
    device.script(CLOCK_SCRIPT, body)
    device.configure(brokers=[broker(AutoConnect=0)])
    device.run(*arguments)
    return device.status()


@pytest.mark.parametrize(
    "body",
    [
        "echo 1",
        "echo 0; echo 1",
        "echo 'Fri Nov 21 2025'",
        "printf 'xx1yy'",
        "echo 1; exit 7",
        "echo 1; kill -9 $$",
        "yes 0 | head -c 8000000; echo 1",
        "echo $((1 - $#))",  # no arguments
    ],
)
def test_a_one_in_the_output_is_a_clock_that_is_set(device, body):
    assert status_with(device, body) == records.RUNNING


@pytest.mark.parametrize(
    "body",
    ["echo 0", "true", "echo 2000", "exit 1", "echo 1 >&2", "echo '１'", "kill -9 $$", "yes 0 | head -c 8000000"],
)
def test_no_one_in_the_output_is_a_clock_that_is_not_set(device, body):
    assert status_with(device, body) == records.TIME_NOT_SET


def test_outcome_is_logged(device):
    status_with(device, "echo 1", *VERBOSE)
    assert csvlog.has_message("System time OK", severity="DEBUG")
    device.service.kill()
    device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))
    status_with(device, "echo 0", *VERBOSE)
    assert csvlog.has_message("System time error, need to set RTC (local clock)", severity="DEBUG")


def test_missing_script_counts_as_a_clock_that_is_set(device):
    CLOCK_SCRIPT.unlink()
    device.configure(brokers=[broker(AutoConnect=0)])
    device.run(*VERBOSE)
    assert device.status() == records.RUNNING
    assert not csvlog.has_message("System time")


def test_script_that_can_not_be_run_counts_as_a_clock_that_is_set(device):
    CLOCK_SCRIPT.chmod(0o644)
    device.configure(brokers=[broker(AutoConnect=0)])
    device.run()
    assert device.status() == records.RUNNING


@pytest.mark.timeout(90)
def test_hanging_script_is_given_up_after_30_seconds(device):
    device.script(CLOCK_SCRIPT, "exec sleep 300")
    device.configure(brokers=[broker(AutoConnect=0)])
    service = device.start()
    wait_until(lambda: device.general().brokers == 1, "the start")
    holds_for(lambda: device.status() == records.STARTING and not service.has_ended(), "the wait", 27)
    wait_until(lambda: device.status() == records.RUNNING, "the end of the wait", timeout=25)


def test_service_works_with_a_clock_that_is_not_set(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.script(CLOCK_SCRIPT, "echo 0")
    device.configure(publications=[publication()])
    device.run()
    assert device.status() == records.TIME_NOT_SET
    listener.wait_for("plc/data/1", 3)
