"""The brokers: what each needs, how it is configured and started, and how it tells its version."""

import json
import pathlib
import re
import subprocess
from string import Template
from typing import NamedTuple

from brokers.partner import CERTIFICATE_PORT, PASSWORD_PORT, TCP_PORT, TLS_PORT, USER, Door, Partner, ProcessPartner
from support import aedes
from support.mosquitto import Mosquitto

TEMPLATES = pathlib.Path(__file__).resolve().parent / "configuration"


class MosquittoPartner(Partner):
    def __init__(self, server):
        super().__init__()
        self._brokers = {
            "tcp": Mosquitto(TCP_PORT, persistent=True),
            "tls": Mosquitto(TLS_PORT, tls=server, persistent=True),
            "password": Mosquitto(PASSWORD_PORT, users=dict([USER])),
            "certificate": Mosquitto(CERTIFICATE_PORT, tls=server, client_authority=server.authority),
        }
        self.doors = {name: Door(broker.port, broker.watch_port) for name, broker in self._brokers.items()}

    def start(self):
        for broker in self._brokers.values():
            broker.start()

    def stop(self):
        for broker in self._brokers.values():
            broker.stop()


class AedesPartner(Partner):
    def __init__(self, server):
        super().__init__()
        tls = {"certificate": str(server.certificate), "key": str(server.key)}
        self._doors = [
            {"port": PASSWORD_PORT, "users": dict([USER])},
            {"port": TLS_PORT} | tls,
            {"port": CERTIFICATE_PORT, "clientAuthority": str(server.authority)} | tls,
        ]
        self.start()

    def start(self):
        self._broker = aedes.Aedes(TCP_PORT, self._doors)

    def stop(self):
        self._broker.stop()


class RabbitMqPartner(ProcessPartner):
    """Names and passwords are looked at wherever a client tells them, certificates at the one TLS port."""

    refusal = 4

    def write_configuration(self, server):
        self.doors |= {"password": Door(TCP_PORT), "certificate": Door(TLS_PORT)}
        fill_in("rabbitmq.conf", self.DIRECTORY, server)
        (self.DIRECTORY / "plugins").write_text("[rabbitmq_mqtt].\n")

    def environment(self):
        own = {
            "NODENAME": "broker@localhost",
            "CONFIG_FILE": f"{self.DIRECTORY}/rabbitmq.conf",
            "CONF_ENV_FILE": f"{self.DIRECTORY}/none",
            "ENABLED_PLUGINS_FILE": f"{self.DIRECTORY}/plugins",
            "MNESIA_BASE": f"{self.DIRECTORY}/mnesia",
            "LOG_BASE": f"{self.DIRECTORY}/log",
            "PID_FILE": f"{self.DIRECTORY}/pid",
            "LOGS": "-",
        }
        return super().environment() | {f"RABBITMQ_{name}": value for name, value in own.items()}

    def command(self):
        return [str(next(pathlib.Path("/usr/lib/rabbitmq/lib").glob("rabbitmq_server-*/sbin/rabbitmq-server")))]


class EjabberdPartner(ProcessPartner):
    user = (f"{USER[0]}@localhost", USER[1])
    refusal = 1

    def write_configuration(self, server):
        self.doors["password"] = Door(TCP_PORT)
        (self.DIRECTORY / "chain.pem").write_text(server.certificate.read_text() + server.key.read_text())
        fill_in("ejabberd.yml", self.DIRECTORY, server)

    def environment(self):
        own = {"EJABBERD_CONFIG_PATH": "ejabberd.yml", "EJABBERD_LOG_PATH": "ejabberd.log", "ERL_CRASH_DUMP": "crash"}
        return super().environment() | {name: str(self.DIRECTORY / file) for name, file in own.items()}

    def command(self):
        code = next(pathlib.Path("/usr/lib").glob("*/ejabberd-*/ebin/ejabberd.beam")).parent
        register = f'ejabberd_auth:try_register(<<"{USER[0]}">>, <<"localhost">>, <<"{USER[1]}">>).'
        return [
            "erl", "-noinput", "-pa", str(code), "-mnesia", "dir", f'"{self.DIRECTORY}/mnesia"',
            "-s", "ejabberd", "-eval", register,
        ]  # fmt: skip


class ActiveMqPartner(ProcessPartner):
    LIBRARIES = (
        "/usr/share/activemq/bin/activemq.jar",
        "/usr/share/activemq/lib/*",
        "/usr/share/activemq/lib/optional/*",
        *(f"/usr/share/java/{name}.jar" for name in ("mqtt-client", "hawtdispatch", "hawtdispatch-transport", "hawtbuf")),
    )

    def write_configuration(self, server):
        self.doors["password"] = Door(TCP_PORT)
        fill_in("activemq.xml", self.DIRECTORY, server)
        run("openssl", "pkcs12", "-export", "-in", server.certificate, "-inkey", server.key, "-passout", "pass:changeit",
            "-out", self.DIRECTORY / "server.p12")  # fmt: skip
        run("keytool", "-importcert", "-noprompt", "-file", server.authority, "-alias", "authority", "-storetype", "PKCS12",
            "-storepass", "changeit", "-keystore", self.DIRECTORY / "trusted.p12")  # fmt: skip

    def command(self):
        folders = {"home": "/usr/share/activemq", "base": self.DIRECTORY, "data": self.DIRECTORY / "data"}
        return [
            "java", "-Xmx256m", *(f"-Dactivemq.{name}={folder}" for name, folder in folders.items()),
            "-cp", ":".join(self.LIBRARIES), "org.apache.activemq.console.Main",
            "start", f"xbean:file:{self.DIRECTORY}/activemq.xml",
        ]  # fmt: skip


def fill_in(name, directory, server):
    """The template of this name, with the places of the broker's files, into its directory."""
    places = server._asdict() | {"directory": directory, "chain": directory / "chain.pem"}
    (directory / name).write_text(Template((TEMPLATES / name).read_text()).substitute(places))


def run(*command):
    subprocess.run(list(map(str, command)), check=True, capture_output=True)


class Make(NamedTuple):
    """`packages` are those of the distribution; the second broker of the system tests comes with scripts/bootstrap."""

    title: str
    packages: tuple
    partner: type


MAKES = {
    "mosquitto": Make("mosquitto", ("mosquitto",), MosquittoPartner),
    "aedes": Make("aedes", (), AedesPartner),
    "rabbitmq": Make("RabbitMQ", ("rabbitmq-server",), RabbitMqPartner),
    "activemq": Make("ActiveMQ", ("activemq", "libmqtt-client-java", "default-jre-headless"), ActiveMqPartner),
    "ejabberd": Make("ejabberd", ("ejabberd",), EjabberdPartner),
}


def version(name):
    """The upstream's version, without the distribution's additions; None if it isn't installed."""
    packages = MAKES[name].packages
    if not packages:
        file = aedes.MODULES / "aedes" / "package.json"
        return json.loads(file.read_text())["version"] if file.is_file() else None
    versions = [installed_version(package) for package in packages]
    return re.split(r"[-+]", versions[0])[0] if all(versions) else None


def installed_version(package):
    query = ["dpkg-query", "-W", "-f=${db:Status-Status} ${Version}", package]
    status, _, number = subprocess.run(query, capture_output=True, text=True, check=False).stdout.partition(" ")
    return number if status == "installed" else ""
