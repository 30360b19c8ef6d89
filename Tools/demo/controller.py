"""The programs of the demo's controller: the broker, the service, and plcctl for everything that touches tags."""

import json
import signal
import socket
import subprocess
import time
from pathlib import Path


RECEIVED_BIT = 2  # its place in a subscription's record


class DemoFailure(Exception):
    """Something on the way did not work; the text says what."""


def wait_for(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise DemoFailure(f"{what} did not come about within {seconds} s")
        time.sleep(0.05)


class Controller:
    """Each program gets a session of its own, since Ctrl-C is for the demo, which then ends them in their order."""

    def __init__(self, build):
        self._binaries = Path(build).resolve() / "bin"
        self._processes = {}

    def plcctl(self, *arguments):
        command = [self._binaries / "plcctl", *map(str, arguments)]
        done = subprocess.run(command, capture_output=True, text=True, check=False, start_new_session=True)
        if done.returncode != 0:
            raise DemoFailure(f"plcctl {' '.join(map(str, arguments))}: {done.stderr.strip()}")
        return done.stdout

    def status(self):
        return json.loads(self.plcctl("status", "--json"))

    def read(self, address, size):
        tag = json.loads(self.plcctl("tag", "get", address, "BYTES", "--count", size, "--json"))
        return bytes.fromhex(tag["value"])

    def write(self, address, data):
        self.plcctl("tag", "set", address, "BYTES", data.hex())

    def subscription_records(self):
        """ID of the subscription -> fields of its record."""
        return {subscription["id"]: subscription["record"] for subscription in self.status()["subscriptions"]}

    def clear_received_bit(self, record):
        self.write(record + RECEIVED_BIT, b"\0")

    def start_broker(self, port):
        self._start("mosquitto", ["mosquitto", "-p", str(port)])

        def listens():
            self.check_alive()
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", port)) == 0

        wait_for(listens, 10, f"the broker on port {port}")

    def start_service(self):
        self._start("service", [self._binaries / "MQTTClientManager"])

        def runs():
            self.check_alive()
            return self.status()["general"]["processStatus"]["name"] == "PS_RUNNING"

        wait_for(runs, 30, "the service's status 'running'")

    def _start(self, name, command):
        log = open(f"/tmp/{name}.log", "wb")  # noqa: SIM115 - belongs to the process from here on
        try:
            self._processes[name] = subprocess.Popen(command, stdout=log, stderr=subprocess.STDOUT,
                                                     start_new_session=True)
        except OSError as error:
            raise DemoFailure(f"{name} can't be started: {error.strerror}") from error

    def check_alive(self):
        for name, process in self._processes.items():
            if process.poll() is not None:
                log = Path(f"/tmp/{name}.log").read_text(errors="replace").splitlines()[-5:]
                raise DemoFailure(f"{name} ended (status {process.returncode}):\n  " + "\n  ".join(log))

    def stop(self):
        """Ends what was started; returns the service's wait status, None when it was not running."""
        service = self._processes.pop("service", None)
        status = None
        if service is not None and service.poll() is None:
            service.send_signal(signal.SIGTERM)
            status = service.wait(timeout=30)
        for process in self._processes.values():
            process.terminate()
            process.wait(timeout=10)
        return status

