"""The configuration of a benchmark's controller: generated brokers, publications and subscriptions, in a device's file
tree, and what both programs have to make of it."""

from dataclasses import dataclass
from pathlib import Path

import sample

GENERAL_ADDRESS = 1024
STATISTICS_ADDRESS = 1536
BROKER_ADDRESS = 4096
DATA_ADDRESS = 8192
DATA_SPACING = 64
RECORDS_ADDRESS = 262144
RECORD_SIZE = 524
PORT = 1883

AT_UINT8 = 3
AT_STRUCT = 10
PF_BUFFER = 0
PF_JSON = 1
NONE = -1

CLOCK_CHECK = "ValidateSystemTimeIsSet.sh"

# Inside the sandbox: what is not the service's own.
TAGS_FILE = "/VEL/bench/tags"
FILTERS_FILE = "/VEL/bench/filters"
TOPICS_FILE = "/VEL/bench/topics"
PAYLOAD_FILE = "/VEL/bench/payload"


@dataclass(frozen=True)
class Plant:
    """What both programs are given to do."""

    brokers: int = 1
    publications: int = 0
    interval: int = 0  # milliseconds
    qos: int = 0
    json: bool = False  # payloads are the ten members of sample.py as JSON, else raw
    clock_check: bool = True  # the device has its clock check script
    subscriptions: int = 0
    wildcards: bool = False  # filters have a "+" or a "#" in turn, else they are exact

    def size(self) -> int:
        """Bytes of a tag."""
        return sample.SIZE if self.json else 64

    def tag(self) -> bytes:
        """What a tag holds before it is published, or after it was received."""
        return sample.as_bytes() if self.json else bytes(range(self.size()))

    def payload(self) -> bytes:
        """What a message holds."""
        return sample.as_json().encode() if self.json else self.tag()

    def bare_arguments(self, loop: bool) -> list[str]:
        return [
            f"brokers={self.brokers}",
            f"publications={self.publications}",
            f"subscriptions={self.subscriptions}",
            f"interval={self.interval}",
            f"qos={self.qos}",
            f"json={int(self.json)}",
            f"size={self.size()}",
            f"spacing={DATA_SPACING}",
            f"port={PORT}",
            f"loop={int(loop)}",
            f"general={GENERAL_ADDRESS}",
            f"statistics={STATISTICS_ADDRESS}",
            f"records={RECORDS_ADDRESS}",
            f"data={DATA_ADDRESS}",
            f"filters={FILTERS_FILE}",
        ]


def publication_topic(number: int) -> str:
    return f"bench/publication/{number}"


def subscription_filter(number: int, plant: Plant) -> str:
    if not plant.wildcards:
        return subscription_topic(number, plant)
    return f"bench/+/subscription/{number}" if number % 2 else f"bench/line/subscription-{number}/#"


def subscription_topic(number: int, plant: Plant) -> str:
    """A topic that the filter of that number matches, and no other one."""
    if plant.wildcards and number % 2 == 0:
        return f"bench/line/subscription-{number}/value"
    return f"bench/line/subscription/{number}"


def element(name: str, content: str = "", **attributes: object) -> str:
    head = f"<{name} " + " ".join(f'{key}="{value}"' for key, value in attributes.items())
    return f"{head}>{content}</{name}>" if content else f"{head}/>"


def broker(number: int) -> str:
    return element(
        "BrokerConf", Name=f"bench {number}", IPOrURL="127.0.0.1", ClientID=f"bench-{number}", EncryptionType=0,
        UserName="", Password="", LastWillTopic="", Port=PORT, KeepAlive=60, ConnectionInterval=10, LastWillAddr=NONE,
        ID=number, CleanSession=1, AutoConnect=1, BrokerAddr=BROKER_ADDRESS + 4 * number, DataType=0,
    )


def tag_attributes(number: int, plant: Plant) -> dict:
    return {
        "PayloadEncryption": 0,
        "DataAddr": DATA_ADDRESS + (number - 1) * DATA_SPACING,
        "Ent": 0 if plant.json else plant.size(),
        "PayloadFormat": PF_JSON if plant.json else PF_BUFFER,
        "DataType": AT_STRUCT if plant.json else AT_UINT8,
        "content": data_members() if plant.json else "",
    }


def data_members() -> str:
    members = [element("DataMember", Off=f"0x{member.offset:X}", DataType=member.data_type, DName=member.key, Ent=0)
               for member in sample.MEMBERS]
    return f"<DataMembers>{''.join(members)}</DataMembers>"


def publication(number: int, plant: Plant) -> str:
    return element(
        "PublicationConf", ID=number, Name=f"publication {number}", Topic=publication_topic(number), QOS=plant.qos,
        RetainFlag=0, PeriodicInterval=plant.interval, BrokerReceivedAddr=NONE,
        CBrokerID=(number - 1) % plant.brokers + 1, **tag_attributes(number, plant),
    )


def subscription(number: int, plant: Plant) -> str:
    return element(
        "SubscriptionConf", ID=number, Name=f"subscription {number}", Topic=subscription_filter(number, plant),
        QOS=plant.qos, IsBuffered=0, SubscribeAtBoot=1, CBrokerID=1,
        SubAddr=RECORDS_ADDRESS + (number - 1) * RECORD_SIZE, **tag_attributes(number, plant),
    )


def document(root: str, group: str, children: list[str]) -> str:
    return f'<{root} Version="1.0"><{group}>\n' + "\n".join(children) + f"\n</{group}></{root}>\n"


def write(plant: Plant, device: Path) -> None:
    """Makes `device` the file tree of a controller that has this configuration."""
    scripts = device / "VEL/System/Config/Scripts"
    for directory in (scripts, device / "etc/CA_Certificates"):
        directory.mkdir(parents=True)
    write_configuration(plant, device / "VEL/UserApps/Config/MQTT")
    write_environment(plant, device)
    if plant.clock_check:
        script = scripts / CLOCK_CHECK
        script.write_text("#!/bin/sh\necho 1\n")
        script.chmod(0o755)


def write_configuration(plant: Plant, directory: Path) -> None:
    directory.mkdir(parents=True)
    publications = [publication(n, plant) for n in range(1, plant.publications + 1)]
    subscriptions = [subscription(n, plant) for n in range(1, plant.subscriptions + 1)]
    (directory / "MQTTClientConf.xml").write_text(
        f'<ClientConf Version="1.0"><General Addr="{GENERAL_ADDRESS}"/>'
        f'<Statistics Addr="{STATISTICS_ADDRESS}"/></ClientConf>\n'
    )
    (directory / "Brokers.xml").write_text(
        document("BrokersConf", "Brokers", [broker(n) for n in range(1, plant.brokers + 1)])
    )
    (directory / "Publications.xml").write_text(document("PublicationsConf", "Publications", publications))
    (directory / "Subscriptions.xml").write_text(document("SubscriptionsConf", "Subscriptions", subscriptions))


def write_environment(plant: Plant, device: Path) -> None:
    numbers = range(1, plant.subscriptions + 1)
    content = {
        TAGS_FILE: plant.tag().ljust(DATA_SPACING, b"\0") * plant.publications,
        FILTERS_FILE: "".join(subscription_filter(n, plant) + "\n" for n in numbers).encode(),
        TOPICS_FILE: "".join(subscription_topic(n, plant) + "\n" for n in numbers).encode(),
        PAYLOAD_FILE: plant.payload(),
    }
    for path, text in content.items():
        file = device / path.lstrip("/")
        file.parent.mkdir(exist_ok=True)
        file.write_bytes(text)
