"""Every test function runs in a controller of its own.

Outside, each collected test is replaced by one that runs `scripts/sandbox DIR -- pytest <this one test>` and shows
that run's report. Inside, the test has /VEL, /tmp, /dev/shm, the message queues and the network to itself, so paths and
ports are the literal ones and any number of tests may run at once. BUILD_DIR selects the build (default build/release).
"""

import contextlib
import os
import pathlib
import subprocess
import sys
import tempfile

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

from support import aedes as aedes_support, build, device as device_support  # noqa: E402
from support import mosquitto as mosquitto_support  # noqa: E402
from support.scriptedbroker import ScriptedBroker  # noqa: E402

INSIDE = "INSIDE_SANDBOX"
HERE = pathlib.Path(__file__).resolve().parent

# Python and pytest have to start inside, and the outer run must not give up first.
SANDBOX_PATIENCE = 30

TRUST_STORE = "/etc/ssl/certs/ca-certificates.crt"


class TestFailedInside(Exception):
    """Its text is the inner run's report."""


class SandboxedTest(pytest.Item):
    @classmethod
    def wrap(cls, item):
        wrapped = cls.from_parent(item.parent, name=item.name)
        wrapped.inner_location = item.location
        limit = item.get_closest_marker("timeout")
        seconds = limit.args[0] if limit else float(item.config.getini("timeout"))
        wrapped.seconds = seconds * build.time_factor()
        wrapped.add_marker(pytest.mark.timeout(wrapped.seconds + SANDBOX_PATIENCE))
        wrapped.has_own_trust_store = item.get_closest_marker("system_trust_store") is not None
        return wrapped

    def runtest(self):
        with tempfile.TemporaryDirectory(prefix="controller-") as directory:
            root = pathlib.Path(directory)
            (root / "VEL").mkdir()
            (root / "etc" / "CA_Certificates").mkdir(parents=True)
            finished = subprocess.run(
                self._sandbox(root) + self._inner_pytest(),
                stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT,
                env=os.environ | {INSIDE: "1", "PYTEST_DISABLE_PLUGIN_AUTOLOAD": "1", "PYTHONDONTWRITEBYTECODE": "1"},
                check=False,
            )
        if finished.returncode != 0:
            output = finished.stdout.decode(errors="replace")
            raise TestFailedInside(f"{output}\nthe run inside the sandbox ended with status {finished.returncode}")

    def _sandbox(self, root):
        binds = []
        if not build.DIRECTORY.is_relative_to(build.REPOSITORY):
            binds += ["--ro-bind", str(build.DIRECTORY), str(build.DIRECTORY)]
        if self.has_own_trust_store:
            store = root / "trust-store"
            store.touch()
            binds += ["--bind", str(store), TRUST_STORE]
        return [str(build.SANDBOX), *binds, str(root), "--"]

    def _inner_pytest(self):
        return [
            sys.executable, "-m", "pytest", "-c", str(HERE / "pytest.ini"), "--rootdir", str(HERE), "-q", "--no-header",
            "-p", "pytest_timeout", "--timeout", str(self.seconds), f"{self.path.resolve()}::{self.name}",
        ]  # fmt: skip

    def repr_failure(self, excinfo, style=None):
        if isinstance(excinfo.value, TestFailedInside):
            return str(excinfo.value)
        return super().repr_failure(excinfo, style)

    def reportinfo(self):
        return self.path, self.inner_location[1], self.inner_location[2]


@pytest.hookimpl(trylast=True)
def pytest_collection_modifyitems(items):
    if INSIDE not in os.environ:
        items[:] = [SandboxedTest.wrap(item) for item in items]


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    outcome = yield
    report = outcome.get_result()
    if INSIDE in os.environ and report.failed:
        report.sections += device_support.traces()


@pytest.fixture
def device():
    """A controller, ready for the service. What a sanitizer found in the service fails the test."""
    with contextlib.closing(device_support.Device()) as controller:
        yield controller
    findings = device_support.sanitizer_findings()
    assert not findings, findings


@pytest.fixture
def cleanup():
    with contextlib.ExitStack() as stack:
        yield stack


@pytest.fixture
def mosquitto(cleanup):
    """Starts real brokers; takes the arguments of Mosquitto."""

    def start(*arguments, **options):
        broker = mosquitto_support.Mosquitto(*arguments, **options)
        cleanup.callback(broker.stop)
        return broker

    return start


@pytest.fixture
def aedes(cleanup):
    """Starts the second kind of real broker; takes the arguments of Aedes."""

    def start(*arguments):
        broker = aedes_support.Aedes(*arguments)
        cleanup.callback(broker.stop)
        return broker

    return start


@pytest.fixture
def listen(cleanup):
    """Starts listeners on a broker."""

    def start(broker, topics="#"):
        return cleanup.enter_context(contextlib.closing(mosquitto_support.Listener(broker.watch_port, topics)))

    return start


@pytest.fixture
def send(cleanup):
    """Starts senders to a broker."""

    def start(broker):
        return cleanup.enter_context(contextlib.closing(mosquitto_support.Sender(broker.watch_port)))

    return start


@pytest.fixture
def scripted(cleanup):
    """Starts scripted brokers; takes the arguments of ScriptedBroker."""

    def start(*arguments, **options):
        return cleanup.enter_context(contextlib.closing(ScriptedBroker(*arguments, **options)))

    return start
