"""What one check works with: a fresh controller, its broker over TCP or TLS, and those who look on at the broker."""

import contextlib
import itertools
import pathlib
import shutil

from brokers.forwarder import Forwarder
from support import configuration, csvlog, device, requests, tags
from support.mosquitto import Listener, Sender

TRANSPORTS = ("tcp", "tls")

# What the service leaves behind, and the next check must not find.
LEFT_BEHIND = (tags.SHARED_MEMORY, csvlog.FILE, csvlog.OLDER_FILE, device.STANDARD_OUTPUT, device.STANDARD_ERROR)
KEPT_MESSAGES = pathlib.Path("/tmp/MQTT_PERSISTENCE")

_numbers = itertools.count(1)


class Rig:
    def __init__(self, partner, door):
        for file in LEFT_BEHIND:
            pathlib.Path(file).unlink(missing_ok=True)
        shutil.rmtree(KEPT_MESSAGES, ignore_errors=True)
        requests.Requests.remove_queue()
        self.partner = partner
        self._door = partner.doors[door]
        self._is_tls = door in ("tls", "certificate")
        # Neither retained messages nor sessions of one check meet another one.
        self.name = f"check{next(_numbers)}"
        self._cleanup = contextlib.ExitStack()
        self.device = self._cleanup.enter_context(contextlib.closing(device.Device()))

    def close(self):
        self._cleanup.close()

    def topic(self, kind, number=1):
        return f"{self.name}/{kind}/{number}"

    def broker(self, **attributes):
        """The service's broker; over TLS its certificate is verified (level 2)."""
        own = {"Port": self._door.port, "ClientID": f"plc-{self.name}"}
        if self.partner.user:
            own |= {"UserName": self.partner.user[0], "Password": self.partner.user[1]}
        if self._is_tls:
            own |= {"EncryptionType": 2, "CAFileName": "ca.crt"}
        return configuration.broker(**(own | attributes))

    def publication(self, **attributes):
        """One that goes out by request."""
        return configuration.publication(**({"Topic": self.topic("out"), "PeriodicInterval": -1} | attributes))

    def subscription(self, **attributes):
        return configuration.subscription(**({"Topic": self.topic("in")} | attributes))

    def run(self, publications=(), subscriptions=(), **attributes):
        """Runs the service until it is connected."""
        self.device.configure([self.broker(**attributes)], publications, subscriptions)
        self.device.run("-verbose", "true")
        self.device.wait_connected()

    def send_publication(self, data, identifier=1):
        """Puts `data` into the tag and asks for the publication; returns what the status tag went through."""
        self.device.tags.write(configuration.data_at(identifier), data)
        return self.device.requests.ask(requests.SEND, identifier, timeout=40)

    def listen(self, topics=None):
        listener = Listener(self._door.watch_port, topics or f"{self.name}/#", self.partner.user)
        return self._cleanup.enter_context(contextlib.closing(listener))

    def send(self):
        return self._cleanup.enter_context(contextlib.closing(Sender(self._door.watch_port, self.partner.user)))

    def forwarder(self):
        forwarder = Forwarder(self._door.port)
        return self._cleanup.enter_context(contextlib.closing(forwarder))
