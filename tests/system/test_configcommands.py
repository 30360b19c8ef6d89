"""plcctl reads and changes the configuration of the service by requests."""

import json
import subprocess
import xml.etree.ElementTree as ElementTree

from support import build, configuration
from support.configuration import BROKERS_FILE, PUBLICATIONS_FILE, SUBSCRIPTIONS_FILE, broker, publication, subscription

PLCCTL = build.DIRECTORY / "bin" / "plcctl"

FILES = {"broker": BROKERS_FILE, "publication": PUBLICATIONS_FILE, "subscription": SUBSCRIPTIONS_FILE}


def plcctl(*arguments, status=0):
    """What it printed."""
    finished = subprocess.run(
        [str(PLCCTL), *map(str, arguments)], capture_output=True, check=False, timeout=90, text=True
    )
    assert finished.returncode == status, finished.stderr
    return finished


def get(kind, entity, *options):
    """The fields by their names."""
    answer = json.loads(plcctl("config", "get", kind, entity, "--json", *options).stdout)
    assert (answer["kind"], answer["unterminated"], answer["result"]["code"]) == (kind, [], 0)
    return answer["fields"]


def set_fields(kind, entity, *assignments):
    """(field, old, new) of every change."""
    answer = json.loads(plcctl("config", "set", kind, entity, *assignments, "--json").stdout)
    assert answer["result"]["code"] == 0
    return [(change["field"], change["old"], change["new"]) for change in answer["changes"]]


def pause():
    plcctl("request", "pause")


def start():
    plcctl("request", "start")


def attributes(kind, identifier):
    [entry] = [entry for entry in ElementTree.parse(FILES[kind]).iter() if entry.get("ID") == str(identifier)]
    return dict(entry.attrib)


def texts(entry):
    """The attributes of an entry of `configuration`, as they stand in the file."""
    return {key: str(value) for key, value in entry.items()}


def test_all_three_kinds_are_read_from_the_running_service(device):
    device.configure(
        brokers=[broker(1, AutoConnect=0), broker(
            2, Name="head office", AutoConnect=0, IPOrURL="mqtt.example", Port=8883, EncryptionType=1, UserName="müller",
            Password="geheim", LastWillTopic="{PLC.NAME}/offline", ConnectionInterval=70_000, KeepAlive=61, CleanSession=0,
        )],
        publications=[publication(1, Topic="{PLC.NAME}/größe", QOS=2, PayloadFormat=1, RetainFlag=1)],
        subscriptions=[subscription(1, Topic="plc/+/🙂", QOS=1, SubscribeAtBoot=0, IsBuffered=1)],
    )  # fmt: skip
    device.run()

    assert get("broker", "head office", "--show-passwords") == {
        "IPorUrl": "mqtt.example",
        "Port": 8883,
        "AutoConnect": False,
        "ClientID": "plc-2",
        "Username": "müller",
        "Password": "geheim",
        "LastWillTopic": "press/offline",
        "ReconnectTrials": 70_000,
        "KeepAliveTime": 61,
        "Encryption": None,
        "CleanSessionFlag": False,
    }
    assert get("broker", 2)["Password"] is None
    assert get("publication", 1) == {"Topic": "press/größe", "QoS": 2, "PayloadFormat": 1, "Retained": True}
    assert get("subscription", "subscription1") == {
        "Topic": "plc/+/🙂",
        "QoS": 1,
        "PayloadFormat": 0,
        "SubscribeAtBoot": False,
        "Buffered": True,
    }


def test_a_read_back_leaves_tag_memory_as_it_was(device):
    device.configure(brokers=[broker(AutoConnect=0, Password="geheim")])
    device.run()
    assert get("broker", 1, "--show-passwords")["Password"] == "geheim"
    assert "geheim".encode("utf-16-le") not in device.tags.read(0x7F400000, 8192)


def test_a_changed_broker_is_in_the_file_and_used_after_a_start(device, mosquitto, listen):
    server = mosquitto(port=1884)
    entry = broker(1, Name="line broker", AutoConnect=0, UserName="müller", LastWillTopic="{PLC.NAME}/gone")
    device.configure(brokers=[entry], publications=[publication(1, PeriodicInterval=-1)])
    device.run()
    plcctl("request", "connect", "line broker", status=110)
    pause()

    assert set_fields("broker", "line broker", "port=1884", "clientid=press-1", "KeepAliveTime=65") == [
        ("Port", 1883, 1884),
        ("ClientID", "plc-1", "press-1"),
        ("KeepAliveTime", 60, 65),
    ]
    assert attributes("broker", 1) == texts(entry | {"Port": 1884, "ClientID": "press-1", "KeepAlive": 65})
    assert get("broker", 1)["Port"] == 1884
    start()
    assert get("broker", 1)["ClientID"] == "press-1"
    listener = listen(server)
    plcctl("request", "connect", "line broker")
    plcctl("request", "send", "publication1")
    assert listener.wait_for("plc/data/1", 1)


def test_a_changed_publication_and_subscription_are_used_after_a_start(device, mosquitto, listen, send):
    server = mosquitto()
    publisher = publication(1, PeriodicInterval=-1, Topic="{PLC.NAME}/old")
    subscriber = subscription(1)
    device.configure(publications=[publisher, publication(2)], subscriptions=[subscriber, subscription(2)])
    device.tags.write(configuration.data_at(1), b"\x01\x02\x03\x04")
    device.run()
    pause()

    assert set_fields("publication", 1, "Topic={PLC.NAME}/neue größe", "QoS=1") == [
        ("Topic", "{PLC.NAME}/old", "{PLC.NAME}/neue größe"),
        ("QoS", 0, 1),
    ]
    assert set_fields("subscription", 1, "Topic=plc/+/befehl", "SubscribeAtBoot=false") == [
        ("Topic", "plc/command/1", "plc/+/befehl"),
        ("SubscribeAtBoot", True, False),
    ]
    assert attributes("publication", 1) == texts(publisher | {"Topic": "{PLC.NAME}/neue größe", "QOS": 1})
    assert attributes("publication", 2) == texts(publication(2))
    assert attributes("subscription", 1) == texts(subscriber | {"Topic": "plc/+/befehl", "SubscribeAtBoot": 0})
    assert attributes("subscription", 2) == texts(subscription(2))

    start()
    listener = listen(server)
    plcctl("request", "connect", 1)
    plcctl("request", "subscribe", 1)
    plcctl("request", "send", 1)
    assert listener.wait_for("press/neue größe", 1)[0].payload == b"\x01\x02\x03\x04"
    send(server).publish("plc/neu/befehl", b"\x07\x00\x00\x00")
    device.wait_received(b"\x07\x00\x00\x00")


def test_setting_one_field_keeps_what_the_service_reports_otherwise(device):
    """A broker's characters beyond ASCII are reported as several each until the next start."""
    entry = broker(AutoConnect=0, LastWillTopic="{PLC.NAME}/gone", ClientID="")
    device.configure(brokers=[entry])
    device.run()
    pause()
    set_fields("broker", 1, "Username=müller")
    assert get("broker", 1)["Username"] == "mÃ¼ller"
    set_fields("broker", 1, "Port=1885")
    assert attributes("broker", 1) == texts(entry | {"UserName": "müller", "Port": 1885})
    start()
    assert get("broker", 1)["Username"] == "müller"
    assert get("broker", 1)["LastWillTopic"] == "press/gone"


def test_a_running_service_refuses_a_change_with_advice(device):
    device.configure(brokers=[broker(AutoConnect=0)], publications=[publication(1)], subscriptions=[subscription(1)])
    device.run()
    before = [file.read_bytes() for file in FILES.values()]
    for kind, change in (("broker", "Port=1"), ("publication", "QoS=1"), ("subscription", "QoS=1")):
        refused = plcctl("config", "set", kind, 1, change, status=104)
        assert "SC_AC_ERROR_NOT_PAUSED (-4)" in refused.stderr
        assert "`plcctl request pause` first" in refused.stderr
    assert [file.read_bytes() for file in FILES.values()] == before
    assert get("broker", 1)["Port"] == 1883


def test_an_unknown_id_is_refused(device):
    device.configure()
    device.run()
    pause()
    for kind in FILES:
        for command in (("get", kind, 9999), ("set", kind, 9999, "Port=1" if kind == "broker" else "QoS=1")):
            assert "SC_AC_ERROR_INVALID_ID (-2)" in plcctl("config", *command, status=102).stderr


def test_a_text_that_no_record_holds_stays_whole_in_the_file_until_it_is_set(device):
    topic = "x" * 300
    device.configure(brokers=[broker(AutoConnect=0)], publications=[publication(1, Topic=topic)])
    device.run()
    pause()
    refused = plcctl("config", "set", "publication", 1, "QoS=1", status=1)
    assert "Topic has a value that the request can't carry" in refused.stderr
    assert attributes("publication", 1)["Topic"] == topic
    assert get("publication", 1)["Topic"] == "x" * 255
    assert set_fields("publication", 1, "Topic=short")[0][2] == "short"
    assert attributes("publication", 1) == texts(publication(1, Topic="short"))


def test_a_text_that_runs_into_the_next_field_is_told_of(device):
    device.configure(brokers=[broker(AutoConnect=0, IPOrURL="h" * 200)])
    device.run()
    answer = json.loads(plcctl("config", "get", "broker", 1, "--json").stdout)
    assert answer["unterminated"] == ["IPorUrl"]
    assert answer["fields"]["IPorUrl"] == "h" * 128
    assert answer["fields"]["Port"] == 1883
