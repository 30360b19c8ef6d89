"""The unit on a machine with systemd: when the service starts, how it ends, and what is left alone."""

import pytest
from machine import CONFIGURATION, DEFAULTS, UNIT


def test_machine_without_a_configuration_is_left_alone(bare_machine):
    assert bare_machine.unit("UnitFileState") == "enabled"
    assert bare_machine.unit("ActiveState", "ConditionResult") == ("inactive", "no")
    assert bare_machine.succeeds(f"systemctl start {UNIT}")


def test_service_publishes_the_samples_tags(running):
    running.run("plcctl tag set 2048 REAL 99.5")
    heard = running.run("mosquitto_sub -t plant/bottling-1/speed -F %X -C 5 -W 30").text.split()
    assert "0000C742" in heard
    assert running.unit("ActiveState", "SubState") == ("active", "running")


def test_service_starts_with_the_machine(machine):
    """As far as one start goes: the unit is wanted by the target that every start reaches."""
    assert f"{UNIT}.service" in machine.run("systemctl list-dependencies --plain multi-user.target").text


def test_report_on_the_configuration_stands_in_the_journal(machine):
    machine.run(f"sed -i 's/Port=\"1883\"/Prot=\"1883\"/' {CONFIGURATION}/Brokers.xml")
    machine.start_service()
    assert "Prot" in machine.journal()


def test_rows_of_the_log_stay_out_of_the_journal(machine):
    machine.make_verbose()
    machine.start_service()
    assert ";DEBUG;" in machine.read("/tmp/cStdErr.csv")
    assert "DEBUG" not in machine.journal()


def test_stop_is_quick_and_no_failure(running):
    running.run(f"systemctl stop {UNIT}")
    assert running.unit("ActiveState", "Result", "ExecMainStatus") == ("inactive", "success", "15")


@pytest.mark.parametrize("signal", ["KILL", "SEGV", "ABRT"])
def test_crash_is_followed_by_a_start(running, signal):
    first = running.unit("MainPID")
    running.run(f"systemctl kill --kill-whom=main -s {signal} {UNIT}")
    running.wait_for(lambda: running.unit("NRestarts") == "1", "the new start")
    running.wait_for(lambda: running.unit("ActiveState") == "active", "the service")
    assert running.unit("MainPID") != first
    running.run("mosquitto_sub -t plant/bottling-1/speed -C 1 -W 30")


def test_unusable_configuration_is_not_tried_again(machine):
    machine.write(f"{CONFIGURATION}/Brokers.xml", "<BrokersConf")
    machine.run(f"systemctl start {UNIT}")
    machine.wait_for(lambda: machine.unit("ActiveState") == "inactive", "the end of the service")
    assert machine.unit("Result", "ExecMainStatus", "NRestarts") == ("success", "0", "0")


def test_start_waits_for_the_request_queue(machine):
    machine.run(f"plcctl queue remove && systemctl start --no-block {UNIT}")
    machine.wait_for(lambda: machine.unit("ActiveState", "SubState") == ("activating", "start-pre"), "the wait")
    machine.run("plcctl queue create")
    machine.wait_for(lambda: machine.unit("ActiveState") == "active", "the service")
    assert "is missing" not in machine.journal()


def test_service_starts_without_a_queue_in_the_end(machine):
    machine.run("plcctl queue remove")
    machine.run(f"sed -i s/QUEUE_WAIT=60/QUEUE_WAIT=1/ {DEFAULTS}")
    machine.start_service()
    assert "/MQTTQueue is missing" in machine.journal()


def test_controllers_own_libraries_take_the_stand_ins_place(machine):
    machine.run("mkdir -p /opt/controller/lib && cp /usr/lib/mqttclientmanager/lib/*.so /opt/controller/lib && "
                f"sed -i 's/^#LD_LIBRARY/LD_LIBRARY/' {DEFAULTS}")  # fmt: skip
    machine.start_service()
    maps = machine.run(f"cat /proc/$(systemctl show -p MainPID --value {UNIT})/maps").text
    assert "/opt/controller/lib/libTagMemory.so" in maps
    assert "/usr/lib/mqttclientmanager/lib/" not in maps
