"""Machines on which the packages are installed. scripts/package makes the directories that they are made of."""

import pathlib
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from machine import Machine  # noqa: E402

LAYERS = HERE.parents[2] / "build" / "packaging"


@pytest.fixture
def bare_machine(tmp_path):
    """Runs systemd, and has no configuration."""
    machine = Machine([LAYERS / "installed", LAYERS / "clean"], tmp_path)
    try:
        machine.boot()
        yield machine
    finally:
        machine.close()


@pytest.fixture
def machine(bare_machine):
    """Has the sample configuration, a link and the queue. The service isn't started."""
    bare_machine.configure()
    return bare_machine


@pytest.fixture
def running(machine):
    machine.start_service()
    return machine


@pytest.fixture
def earlier_packages():
    return sorted((LAYERS / "earlier").glob("*.deb"))
