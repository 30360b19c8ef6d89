"""An ordinary MQTT client at the broker."""

import time
from typing import NamedTuple

import paho.mqtt.client as mqtt


class Message(NamedTuple):
    topic: str
    payload: bytes
    time: float  # on the monotonic clock
    count: int  # of messages on this topic, this one included


class Listener:
    """Keeps the last message of each topic."""

    def __init__(self, port):
        self._last = {}
        self._client = mqtt.Client(client_id="demo-listener")
        self._client.on_connect = lambda client, *_: client.subscribe("#", qos=1)
        self._client.on_message = self._keep
        self._client.connect("127.0.0.1", port)
        self._client.loop_start()

    def _keep(self, _client, _userdata, message):
        before = self._last.get(message.topic)
        count = before.count + 1 if before else 1
        self._last[message.topic] = Message(message.topic, message.payload, time.monotonic(), count)

    def last(self, topic_filter):
        """The newest message that matches, or None."""
        matching = [message for message in list(self._last.values())
                    if mqtt.topic_matches_sub(topic_filter, message.topic)]
        return max(matching, key=lambda message: message.time, default=None)

    def stop(self):
        self._client.disconnect()
        self._client.loop_stop()
