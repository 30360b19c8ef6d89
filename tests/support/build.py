"""Which build is tested, and what it was built with. BUILD_DIR selects it; the default is what ships.

SERVICE_PROGRAM names another program of the build to stand in for the service."""

import functools
import os
import pathlib

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
DIRECTORY = REPOSITORY / os.environ.get("BUILD_DIR", "build/release")

SERVICE = DIRECTORY / "bin" / os.environ.get("SERVICE_PROGRAM", "MQTTClientManager")
CLIENT_LIBRARY_SPY = DIRECTORY / "lib" / "libpahospy.so"
SANDBOX = REPOSITORY / "scripts" / "sandbox"

# Texts that a sanitizer's run-time writes when it has found something.
SANITIZER_FINDINGS = ("ERROR: AddressSanitizer", "WARNING: ThreadSanitizer", "ERROR: LeakSanitizer", "runtime error: ")


@functools.cache
def sanitizers():
    cache = DIRECTORY / "CMakeCache.txt"
    for line in cache.read_text().splitlines() if cache.exists() else []:
        if line.startswith("SANITIZERS:"):
            return line.partition("=")[2]
    return ""


def time_factor():
    """What deadlines are multiplied with: instrumented builds are slower."""
    return 4 if sanitizers() else 1
