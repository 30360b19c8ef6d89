"""The configuration of a benchmark's controller: generated brokers and publications, in a device's file tree."""

from dataclasses import dataclass
from pathlib import Path

GENERAL_ADDRESS = 1024
STATISTICS_ADDRESS = 1536
BROKER_ADDRESS = 4096
DATA_ADDRESS = 8192
PORT = 1883

AT_UINT8 = 3
PF_BUFFER = 0
NONE = -1

CLOCK_CHECK = "ValidateSystemTimeIsSet.sh"


@dataclass(frozen=True)
class Plant:
    """What both programs are given to do."""

    brokers: int
    publications: int
    interval: int  # milliseconds
    qos: int
    size: int = 64  # payload bytes
    clock_check: bool = True  # the device has its clock check script

    def publish_rate(self) -> float:
        """Messages per second that the timers ask for; 0 for a stream."""
        return self.publications * 1000 / self.interval if self.interval else 0

    def bare_arguments(self, loop: bool) -> list[str]:
        return [
            f"brokers={self.brokers}",
            f"publications={self.publications}",
            f"interval={self.interval}",
            f"qos={self.qos}",
            f"size={self.size}",
            f"port={PORT}",
            f"loop={int(loop)}",
            f"general={GENERAL_ADDRESS}",
            f"statistics={STATISTICS_ADDRESS}",
            f"data={DATA_ADDRESS}",
        ]


def element(name: str, **attributes: object) -> str:
    return f"<{name} " + " ".join(f'{key}="{value}"' for key, value in attributes.items()) + "/>"


def broker(number: int) -> str:
    return element(
        "BrokerConf", Name=f"bench {number}", IPOrURL="127.0.0.1", ClientID=f"bench-{number}", EncryptionType=0,
        UserName="", Password="", LastWillTopic="", Port=PORT, KeepAlive=60, ConnectionInterval=10, LastWillAddr=NONE,
        ID=number, CleanSession=1, AutoConnect=1, BrokerAddr=BROKER_ADDRESS + 4 * number, DataType=0,
    )


def publication(number: int, plant: Plant) -> str:
    index = number - 1
    return element(
        "PublicationConf", ID=number, Name=f"publication {number}", Topic=f"bench/publication/{number}",
        QOS=plant.qos, PayloadEncryption=0, RetainFlag=0, PeriodicInterval=plant.interval,
        DataAddr=DATA_ADDRESS + index * plant.size, BrokerReceivedAddr=NONE, CBrokerID=index % plant.brokers + 1,
        Ent=plant.size, PayloadFormat=PF_BUFFER, DataType=AT_UINT8,
    )


def document(root: str, group: str, children: list[str]) -> str:
    return f'<{root} Version="1.0"><{group}>\n' + "\n".join(children) + f"\n</{group}></{root}>\n"


def write(plant: Plant, device: Path) -> None:
    """Makes `device` the file tree of a controller that has this configuration."""
    configuration = device / "VEL/UserApps/Config/MQTT"
    scripts = device / "VEL/System/Config/Scripts"
    for directory in (configuration, scripts, device / "etc/CA_Certificates"):
        directory.mkdir(parents=True)
    (configuration / "MQTTClientConf.xml").write_text(
        f'<ClientConf Version="1.0"><General Addr="{GENERAL_ADDRESS}"/>'
        f'<Statistics Addr="{STATISTICS_ADDRESS}"/></ClientConf>\n'
    )
    numbers = range(1, plant.publications + 1)
    (configuration / "Brokers.xml").write_text(
        document("BrokersConf", "Brokers", [broker(n) for n in range(1, plant.brokers + 1)])
    )
    (configuration / "Publications.xml").write_text(
        document("PublicationsConf", "Publications", [publication(n, plant) for n in numbers])
    )
    (configuration / "Subscriptions.xml").write_text(document("SubscriptionsConf", "Subscriptions", []))
    if plant.clock_check:
        script = scripts / CLOCK_CHECK
        script.write_text("#!/bin/sh\necho 1\n")
        script.chmod(0o755)
