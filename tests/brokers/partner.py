"""What all brokers have in common for the checks: doors, a user, and a process in a directory of its own."""

import pathlib
import socket
import subprocess
from typing import NamedTuple

from support import certs, device
from support.waiting import wait_until

TCP_PORT = 1883
PASSWORD_PORT = 1884
TLS_PORT = 8883
CERTIFICATE_PORT = 8884

# Who may come in where names and passwords are looked at.
USER = ("plc", "secret")

# Brokers in virtual machines of their own need long to start on a loaded machine.
START_SECONDS = 90


class Door(NamedTuple):
    """A port of a broker, and a plain port of the same broker for those who look on."""

    port: int
    watch_port: int = TCP_PORT


class Partner:
    """A broker that runs. The doors are by name: "tcp", "tls", "password" and "certificate"."""

    # What the service and those who look on tell at every door, where a broker lets nobody in without.
    user = None

    # The code that a wrong password ends with in the service.
    refusal = 5

    def __init__(self):
        self.doors = {
            "tcp": Door(TCP_PORT),
            "tls": Door(TLS_PORT),
            "password": Door(PASSWORD_PORT),
            "certificate": Door(CERTIFICATE_PORT),
        }

    def start(self):
        raise NotImplementedError

    def stop(self):
        raise NotImplementedError


class ProcessPartner(Partner):
    """A broker that is one process, which keeps its files in DIRECTORY and is up when its port answers."""

    DIRECTORY = pathlib.Path("/tmp/broker")

    def __init__(self, server):
        """`server` is its certificate, a certs.Server; its authority also signs those of clients."""
        super().__init__()
        self.DIRECTORY.mkdir()
        self._log = self.DIRECTORY / "output"
        self._process = None
        self.write_configuration(server)
        self.start()

    def write_configuration(self, server):
        raise NotImplementedError

    def command(self):
        """(arguments, environment on top of the own one)"""
        raise NotImplementedError

    def environment(self):
        return {"HOME": str(self.DIRECTORY), "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8"}

    def start(self):
        with self._log.open("ab") as output:
            self._process = subprocess.Popen(
                self.command(),
                cwd=self.DIRECTORY,
                env=self.environment(),
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=subprocess.STDOUT,
            )
        wait_until(
            lambda: self._process.poll() is not None or all(map(answers, self.ports())),
            lambda: f"the broker's ports:\n{self._log.read_text(errors='replace')[-3000:]}",
            START_SECONDS,
        )
        assert self._process.poll() is None, self._log.read_text(errors="replace")[-3000:]

    def ports(self):
        return {door.port for door in self.doors.values()}

    def stop(self):
        device.kill_softly(self._process, patience=20)
        wait_until(lambda: not any(map(answers, self.ports())), "the broker's end", 30)


def answers(port):
    with socket.socket() as probe:
        probe.settimeout(1)
        return probe.connect_ex(("127.0.0.1", port)) == 0


def issue_certificates():
    """The broker's certificate, with client.crt beside it, and stranger.crt of an authority that nobody trusts."""
    authority = certs.Authority(kind="rsa")
    authority.issue("client", common_name=USER[0])
    certs.Authority("strangers", kind="rsa").issue("stranger", common_name=USER[0])
    return authority.issue("server")
