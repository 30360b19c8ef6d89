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

NO_ADDRESS = -1


def broker_at(identifier):
    return BROKERS_AT + 16 * identifier


def acknowledgement_at(identifier):
    return ACKNOWLEDGEMENTS_AT + 16 * identifier


def data_at(identifier):
    """64 KiB for each publication, as far as its number is small."""
    return DATA_AT * identifier if identifier <= 200 else 200 * DATA_AT + 64 * identifier


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
    entry = {
        "ID": identifier,
        "Name": f"publication{identifier}",
        "Topic": f"plc/data/{identifier}",
        "QOS": 0,
        "PayloadEncryption": 0,
        "RetainFlag": 0,
        "PeriodicInterval": 100,
        "DataAddr": data_at(identifier),
        "BrokerReceivedAddr": NO_ADDRESS,
        "CBrokerID": 1,
        "Ent": 0,
        "PayloadFormat": 0,
        "DataType": records.UINT32,
    }
    entry = entry | attributes
    if members is not None:
        entry["members"] = members
    return entry


def member(offset, data_type, name, entries=0):
    written = hex(offset) if isinstance(offset, int) else offset
    return {"Off": written, "DataType": data_type, "DName": name, "Ent": entries}


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


def publication_xml(entry, name="PublicationConf"):
    attributes = {key: value for key, value in entry.items() if key != "members"}
    members = "".join(element("DataMember", attributes) for attributes in entry.get("members", []))
    return element(name, attributes, element("DataMembers", {}, members) if "members" in entry else "")


def publications_xml(publications):
    inner = "".join(publication_xml(entry) for entry in publications)
    return element("PublicationsConf", {"Version": "1.0"}, element("Publications", {}, inner))


def write(brokers=(), publications=(), general=GENERAL_AT, statistics=STATISTICS_AT):
    """Writes all four files. No subscriptions: the file that holds them is there and empty."""
    DIRECTORY.mkdir(parents=True, exist_ok=True)
    GENERAL_FILE.write_text(general_xml(general, statistics))
    BROKERS_FILE.write_text(brokers_xml(brokers))
    SUBSCRIPTIONS_FILE.write_text(element("SubscriptionsConf", {"Version": "1.0"}, element("Subscriptions", {})))
    PUBLICATIONS_FILE.write_text(publications_xml(publications))
