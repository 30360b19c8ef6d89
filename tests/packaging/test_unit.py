"""The systemd unit and what it runs ahead of the service, without systemd."""

import subprocess

from support import build

UNIT = build.REPOSITORY / "packaging/systemd/mqttclientmanager.service"


def test_unit_has_no_mistakes(tmp_path):
    text = UNIT.read_text()
    for path, here in (("/usr/bin/", f"{build.DIRECTORY}/bin/"),
                       ("/usr/lib/mqttclientmanager/", f"{UNIT.parent}/")):  # fmt: skip
        assert path in text
        text = text.replace(path, here)
    unit = tmp_path / UNIT.name
    unit.write_text(text)
    verified = subprocess.run(["systemd-analyze", "verify", "--man=no", unit], check=False, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True)  # fmt: skip
    # Of units of this machine, others may be named.
    assert [line for line in verified.stdout.splitlines() if unit.stem in line] == []


def test_unit_restricts_what_the_service_does_not_need():
    rated = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--threshold=30", "--no-pager", UNIT],
                           check=False, capture_output=True, text=True)  # fmt: skip
    assert rated.returncode == 0, rated.stdout


def test_unit_shares_tmp_and_the_queue():
    """Others read the log, and write to the queue and the tags."""
    lines = UNIT.read_text().splitlines()
    assert not [line for line in lines if line.startswith(("PrivateTmp=", "PrivateIPC=", "RemoveIPC=", "DynamicUser="))]


def test_report_on_the_configuration_goes_to_the_standard_error(before_start):
    result = before_start('echo "checked $*"; exit 1', MQTTCLIENTMANAGER_QUEUE_WAIT="0")
    assert "checked check /VEL/UserApps/Config/MQTT" in result.stdout


def test_report_that_fails_keeps_nothing_from_starting(before_start):
    assert before_start("exit 1", MQTTCLIENTMANAGER_QUEUE_WAIT="0").returncode == 0


def test_missing_queue_is_told(before_start):
    assert "/MQTTQueue is missing" in before_start("", MQTTCLIENTMANAGER_QUEUE_WAIT="1").stdout


def test_start_waits_no_longer_than_for_the_queue(before_start):
    made = f"{build.DIRECTORY}/bin/plcctl queue create >/dev/null"
    late = before_start("", f"(sleep 1; {made}) &", MQTTCLIENTMANAGER_QUEUE_WAIT="60")
    assert "is missing" not in late.stdout
    assert late.returncode == 0


def test_wait_that_is_no_number_is_told(before_start):
    result = before_start("", MQTTCLIENTMANAGER_QUEUE_WAIT="long")
    assert "no number of seconds: 'long'" in result.stdout
    assert result.returncode == 0
