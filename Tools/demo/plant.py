"""What the demo knows of the plant: the publications of the configuration, and a control application that runs it."""

import json
import math
import struct
import threading
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass

CONFIGURATION = "/VEL/UserApps/Config/MQTT"
SETTINGS = "/VEL/System/Config/RetainedConfig/SystemRegistry/PlcSettings.json"

# Number in the files -> name for plcctl, format of one element.
TYPES = {1: ("BOOL", "?"), 2: ("INT8", "b"), 3: ("UINT8", "B"), 4: ("INT16", "h"), 5: ("UINT16", "H"),
         6: ("UINT32", "I"), 7: ("INT32", "i"), 8: ("REAL", "f"), 11: ("STR8", "s")}
NO_ADDRESS = -1
NO_LENGTH = -1


def shown(value):
    """A tag's value for people."""
    if isinstance(value, float):
        return f"{value:.1f}"
    if isinstance(value, list):
        return " ".join(shown(element) for element in value)
    return json.dumps(value, ensure_ascii=False)


@dataclass
class Publication:
    name: str
    topic: str
    address: int
    type_number: int
    length: int
    entries: int
    acknowledgement: int

    @property
    def tag_arguments(self):
        """How plcctl names this tag."""
        name = TYPES[self.type_number][0]
        if name == "STR8":
            return [self.address, name, "--length", self.length]
        return [self.address, name] + (["--count", self.entries] if self.entries else [])

    @property
    def initial_value(self):
        size = 1 if self.length != NO_LENGTH else struct.calcsize(TYPES[self.type_number][1]) * max(self.entries, 1)
        return self.decode(bytes(size))

    def decode(self, payload):
        """The tag's value in a message's bytes."""
        name, element = TYPES[self.type_number]
        if name == "STR8":
            return payload.split(b"\0")[0].decode("utf-8", "replace")
        values = struct.unpack(f"<{max(self.entries, 1)}{element}", payload)
        return list(values) if self.entries else values[0]


def auto_connected_brokers():
    root = ElementTree.parse(f"{CONFIGURATION}/Brokers.xml").getroot()
    return {broker.get("ID"): broker for broker in root.iter("BrokerConf") if broker.get("AutoConnect") == "1"}


def raw_periodic_publications(broker_ids):
    """Those that this demo shows: raw tag bytes on a timer, on a broker that connects at start."""
    with open(SETTINGS, encoding="utf-8") as settings:
        plc_name = json.load(settings)["plcName"]
    root = ElementTree.parse(f"{CONFIGURATION}/Publications.xml").getroot()
    shown = []
    for element in root.iter("PublicationConf"):
        if element.get("CBrokerID") not in broker_ids or element.get("PeriodicInterval") == "-1":
            continue
        if element.get("PayloadFormat") != "0":
            continue
        type_number, _, length = element.get("DataType").partition("_")
        shown.append(Publication(element.get("Name"), element.get("Topic").replace("{PLC.NAME}", plc_name),
                                 int(element.get("DataAddr")), int(type_number), int(length or NO_LENGTH),
                                 int(element.get("Ent")), int(element.get("BrokerReceivedAddr"))))
    return shown


class ControlApplication(threading.Thread):
    """Changes the plant's tags twice a second, and clears acknowledgement bytes as a control application does."""

    RECIPES = ["lemonade", "cola", "water", "Größe L, süß"]

    def __init__(self, controller, publications):
        super().__init__(daemon=True)
        self._controller = controller
        self._tags = {publication.name: publication for publication in publications}
        self._ending = threading.Event()
        self.acknowledged = {publication.name: 0 for publication in publications}
        # Every value that a tag ever had, as it is shown; tags begin as zeros.
        self.history = {publication.name: {shown(publication.initial_value)} for publication in publications}
        self.failure = None

    def run(self):
        step = 0
        try:
            while not self._ending.wait(0.5):
                self._change(step)
                self._take_acknowledgements()
                step += 1
        except Exception as failure:  # shown by the main thread, which has the screen
            self.failure = failure

    def stop(self):
        self._ending.set()
        self.join(timeout=10)

    def _change(self, step):
        self._set("line speed", round(120 + 15 * math.sin(step / 5), 1))
        self._set("bottles by lane", *(step * lane for lane in (3, 4, 5, 6)))
        self._set("recipe", self.RECIPES[step // 8 % len(self.RECIPES)])
        self._set("emergency stop", step % 20 in (15, 16, 17))
        self._set("shift", step // 30 % 3 + 1)

    def _set(self, name, *values):
        self.history[name].add(shown(list(values) if self._tags[name].entries else values[0]))
        address, type_name, *options = self._tags[name].tag_arguments
        # An array's size is the number of its values.
        options = [] if "--count" in options else options
        texts = [str(value).lower() if isinstance(value, bool) else value for value in values]
        self._controller.plcctl("tag", "set", address, type_name, *texts, *options)

    def _take_acknowledgements(self):
        for publication in self._tags.values():
            if publication.acknowledgement == NO_ADDRESS:
                continue
            if json.loads(self._controller.plcctl("tag", "get", publication.acknowledgement, "UINT8", "--json"))["value"]:
                self.acknowledged[publication.name] += 1
                self._controller.plcctl("tag", "set", publication.acknowledgement, "UINT8", 0)
