"""The controller around the service: its files, scripts, request queue and tag memory, and the service's process."""

import contextlib
import json
import os
import pathlib
import resource
import signal
import subprocess
import time

from support import build, configuration, csvlog, records, requests, tags
from support.waiting import wait_until

SCRIPTS = pathlib.Path("/VEL/System/Config/Scripts")
CLOCK_SCRIPT = SCRIPTS / "ValidateSystemTimeIsSet.sh"
SERIAL_SCRIPT = SCRIPTS / "PYGetPLCSerial.py"
MAC_SCRIPT = SCRIPTS / "ManageMac.sh"
SETTINGS_FILE = pathlib.Path("/VEL/System/Config/RetainedConfig/SystemRegistry/PlcSettings.json")

STANDARD_OUTPUT = pathlib.Path("/tmp/service.out")
STANDARD_ERROR = pathlib.Path("/tmp/service.err")
CLIENT_LIBRARY_CALLS = pathlib.Path("/tmp/client-library-calls.jsonl")

VERBOSE = ("-verbose", "true")

# The end by a signal, with everything that may be under way.
TEARDOWN_SECONDS = 11


class Device:
    """A controller that is ready for the service: link up, clock set, queue there, plain identity."""

    def __init__(self):
        self.tags = tags.TagMemory()
        self.tags.set_link()
        self.service = None
        self._entities = [], [], []
        SCRIPTS.mkdir(parents=True, exist_ok=True)
        self.script(CLOCK_SCRIPT, "echo 1")
        self.script(SERIAL_SCRIPT, 'print("SN123")', interpreter="/usr/bin/python3")
        self.script(MAC_SCRIPT, "echo 02:00:00:00:00:01")
        self.settings({"plcName": "press"})
        self.requests = requests.Requests(self.tags)

    def script(self, path, body, interpreter="/bin/sh"):
        path.write_text(f"#!{interpreter}\n{body}\n")
        path.chmod(0o755)

    def settings(self, content):
        SETTINGS_FILE.parent.mkdir(parents=True, exist_ok=True)
        SETTINGS_FILE.write_text(content if isinstance(content, str) else json.dumps(content))

    def configure(self, brokers=None, publications=(), subscriptions=(), **addresses):
        brokers = [configuration.broker()] if brokers is None else brokers
        configuration.write(brokers, publications, subscriptions, **addresses)
        self._entities = brokers, publications, subscriptions

    def stray_writes(self):
        """The writes that lie neither in a record nor in an entity's data, as `configure` laid them down."""
        known = self.known_ranges()

        def is_stray(write):
            end = write.position + write.size
            return not any(first <= write.position and end <= first + size for first, size in known)

        return [write for write in self.tags.journal() if is_stray(write)]

    def known_ranges(self):
        """(position, size) of everything that the service may write to."""
        brokers, publications, subscriptions = self._entities
        return [
            (configuration.GENERAL_AT, records.General.SIZE),
            (configuration.STATISTICS_AT, records.Statistics.SIZE),
            *((entry["BrokerAddr"], records.BrokerStatus.SIZE) for entry in brokers),
            *((entry["BrokerReceivedAddr"], 1) for entry in publications),
            *((entry["SubAddr"], records.SubscriptionStatus.SIZE) for entry in subscriptions),
            *((entry["DataAddr"], configuration.data_size(entry)) for entry in subscriptions),
            *((requests.status_position(request.status_address), 1) for request in self.requests.sent),
        ]

    def start(self, *arguments, spy=False):
        """Starts the service and returns at once. `spy` records its client library calls in client_library_calls()."""
        self.service = Service(arguments, spy)
        return self.service

    def run(self, *arguments, **options):
        """Starts the service and waits until it is up: the status in tag memory says so."""
        service = self.start(*arguments, **options)
        wait_until(
            lambda: self.status() in (records.RUNNING, records.TIME_NOT_SET) or service.has_ended(),
            lambda: f"the service to run; status {self.status()}",
            timeout=20,
        )
        assert not service.has_ended(), "the service ended instead of running"
        return service

    def run_to_its_end(self, *arguments, timeout=20, **options):
        """Starts the service, which should end by itself, and returns its wait status."""
        return self.start(*arguments, **options).wait(timeout)

    def status(self):
        return self.tags.general(configuration.GENERAL_AT).status

    def general(self):
        return self.tags.general(configuration.GENERAL_AT)

    def status_history(self):
        """Every process status that was written, in order."""
        writes = self.tags.journal(configuration.GENERAL_AT)
        return [records.General.decode(write.data).status for write in writes]

    def statistics(self):
        return self.tags.statistics(configuration.STATISTICS_AT)

    def broker(self, identifier=1):
        return self.tags.broker(configuration.broker_at(identifier))

    def broker_history(self, identifier=1):
        return self.tags.broker_history(configuration.broker_at(identifier))

    def subscription(self, identifier=1):
        return self.tags.subscription(configuration.subscription_at(identifier))

    def received(self, identifier=1, size=4):
        """The first bytes of a subscription's data."""
        return self.tags.read(configuration.received_at(identifier), size)

    def data_writes(self, identifier=1, since=0):
        return self.tags.journal(configuration.received_at(identifier), since)

    def record_writes(self, identifier=1, since=0):
        return self.tags.journal(configuration.subscription_at(identifier), since)

    def block_writes(self, identifier=1, since=0):
        return self.tags.journal(configuration.broker_at(identifier), since)

    def wait_received(self, data, identifier=1, timeout=10.0, nudge=lambda: None):
        """`nudge` makes the broker send something: what comes while the service is held up in a publication is handed
        over with the broker's next packet."""

        def has_come():
            if self.received(identifier, len(data)) == data:
                return True
            nudge()
            return False

        wait_until(
            has_come,
            lambda: f"{data[:40]!r} in the data of subscription {identifier}; "
            f"{self.received(identifier, len(data))[:40]!r} stands there",
            timeout,
        )

    def wait_connected(self, identifier=1, timeout=10.0):
        wait_until(
            lambda: self.broker(identifier).connected == 1,
            lambda: f"broker {identifier} to be connected; it stands at {self.broker(identifier)}",
            timeout,
        )

    def wait_lost(self, identifier=1, timeout=10.0):
        """By the journal: the code of the next attempt may follow the loss before anybody looks."""
        wait_until(
            lambda: any(block.code == records.CONNECTION_LOST for block in self.broker_history(identifier)),
            lambda: f"the loss of broker {identifier}; its block went through {self.broker_history(identifier)}",
            timeout,
        )

    def wait_code(self, code, identifier=1, timeout=10.0):
        wait_until(
            lambda: self.broker(identifier).code == code,
            lambda: f"code {code} of broker {identifier}; it stands at {self.broker(identifier)}",
            timeout,
        )

    def close(self):
        if self.service:
            self.service.kill()
        self.requests.close()
        self.tags.close()


class Service:
    """The service's process. What it prints goes to files, so that it never waits for a reader."""

    def __init__(self, arguments, spy):
        with STANDARD_OUTPUT.open("wb") as output, STANDARD_ERROR.open("wb") as error:
            self._process = subprocess.Popen(
                [str(build.SERVICE), *arguments],
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=error,
                env=environment(spy),
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)),
            )
        self.pid = self._process.pid
        self._wait_status = None
        self.peak_memory = None  # bytes, once it has ended
        self.processor_time = None  # seconds, once it has ended

    def _reap(self, flags=os.WNOHANG):
        if self._wait_status is None:
            pid, status, usage = os.wait4(self.pid, flags)
            if pid:
                self._wait_status = status
                self.processor_time = usage.ru_utime + usage.ru_stime
                self.peak_memory = usage.ru_maxrss * 1024
                self._process.returncode = os.waitstatus_to_exitcode(status)

    def has_ended(self):
        self._reap()
        return self._wait_status is not None

    def wait(self, timeout=20):
        """The wait status, as waitpid gives it."""
        wait_until(self.has_ended, "the service to end", timeout)
        return self._wait_status

    def signal(self, number):
        os.kill(self.pid, number)

    def stop(self, timeout=20):
        """Ends it in the orderly way and returns its wait status."""
        self.signal(signal.SIGTERM)
        return self.wait(timeout)

    def kill(self):
        if not self.has_ended():
            self.signal(signal.SIGKILL)
            self.wait()

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def open_files(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def open_sockets(self):
        directory = pathlib.Path(f"/proc/{self.pid}/fd")
        links = []
        for entry in directory.iterdir():
            with contextlib.suppress(FileNotFoundError):  # closed meanwhile
                links.append(os.readlink(entry))
        return len([link for link in links if link.startswith("socket:")])

    def threads(self):
        return len(os.listdir(f"/proc/{self.pid}/task"))


def environment(spy):
    variables = {key: value for key, value in os.environ.items() if not key.startswith("PYTEST")}
    variables["ASAN_OPTIONS"] = "detect_stack_use_after_return=1:verify_asan_link_order=0:abort_on_error=0:exitcode=99"
    if spy:
        assert build.CLIENT_LIBRARY_SPY.exists(), "build the target 'pahospy' first"
        variables["LD_PRELOAD"] = str(build.CLIENT_LIBRARY_SPY)
        variables["PAHO_SPY"] = str(CLIENT_LIBRARY_CALLS)
    return variables


def has_died(process):
    """Whether this process, of anybody's, is no more."""
    try:
        state = pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return True
    return state == "Z"  # for as long as nobody asks what became of it


def died_of(wait_status):
    """The signal that a process died of, or None for one that exited."""
    return os.WTERMSIG(wait_status) if os.WIFSIGNALED(wait_status) else None


def exit_status(wait_status):
    return os.WEXITSTATUS(wait_status) if os.WIFEXITED(wait_status) else None


def client_library_calls(function=None):
    """The recorded calls in order, each a dict with "function", its arguments and "result"."""
    if not CLIENT_LIBRARY_CALLS.exists():
        return []
    calls = [json.loads(line) for line in CLIENT_LIBRARY_CALLS.read_text().splitlines()]
    return [call for call in calls if function in (None, call["function"])]


def sanitizer_findings():
    text = STANDARD_ERROR.read_text(errors="replace") if STANDARD_ERROR.exists() else ""
    return text if any(finding in text for finding in build.SANITIZER_FINDINGS) else ""


def traces():
    """What helps to understand a failure: the ends of what the service wrote."""
    parts = []
    for title, file in (("standard error", STANDARD_ERROR), ("log", csvlog.FILE)):
        with contextlib.suppress(OSError):
            text = file.read_text(errors="replace")
            parts.append((f"service's {title}, last part", text[-3000:]))
    return parts


def kill_softly(process, patience=5.0):
    """Ends a helper process that a test started."""
    process.terminate()
    deadline = time.monotonic() + patience
    while process.poll() is None and time.monotonic() < deadline:
        time.sleep(0.02)
    if process.poll() is None:
        process.kill()
    process.wait()
