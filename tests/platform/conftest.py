"""What the tests of the platform share: where things lie, and a device of their own."""

import os
import pathlib
import shutil
import subprocess

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
DEVICE_ROOT = REPOSITORY / "Platform" / "DeviceRoot"
SANDBOX = REPOSITORY / "scripts" / "sandbox"


class Sandbox:
    """scripts/sandbox on one device directory."""

    def __init__(self, device):
        self.device = device

    def arguments(self, *command, options=()):
        return [str(SANDBOX), *map(str, options), str(self.device), "--", *command]

    def run(self, *command, options=(), **keywords):
        return subprocess.run(self.arguments(*command, options=options), capture_output=True, text=True, timeout=50,
                              stdin=subprocess.DEVNULL, **keywords)

    def output(self, *command, **keywords):
        """What `command` prints; it has to end with 0."""
        result = self.run(*command, **keywords)
        assert result.returncode == 0, result.stderr
        return result.stdout

    def start(self, *command, **keywords):
        return subprocess.Popen(self.arguments(*command), text=True, stdout=subprocess.PIPE, **keywords)


@pytest.fixture
def sandbox(tmp_path):
    shutil.copytree(DEVICE_ROOT, tmp_path / "device")
    return Sandbox(tmp_path / "device")


@pytest.fixture(scope="session")
def libraries():
    return pathlib.Path(os.environ.get("BUILD_DIR", REPOSITORY / "build" / "release")) / "lib"
