"""A real mosquitto, configured and run for one test, and a listening client of it."""

import itertools
import json
import pathlib
import re
import subprocess
import time
from typing import NamedTuple

import paho.mqtt.client

from support import build, device
from support.waiting import wait_until

SECURITY_PLUGIN = next(pathlib.Path("/usr/lib").glob("*/mosquitto_dynamic_security.so"), None)

PLAIN_PORT = 1883
TLS_PORT = 8883


class Mosquitto:
    """Listens on `port` at once. `tls` is a certs.Server, and then nothing older than TLS 1.3 is spoken;
    `client_authority` is the CA file that clients' certificates must prove; `users` maps names to passwords;
    `subscribable` are the only filters that clients of `port` may subscribe to; with `persistent` sessions and what
    waits in them outlive stop()."""

    def __init__(
        self, port=PLAIN_PORT, tls=None, client_authority=None, users=None, subscribable=None, persistent=False
    ):
        self.port = port
        self._directory = pathlib.Path(f"/tmp/mosquitto-{port}")
        self._directory.mkdir(exist_ok=True)
        self._log = self._directory / "log"
        self._process = None
        # A second, plain listener lets tests look on without a certificate or a password.
        self.watch_port = port + 10000
        lines = [
            "user root",
            "per_listener_settings true",
            f"log_dest file {self._log}",
            "log_type all",
            "connection_messages true",
            "max_queued_messages 0",
            f"listener {self.watch_port} 127.0.0.1",
            "allow_anonymous true",
            f"listener {port} 127.0.0.1",
            f"allow_anonymous {'false' if users else 'true'}",
        ]
        if persistent:
            lines += ["persistence true", f"persistence_location {self._directory}/"]
        if users:
            lines.append(f"password_file {self._write_passwords(users)}")
        if subscribable is not None:
            lines += [f"plugin {SECURITY_PLUGIN}", f"plugin_opt_config_file {self._write_roles(subscribable)}"]
        if tls:
            lines += [f"certfile {tls.certificate}", f"keyfile {tls.key}", "tls_version tlsv1.3"]
            lines.append(f"cafile {client_authority or tls.authority}")
            lines.append(f"require_certificate {'true' if client_authority else 'false'}")
        self._configuration = self._directory / "mosquitto.conf"
        self._configuration.write_text("\n".join(lines) + "\n")
        self.start()

    def _write_passwords(self, users):
        file = self._directory / "passwords"
        file.touch(mode=0o600)
        for name, password in users.items():
            subprocess.run(["mosquitto_passwd", "-b", str(file), name, password], check=True, capture_output=True)
        return file

    def _write_roles(self, subscribable):
        """An access control list can't refuse a subscription in this broker, only its messages; roles can."""
        filters = [{"acltype": "subscribePattern", "topic": topic, "allow": True} for topic in subscribable]
        access = {"publishClientSend": True, "publishClientReceive": True, "subscribe": False, "unsubscribe": True}
        content = {
            "defaultACLAccess": access,
            "roles": [{"rolename": "guest", "acls": filters}],
            "groups": [{"groupname": "guests", "roles": [{"rolename": "guest"}]}],
            "anonymousGroup": "guests",
        }
        file = self._directory / "roles.json"
        file.write_text(json.dumps(content))
        return file

    def start(self):
        starts = self._starts_logged()
        self._process = subprocess.Popen(
            ["/usr/sbin/mosquitto", "-c", str(self._configuration)],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=(self._directory / "stderr").open("wb"),
        )
        # Its ports are open before its certificates are read.
        wait_until(lambda: self._starts_logged() > starts or self._process.poll() is not None, "mosquitto to run")
        assert self._process.poll() is None, (self._directory / "stderr").read_text() + self.log()

    def _starts_logged(self):
        return len(re.findall(r"mosquitto version \S+ running", self.log()))

    def stop(self):
        if self._process:
            device.kill_softly(self._process)
            self._process = None

    def kill(self):
        """Ends it as a crash would: without a word to its clients, and nothing is saved."""
        self._process.kill()
        self._process.wait()
        self._process = None

    def log(self):
        return self._log.read_text(errors="replace") if self._log.exists() else ""

    def logged(self, pattern):
        return re.search(pattern, self.log())


class Received(NamedTuple):
    topic: str
    payload: bytes
    qos: int
    retain: bool
    time: float


_listeners = itertools.count(1)


class Listener:
    """Subscribes to everything at QoS 2 and keeps all that arrives. `user` is a name and a password."""

    def __init__(self, port, topics="#", user=None):
        self.received = []
        self._subscribed = False
        # Of its own: an earlier listener comes back by itself after a restart of its broker, and would push this one out.
        self._client = paho.mqtt.client.Client(client_id=f"listener-{port}-{next(_listeners)}")
        if user:
            self._client.username_pw_set(*user)
        self._client.on_subscribe = self._on_subscribe
        self._client.on_message = self._on_message
        self._client.connect("127.0.0.1", port)
        self._client.subscribe(topics, qos=2)
        self._client.loop_start()
        wait_until(lambda: self._subscribed, "the listener's subscription")

    def _on_subscribe(self, *_):
        self._subscribed = True

    def _on_message(self, _client, _context, message):
        self.received.append(Received(message.topic, message.payload, message.qos, message.retain, time.monotonic()))

    def on(self, topic):
        return [message for message in self.received if message.topic == topic]

    def wait_for(self, topic, count=1, timeout=10.0):
        """The first `count` messages on `topic`."""
        wait_until(
            lambda: len(self.on(topic)) >= count,
            lambda: f"{count} messages on '{topic}'; {len(self.received)} of all topics came",
            timeout,
        )
        return self.on(topic)[:count]

    def close(self):
        self._client.disconnect()
        self._client.loop_stop()


class Sender:
    """Publishes by hand. What it sends at one quality of service arrives in that order."""

    def __init__(self, port, user=None):
        self._client = paho.mqtt.client.Client(client_id=f"sender-{port}")
        if user:
            self._client.username_pw_set(*user)
        self._client.max_inflight_messages_set(1000)
        self._client.connect("127.0.0.1", port)
        self._client.loop_start()

    def publish(self, topic, payload=b"", qos=0, retain=False):
        """Returns when it has left here at QoS 0, and when the broker has it otherwise."""
        self._client.publish(topic, payload, qos, retain).wait_for_publish(10 * build.time_factor())

    def close(self):
        self._client.disconnect()
        self._client.loop_stop()
