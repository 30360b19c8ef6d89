"""Whoever is outside the controller and has something to tell it."""

import itertools
import json
import shlex
import struct
import subprocess

from controller import DemoFailure
from worker import Worker

# The one that is sent once and then left to the person in front of the screen.
LEFT_TO_PEOPLE = "display text"

RECIPES = [{"name": "cola", "sugar": 10.5, "bottles": 900}, {"name": "lemonade", "sugar": 8.5, "bottles": 1200},
           {"name": "water", "sugar": 0.0, "bottles": 3000}]
ALARMS = [("bottling-2", "labeller is out of glue"), ("bottling-3", "cap is missing"), ("bottling-1", "door is open")]


def messages(subscriptions):
    """Topic and payload for one subscription after the other, with its name, round by round without an end."""
    filters = {subscription.name: subscription.filter for subscription in subscriptions}
    for step in itertools.count():
        line, alarm = ALARMS[step % len(ALARMS)]
        payloads = {
            LEFT_TO_PEOPLE: "Größe L läuft 🙂".encode(),
            "speed setpoint": struct.pack("<f", 100.0 + 2.5 * (step % 20)),
            "recipe setpoint": json.dumps(RECIPES[step % len(RECIPES)], separators=(",", ":")).encode(),
            "lane targets": json.dumps([250 + 10 * (step % 5), 250, 300, 0], separators=(",", ":")).encode(),
            "alarms of all lines": alarm.encode(),
        }
        if not filters.keys() & payloads.keys() - {LEFT_TO_PEOPLE}:
            return
        for name, payload in payloads.items():
            if name in filters and (name != LEFT_TO_PEOPLE or step == 0):
                yield name, filters[name].replace("+", line), payload


class Office(Worker):
    """Publishes one message after the other by mosquitto_pub, as anyone at the broker could."""

    def __init__(self, port, subscriptions):
        super().__init__(pause=0.5)
        self._port = port
        self._messages = messages(subscriptions)
        self.sent = {}  # name of the subscription -> topic and payload of its last message

    def step(self, _number):
        message = next(self._messages, None)
        if message:
            name, topic, payload = message
            self._publish(topic, payload)
            self.sent[name] = (topic, payload)

    def _publish(self, topic, payload):
        command = ["mosquitto_pub", "-p", str(self._port), "-q", "1", "-t", topic, "-s"]
        done = subprocess.run(command, input=payload, capture_output=True, check=False, start_new_session=True)
        if done.returncode != 0:
            raise DemoFailure(f"mosquitto_pub -t {topic}: {done.stderr.decode(errors='replace').strip()}")


def invitation(subscriptions, port, device):
    """What a person can type to send a message; nothing where the plant has no subscription for it."""
    for subscription in subscriptions:
        if subscription.name == LEFT_TO_PEOPLE:
            enter = f"scripts/sandbox --enter {shlex.quote(device)} -- " if device else ""
            where = "from a second terminal" if device else "from a shell in this sandbox"
            options = "" if port == 1883 else f"-p {port} "
            command = f"{enter}mosquitto_pub {options}-t {subscription.filter} -m 'Hello, line'"
            return f"Send one yourself {where}:\n  {command}"
    return ""
