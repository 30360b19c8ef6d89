"""The controller's configuration files, made from keyword arguments.

An entry is a dict of XML attributes over sensible defaults; an attribute set to None is left out of the file.
"""

import pathlib
from xml.sax.saxutils import quoteattr

from support import records

DIRECTORY = pathlib.Path("/VEL/UserApps/Config/MQTT")
GENERAL_FILE = DIRECTORY / "MQTTClientConf.xml"
BROKERS_FILE = DIRECTORY / "Brokers.xml"
SUBSCRIPTIONS_FILE = DIRECTORY / "Subscriptions.xml"
PUBLICATIONS_FILE = DIRECTORY / "Publications.xml"

# Where the tests keep their tags.
GENERAL_AT = 0x400
STATISTICS_AT = 0x500
BROKERS_AT = 0x1000
WILLS_AT = 0x2000
ACKNOWLEDGEMENTS_AT = 0x3000
DATA_AT = 0x10000
RECEIVED_AT = 0xD00000
SUBSCRIPTIONS_AT = 0xF00000

NO_ADDRESS = -1


def broker_at(identifier):
    return BROKERS_AT + 16 * identifier


def acknowledgement_at(identifier):
    return ACKNOWLEDGEMENTS_AT + 16 * identifier


def data_at(identifier):
    """64 KiB for each publication, as far as its number is small."""
    return DATA_AT * identifier if identifier <= 200 else 200 * DATA_AT + 64 * identifier


def received_at(identifier):
    """6 KiB for the data of each of up to 300 subscriptions."""
    return RECEIVED_AT + 0x1800 * identifier


def subscription_at(identifier):
    return SUBSCRIPTIONS_AT + 1024 * identifier


def broker(identifier=1, **attributes):
    entry = {
        "Name": f"broker{identifier}",
        "IPOrURL": "127.0.0.1",
        "ClientID": f"plc-{identifier}",
        "EncryptionType": 0,
        "UserName": "",
        "Password": "",
        "LastWillTopic": "",
        "Port": 1883,
        "KeepAlive": 60,
        "ConnectionInterval": 1,
        "LastWillAddr": NO_ADDRESS,
        "ID": identifier,
        "CleanSession": 1,
        "AutoConnect": 1,
        "BrokerAddr": broker_at(identifier),
        "DataType": 0,
    }
    return entry | attributes


def will(text_length, topic="plc/state", address=WILLS_AT):
    """The attributes of a broker with a last will of at most `text_length` characters."""
    return {"LastWillTopic": topic, "LastWillAddr": address, "DataType": f"{records.STR8}_{text_length}"}


def publication(identifier=1, members=None, **attributes):
    own = {"RetainFlag": 0, "PeriodicInterval": 100, "BrokerReceivedAddr": NO_ADDRESS}
    return _caller("publication", "data", identifier, data_at(identifier), members, own | attributes)


def subscription(identifier=1, members=None, **attributes):
    own = {"IsBuffered": 0, "SubscribeAtBoot": 1, "SubAddr": subscription_at(identifier)}
    return _caller("subscription", "command", identifier, received_at(identifier), members, own | attributes)


def _caller(kind, topic, identifier, data_address, members, attributes):
    entry = {
        "ID": identifier,
        "Name": f"{kind}{identifier}",
        "Topic": f"plc/{topic}/{identifier}",
        "QOS": 0,
        "PayloadEncryption": 0,
        "DataAddr": data_address,
        "CBrokerID": 1,
        "Ent": 0,
        "PayloadFormat": records.RAW,
        "DataType": records.UINT32,
    }
    return entry | attributes | ({} if members is None else {"members": members})


def member(offset, data_type, name, entries=0):
    written = hex(offset) if isinstance(offset, int) else offset
    return {"Off": written, "DataType": data_type, "DName": name, "Ent": entries}


def data_size(entry):
    """Bytes of an entry's data in tag memory: a struct ends with its last member."""
    if entry["DataType"] != records.STRUCT:
        return records.tag_size(entry["DataType"], entry["Ent"])
    last = entry["members"][-1]
    return int(last["Off"], 16) + records.tag_size(last["DataType"], last["Ent"])


def element(name, attributes, children=""):
    """One element as XML; line feeds and the like in values are written as character references."""
    pairs = "".join(
        f" {key}={quoteattr(str(value), {chr(10): '&#10;', chr(9): '&#9;'})}"
        for key, value in attributes.items()
        if value is not None
    )
    return f"<{name}{pairs}>{children}</{name}>\n" if children else f"<{name}{pairs}/>\n"


def general_xml(general=GENERAL_AT, statistics=STATISTICS_AT):
    inner = element("General", {"Addr": general}) + element("Statistics", {"Addr": statistics})
    return element("ClientConf", {"Version": "1.0"}, inner)


def brokers_xml(brokers):
    inner = "".join(element("BrokerConf", entry) for entry in brokers)
    return element("BrokersConf", {"Version": "1.0"}, element("Brokers", {}, inner))


def caller_xml(entry, name):
    attributes = {key: value for key, value in entry.items() if key != "members"}
    members = "".join(element("DataMember", attributes) for attributes in entry.get("members", []))
    return element(name, attributes, element("DataMembers", {}, members) if "members" in entry else "")


def callers_xml(entries, kind):
    """A file of publications or subscriptions; `kind` is one of the two words, with a capital and no s."""
    inner = "".join(caller_xml(entry, f"{kind}Conf") for entry in entries)
    return element(f"{kind}sConf", {"Version": "1.0"}, element(f"{kind}s", {}, inner))


def write(brokers=(), publications=(), subscriptions=(), general=GENERAL_AT, statistics=STATISTICS_AT):
    """Writes all four files."""
    DIRECTORY.mkdir(parents=True, exist_ok=True)
    GENERAL_FILE.write_text(general_xml(general, statistics))
    BROKERS_FILE.write_text(brokers_xml(brokers))
    SUBSCRIPTIONS_FILE.write_text(callers_xml(subscriptions, "Subscription"))
    PUBLICATIONS_FILE.write_text(callers_xml(publications, "Publication"))
