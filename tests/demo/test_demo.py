"""The demo, on the build under test and in a sandbox of its own, as scripts/demo runs it."""

import os
import shutil
import subprocess
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[2]
BUILD = os.environ.get("BUILD_DIR", str(REPOSITORY / "build" / "release"))


@pytest.fixture
def device(tmp_path):
    shutil.copytree(REPOSITORY / "Platform" / "DeviceRoot", tmp_path / "device")
    return tmp_path / "device"


def run_demo(device, *arguments):
    command = [REPOSITORY / "scripts" / "sandbox", device, "--", "/usr/bin/python3", "Tools/demo/demo.py",
               "--build", BUILD, *arguments]
    return subprocess.run(list(map(str, command)), cwd=REPOSITORY, capture_output=True, text=True, timeout=120,
                          check=False)


def test_shows_each_publication_and_ends_by_itself(device):
    done = run_demo(device, "--seconds", "6")
    assert done.returncode == 0, done.stderr
    last_picture = done.stdout.split("tags of the controller")[-1]
    for name in ("line speed", "bottles by lane", "recipe", "emergency stop", "shift"):
        assert name in last_picture
    assert "'plant' connected" in last_picture
    assert "the service ended by signal 15" in done.stdout


def test_without_a_terminal_it_ends_after_ten_seconds(device):
    done = run_demo(device)
    assert done.returncode == 0, done.stderr
    assert done.stdout.count("tags of the controller") in (4, 5)  # one every 2 s, drawn within a second or so


def test_tells_why_when_the_service_does_not_start(device):
    (device / "VEL/UserApps/Config/MQTT/MQTTClientConf.xml").write_text("<broken")
    done = run_demo(device, "--seconds", "6")
    assert done.returncode == 1
    assert "demo: " in done.stderr
    assert "Traceback" not in done.stderr


def test_tells_why_when_a_publication_does_not_arrive(device):
    publications = device / "VEL/UserApps/Config/MQTT/Publications.xml"
    publications.write_text(publications.read_text().replace('PeriodicInterval="500"', 'PeriodicInterval="500000"'))
    done = run_demo(device, "--seconds", "6")
    assert done.returncode == 1
    assert "no message of 'line speed' arrived" in done.stderr


def test_a_time_that_is_too_short_is_refused(device):
    done = run_demo(device, "--seconds", "2")
    assert done.returncode == 2
    assert "5 at least" in done.stderr
