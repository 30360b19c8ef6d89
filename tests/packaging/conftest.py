"""The packages, made of the build that is tested. BUILD_DIR selects it."""

import os
import pathlib
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

from support import build  # noqa: E402

# What takes long and changes nothing that is looked at here: packages of symbols, and strong compression.
QUICK = ["-D", "CPACK_DEBIAN_DEBUGINFO_PACKAGE=OFF", "-D", "CPACK_STRIP_FILES=ON",
         "-D", "CPACK_DEBIAN_COMPRESSION_TYPE=gzip"]  # fmt: skip


@pytest.fixture(scope="session")
def packages(tmp_path_factory):
    """The directory with both."""
    directory = tmp_path_factory.mktemp("packages")
    subprocess.run(["cpack", *QUICK, "-B", directory], cwd=build.DIRECTORY, check=True, capture_output=True)
    return directory


@pytest.fixture(scope="session")
def tree(packages, tmp_path_factory):
    """Both packages, unpacked."""
    directory = tmp_path_factory.mktemp("tree")
    for package in packages.glob("*.deb"):
        subprocess.run(["dpkg-deb", "-x", package, directory], check=True)
    return directory


@pytest.fixture
def before_start(tmp_path):
    """Runs what the unit runs ahead of the service, in a controller of its own, with the given stand-in for plcctl."""

    def run(plcctl, script="", **variables):
        (tmp_path / "VEL").mkdir()
        program = tmp_path / "VEL" / "plcctl"
        program.write_text(f"#!/bin/sh\n{plcctl}\n")
        program.chmod(0o755)
        command = f'PATH=/VEL:{build.DIRECTORY}/bin:$PATH\n{script}\n"$0" 2>&1'
        file = build.REPOSITORY / "packaging" / "systemd" / "before-start"
        return subprocess.run([build.SANDBOX, tmp_path, "--", "sh", "-c", command, file], check=False,
                              env=os.environ | variables, capture_output=True, text=True)  # fmt: skip

    return run
