"""What the demo knows of the plant: the brokers, publications and subscriptions of its configuration."""

import json
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass

from tags import Numbers, Struct, Text, tag_type

CONFIGURATION = "/VEL/UserApps/Config/MQTT"
SETTINGS = "/VEL/System/Config/RetainedConfig/SystemRegistry/PlcSettings.json"

NO_ADDRESS = -1
RAW, JSON = "0", "1"


@dataclass
class Publication:
    name: str
    topic: str
    address: int
    type: Numbers | Text | Struct
    is_json: bool
    acknowledgement: int

    def decode(self, payload):
        """The value that the message tells."""
        # By way of the tag's own type: in JSON the REAL 6.0 is written 6.
        return self.type.decode(self.type.encode(json.loads(payload)) if self.is_json else payload)


@dataclass
class Subscription:
    identifier: int
    name: str
    filter: str
    address: int
    type: Numbers | Text | Struct
    is_json: bool
    record: int

    def decode(self, payload):
        """The value that the tag has to get of a good message."""
        if not self.is_json:
            return self.type.decode(payload)
        return payload.decode() if isinstance(self.type, Text) else json.loads(payload)


def auto_connected_brokers():
    root = ElementTree.parse(f"{CONFIGURATION}/Brokers.xml").getroot()
    return {broker.get("ID"): broker for broker in root.iter("BrokerConf") if broker.get("AutoConnect") == "1"}


def _entries(file, element, broker_ids):
    root = ElementTree.parse(f"{CONFIGURATION}/{file}").getroot()
    return [entry for entry in root.iter(element)
            if entry.get("CBrokerID") in broker_ids and entry.get("PayloadFormat") in (RAW, JSON)]


def _expanded(topic):
    with open(SETTINGS, encoding="utf-8") as settings:
        return topic.replace("{PLC.NAME}", json.load(settings)["plcName"])


def periodic_publications(broker_ids):
    """Those that the demo shows: on a timer, on a broker that connects at start."""
    return [Publication(entry.get("Name"), _expanded(entry.get("Topic")), int(entry.get("DataAddr")), tag_type(entry),
                        entry.get("PayloadFormat") == JSON, int(entry.get("BrokerReceivedAddr")))
            for entry in _entries("Publications.xml", "PublicationConf", broker_ids)
            if entry.get("PeriodicInterval") != "-1"]


def direct_subscriptions(broker_ids):
    """Those that the demo shows: subscribed at start, on a broker that connects then, and not buffered."""
    return [Subscription(int(entry.get("ID")), entry.get("Name"), _expanded(entry.get("Topic")),
                         int(entry.get("DataAddr")), tag_type(entry), entry.get("PayloadFormat") == JSON,
                         int(entry.get("SubAddr")))
            for entry in _entries("Subscriptions.xml", "SubscriptionConf", broker_ids)
            if entry.get("SubscribeAtBoot") == "1" and entry.get("IsBuffered") == "0"]
