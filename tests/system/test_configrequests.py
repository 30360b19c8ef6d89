"""Requests that read an entity's configuration back, and requests that change it in the file and in the service."""

import pathlib
import struct
import xml.etree.ElementTree as ElementTree

import pytest

from support import csvlog, requests
from support.configuration import (
    BROKERS_FILE,
    GENERAL_FILE,
    PUBLICATIONS_FILE,
    SUBSCRIPTIONS_FILE,
    broker,
    publication,
    subscription,
)
from support.device import VERBOSE
from support.records import BrokerConfiguration, PublicationConfiguration, SubscriptionConfiguration
from support.requests import (
    CONNECT,
    DONE,
    GET_BROKER,
    GET_PUBLICATION,
    GET_SUBSCRIPTION,
    IN_PROGRESS,
    NOT_PAUSED,
    NOT_READ_BACK,
    NOT_WRITTEN_BACK,
    PAUSE,
    SET_BROKER,
    SET_BROKER_REST,
    SET_PUBLICATION,
    SET_SUBSCRIPTION,
    START,
    SUBSCRIBE,
    UNKNOWN_ID,
    status_position,
)
from support.waiting import wait_until

NOBODY = 9999
RECORD_AT = 0xA00000  # operand address
FIRST_PACKET = BrokerConfiguration.FIRST_PACKET
PENDING = [IN_PROGRESS, IN_PROGRESS]

KINDS = {
    "broker": (GET_BROKER, SET_BROKER, BrokerConfiguration),
    "publication": (GET_PUBLICATION, SET_PUBLICATION, PublicationConfiguration),
    "subscription": (GET_SUBSCRIPTION, SET_SUBSCRIPTION, SubscriptionConfiguration),
}
every_kind = pytest.mark.parametrize("kind", KINDS)

OFFICE = BrokerConfiguration(
    host="10.0.0.7", port=65535, auto_connect=1, client="line-7", user="shift", password="letmein",
    will_topic="line/7/gone", interval=4_000_000_000, keep_alive=61, encryption=5, clean_session=1,
)  # fmt: skip


def plant(device, **attributes):
    device.configure(
        brokers=[broker(1, AutoConnect=0), broker(2, AutoConnect=0, **attributes)],
        publications=[publication(1), publication(2)],
        subscriptions=[subscription(1), subscription(2)],
    )


def run_paused(device, *arguments):
    device.run(*arguments)
    assert device.requests.ask(PAUSE) == DONE


def get(device, kind, identifier, address=RECORD_AT):
    opcode, _, record = KINDS[kind]
    assert device.requests.ask(opcode, identifier, payload=struct.pack("<I", address)) == DONE
    return record.decode(device.tags.read(status_position(address), record.SIZE))


def set_first_packet(device, identifier, record):
    """The request; its status tag stays in progress."""
    data = record if isinstance(record, bytes) else record.encode()
    request = device.requests.send(SET_BROKER, identifier, payload=data[:FIRST_PACKET])
    wait_until(lambda: len(request.answers()) >= 2, lambda: f"two values of the tag; there are {request.answers()}")
    return request


def send_rest(device, record):
    data = record if isinstance(record, bytes) else record.encode()
    device.requests.send(SET_BROKER_REST, payload=data[FIRST_PACKET:])


def attributes_of(file, identifier):
    [entry] = [entry for entry in ElementTree.parse(file).iter() if entry.get("ID") == str(identifier)]
    return entry.attrib


def synchronise(device):
    """The requests ahead of this one are done."""
    assert device.requests.ask(GET_BROKER, NOBODY) == UNKNOWN_ID


def test_read_back_of_a_broker(device):
    plant(
        device, IPOrURL="broker.plant.example", Port=8884, UserName="shift ö", Password="pass", LastWillTopic="gone/{PLC.NAME}",
        ConnectionInterval=70000, KeepAlive=65535, CleanSession=0, EncryptionType=5,
    )  # fmt: skip
    device.run()
    assert get(device, "broker", 2) == BrokerConfiguration(
        "broker.plant.example", 8884, 0, "plc-2", "shift ö", "pass", "gone/press", 70000, 65535, 0, 0
    )


def test_read_back_of_a_publication(device):
    device.configure(publications=[publication(1), publication(3, Topic="a/{PLC.NAME}", QOS=2, PayloadFormat=1, RetainFlag=1)])
    device.run()
    assert get(device, "publication", 3) == PublicationConfiguration("a/press", 2, 1, 1)


def test_read_back_of_a_subscription(device):
    device.configure(subscriptions=[subscription(3, Topic="a/+/ü", QOS=1, PayloadFormat=1, SubscribeAtBoot=0, IsBuffered=1)])
    device.run()
    assert get(device, "subscription", 3) == SubscriptionConfiguration("a/+/ü", 1, 1, 0, 1)


@every_kind
def test_record_is_complete_when_the_tag_says_so(device, kind):
    plant(device)
    device.run()
    opcode, _, record = KINDS[kind]
    request = device.requests.send(opcode, 1, payload=struct.pack("<I", RECORD_AT))
    assert request.wait() == DONE
    parts = 2 if kind == "broker" else 1
    begin, end = request.writes()
    written = device.tags.journal(since=begin.number + 1)[:parts]
    size = record.SIZE // parts
    first = status_position(RECORD_AT)
    assert [(write.position, write.size) for write in written] == [(first + n * size, size) for n in range(parts)]
    assert end.number > written[-1].number


@every_kind
def test_read_back_works_while_paused(device, kind):
    plant(device)
    device.run()
    running = get(device, kind, 2)
    assert device.requests.ask(PAUSE) == DONE
    device.tags.write(status_position(RECORD_AT), b"\xff" * KINDS[kind][2].SIZE)
    assert get(device, kind, 2) == running


@every_kind
def test_read_back_of_nobody_writes_no_record(device, kind):
    plant(device)
    device.run()
    assert device.requests.ask(KINDS[kind][0], NOBODY, payload=struct.pack("<I", RECORD_AT)) == UNKNOWN_ID
    assert device.stray_writes() == []


@every_kind
def test_read_back_to_an_address_without_memory_fails(device, kind):
    plant(device)
    device.run()
    request = device.requests.ask(KINDS[kind][0], 1, payload=struct.pack("<I", 0x2000000))
    assert request == NOT_READ_BACK


def test_half_a_broker_record_is_enough(device):
    """At the end of tag memory only the first half has room."""
    plant(device)
    device.run()
    address = 0x1000000 - 1500
    assert device.requests.ask(GET_BROKER, 1, payload=struct.pack("<I", address)) == DONE
    host, port = struct.unpack_from("<256sH", device.tags.read(status_position(address), 1500))
    assert (host.decode("utf-16-le").rstrip("\0"), port) == ("127.0.0.1", 1883)


def test_broker_texts_spill_inside_the_record_and_never_past_it(device):
    """What is written first is overwritten by what comes later; the rest stays."""
    long = "x" * 300
    plant(device, IPOrURL="h" * 200, LastWillTopic=long)
    device.run()
    behind = status_position(RECORD_AT) + BrokerConfiguration.SIZE
    device.tags.write(behind, b"\xee" * 600)
    assert device.requests.ask(GET_BROKER, 2, payload=struct.pack("<I", RECORD_AT)) == DONE
    data = device.tags.read(status_position(RECORD_AT), BrokerConfiguration.SIZE)
    host, port, auto, padding, client = struct.unpack_from("<256sHBB464s", data)
    assert host.decode("utf-16-le") == "h" * 128
    assert (port, auto, padding) == (1883, 0, 0)
    assert client[:12].decode("utf-16-le") == "plc-2\0"
    topic, interval, keep_alive, encryption, clean = struct.unpack_from("<512sIHBB", data, 1492)
    assert topic.decode("utf-16-le") == long[:256]
    assert (interval, keep_alive, encryption, clean) == (1, 60, 0, 1)
    assert device.tags.read(behind, 600) == b"\xee" * 600


def test_handlers_log_their_begin_and_end(device):
    plant(device)
    run_paused(device, *VERBOSE)
    device.requests.ask(GET_BROKER, 1, payload=struct.pack("<I", RECORD_AT))
    record = PublicationConfiguration("new/topic", 0, 0, 0)
    device.requests.ask(SET_PUBLICATION, 2, payload=record.encode())

    def rows():
        found = [(row.function.rpartition("::")[2], row.message) for row in csvlog.rows()]
        return [row for row in found if "Cfg" in row[0] and " function (" in row[1]]

    wait_until(lambda: len(rows()) >= 4, lambda: f"the last line, which follows the answer: {rows()}")
    assert rows() == [
        ("HandleGetClientBrokerCfg", "Enter function (ID=1)"),
        ("HandleGetClientBrokerCfg", "End function (rtnstatus is 0)"),
        ("HandleSetPublicationCfg", "Enter function (ID=2)"),
        ("HandleSetPublicationCfg", "End function (rtnstatus is 0)"),
    ]


def test_publication_is_changed_in_the_file_and_in_the_service(device):
    plant(device)
    run_paused(device)
    before = attributes_of(PUBLICATIONS_FILE, 2)
    record = PublicationConfiguration("neu/größe", 1, 1, 200)
    assert device.requests.ask(SET_PUBLICATION, 2, payload=record.encode()) == DONE
    assert get(device, "publication", 2) == record._replace(retained=1)
    changed = {"Topic": "neu/größe", "QOS": "1", "PayloadFormat": "1", "RetainFlag": "200"}
    assert attributes_of(PUBLICATIONS_FILE, 2) == before | changed
    assert attributes_of(PUBLICATIONS_FILE, 1)["Topic"] == "plc/data/1"


def test_subscription_is_changed_in_the_file_and_in_the_service(device):
    plant(device)
    run_paused(device)
    before = attributes_of(SUBSCRIPTIONS_FILE, 1)
    record = SubscriptionConfiguration("neu/größe/+", 2, 1, 0, 1)
    assert device.requests.ask(SET_SUBSCRIPTION, 1, payload=record.encode()) == DONE
    assert get(device, "subscription", 1) == record
    changed = {"Topic": "neu/größe/+", "QOS": "2", "PayloadFormat": "1", "SubscribeAtBoot": "0", "IsBuffered": "1"}
    assert attributes_of(SUBSCRIPTIONS_FILE, 1) == before | changed


def test_changes_are_in_force_after_a_start(device, scripted):
    partner = scripted()
    device.configure(
        brokers=[broker(1, AutoConnect=0)], publications=[publication(1)], subscriptions=[subscription(1, SubscribeAtBoot=0)]
    )
    run_paused(device)
    device.requests.ask(SET_PUBLICATION, 1, payload=PublicationConfiguration("new/data", 0, 0, 1).encode())
    device.requests.ask(SET_SUBSCRIPTION, 1, payload=SubscriptionConfiguration("new/+", 1, 0, 0, 0).encode())
    request = set_first_packet(device, 1, OFFICE._replace(host="127.0.0.1", port=1883, client="renamed"))
    send_rest(device, OFFICE)
    assert request.wait() == [IN_PROGRESS, IN_PROGRESS, 0]
    assert device.requests.ask(START) == DONE
    assert device.requests.ask(CONNECT, 1) == DONE
    assert device.requests.ask(SUBSCRIBE, 1) == DONE
    assert partner.connects[0].client_id == "renamed"
    assert (partner.connects[0].user, partner.connects[0].keep_alive) == ("shift", 61)
    assert partner.subscribes[0].topics == [("new/+", 1)]
    wait_until(lambda: partner.publishes, "a publication")
    assert (partner.publishes[0].topic, partner.publishes[0].retain) == ("new/data", True)
    partner.publish("new/one", b"\7\0\0\0")
    device.wait_received(b"\7\0\0\0", nudge=lambda: partner.publish("nobody's"))


def test_broker_is_changed_by_two_packets(device):
    plant(device)
    run_paused(device)
    before = attributes_of(BROKERS_FILE, 2)
    request = set_first_packet(device, 2, OFFICE)
    first = {"IPOrURL": "10.0.0.7", "Port": "65535", "AutoConnect": "1", "ClientID": "line-7", "UserName": "shift"}
    assert attributes_of(BROKERS_FILE, 2) == before | first
    assert get(device, "broker", 2) == OFFICE._replace(
        password="", will_topic="", interval=1, keep_alive=60, encryption=0, clean_session=1
    )
    assert request.answers() == PENDING
    send_rest(device, OFFICE._replace(clean_session=0))
    assert request.wait() == [*PENDING, 0]
    rest = {
        "Password": "letmein", "LastWillTopic": "line/7/gone", "ConnectionInterval": "4000000000", "KeepAlive": "61",
        "CleanSession": "0",
    }  # fmt: skip
    assert attributes_of(BROKERS_FILE, 2) == before | first | rest
    # The level of encryption is neither written nor taken over.
    assert get(device, "broker", 2) == OFFICE._replace(encryption=0, clean_session=0)
    assert attributes_of(BROKERS_FILE, 1)["IPOrURL"] == "127.0.0.1"


def test_broker_texts_beyond_ascii_are_right_in_the_file_and_come_apart_in_the_service(device):
    plant(device)
    run_paused(device)
    record = OFFICE._replace(client="größe", user="€", password="ß", will_topic="ä/😀")
    request = set_first_packet(device, 2, record)
    send_rest(device, record)
    assert request.wait() == [*PENDING, 0]
    found = attributes_of(BROKERS_FILE, 2)
    names = ("ClientID", "UserName", "Password", "LastWillTopic")
    assert [found[name] for name in names] == ["größe", "€", "ß", "ä/😀"]
    live = get(device, "broker", 2)
    assert (live.client, live.user, live.password) == ("grÃ¶Ã\x9fe", "â\x82¬", "Ã\x9f")
    assert live.will_topic == "Ã¤/ð\x9f\x98\x80"
    assert device.requests.ask(START) == DONE
    live = get(device, "broker", 2)
    assert (live.client, live.user, live.password, live.will_topic) == ("größe", "€", "ß", "ä/😀")


def test_texts_without_an_end_stop_at_their_field(device):
    plant(device)
    run_paused(device)
    endless = "".join(chr(ord("a") + n % 26) for n in range(256))
    record = struct.pack("<512sBBBB", endless.encode("utf-16-le"), 1, 0, 1, 0)
    assert device.requests.ask(SET_PUBLICATION, 1, payload=record) == DONE
    assert attributes_of(PUBLICATIONS_FILE, 1)["Topic"] == endless
    full = OFFICE._replace(host="h" * 128, client="c" * 232, user="u" * 128, password="p" * 256, will_topic="w" * 256)
    request = set_first_packet(device, 1, full)
    send_rest(device, full)
    assert request.wait() == [*PENDING, 0]
    found = attributes_of(BROKERS_FILE, 1)
    expected = {"IPOrURL": "h" * 128, "ClientID": "c" * 232, "UserName": "u" * 128, "Password": "p" * 256}
    assert {name: found[name] for name in expected} == expected
    assert found["LastWillTopic"] == "w" * 256


def test_record_that_the_message_cuts_off_reads_as_zero(device):
    plant(device)
    run_paused(device)
    record = PublicationConfiguration("cut", 2, 1, 1).encode()
    assert device.requests.ask(SET_PUBLICATION, 1, payload=record[:513]) == DONE
    assert get(device, "publication", 1) == PublicationConfiguration("cut", 2, 0, 0)


def test_values_outside_their_range_become_0(device):
    plant(device)
    run_paused(device)
    assert device.requests.ask(SET_PUBLICATION, 1, payload=PublicationConfiguration("a", 3, 9, 1).encode()) == DONE
    assert device.requests.ask(SET_SUBSCRIPTION, 1, payload=SubscriptionConfiguration("a", 3, 4, 9, 9).encode()) == DONE
    assert get(device, "publication", 1) == PublicationConfiguration("a", 0, 0, 1)
    assert get(device, "subscription", 1) == SubscriptionConfiguration("a", 0, 0, 1, 1)
    assert [attributes_of(PUBLICATIONS_FILE, 1)[name] for name in ("QOS", "PayloadFormat")] == ["0", "0"]
    assert [attributes_of(SUBSCRIPTIONS_FILE, 1)[name] for name in ("QOS", "PayloadFormat")] == ["0", "0"]


def test_variables_are_written_as_they_stand_and_expanded_at_the_next_start(device):
    plant(device)
    run_paused(device)
    record = PublicationConfiguration("{PLC.NAME}/a", 0, 0, 0)
    assert device.requests.ask(SET_PUBLICATION, 1, payload=record.encode()) == DONE
    assert get(device, "publication", 1).topic == "{PLC.NAME}/a"
    assert attributes_of(PUBLICATIONS_FILE, 1)["Topic"] == "{PLC.NAME}/a"
    assert device.requests.ask(START) == DONE
    assert get(device, "publication", 1).topic == "press/a"


@every_kind
def test_change_while_running_is_refused(device, kind):
    plant(device)
    device.run()
    _, opcode, record = KINDS[kind]
    files = [file.read_bytes() for file in (BROKERS_FILE, PUBLICATIONS_FILE, SUBSCRIPTIONS_FILE)]
    before = get(device, kind, 1)
    assert device.requests.ask(opcode, 1, payload=bytes(record.SIZE)[:FIRST_PACKET]) == NOT_PAUSED
    assert device.requests.ask(opcode, NOBODY) == NOT_PAUSED
    assert get(device, kind, 1) == before
    assert [file.read_bytes() for file in (BROKERS_FILE, PUBLICATIONS_FILE, SUBSCRIPTIONS_FILE)] == files


def test_rest_of_a_record_that_was_refused_changes_nothing(device):
    plant(device)
    device.run()
    content = BROKERS_FILE.read_bytes()
    before = get(device, "broker", 1)
    assert device.requests.ask(SET_BROKER, 1, payload=OFFICE.encode()[:FIRST_PACKET]) == NOT_PAUSED
    send_rest(device, OFFICE)
    synchronise(device)
    assert get(device, "broker", 1) == before
    assert BROKERS_FILE.read_bytes() == content
    # Nor when the process is paused afterwards.
    assert device.requests.ask(PAUSE) == DONE
    send_rest(device, OFFICE)
    synchronise(device)
    assert get(device, "broker", 1) == before
    assert BROKERS_FILE.read_bytes() == content


@every_kind
def test_change_of_nobody_is_refused(device, kind):
    plant(device)
    run_paused(device)
    files = [file.read_bytes() for file in (BROKERS_FILE, PUBLICATIONS_FILE, SUBSCRIPTIONS_FILE)]
    assert device.requests.ask(KINDS[kind][1], NOBODY) == UNKNOWN_ID
    assert [file.read_bytes() for file in (BROKERS_FILE, PUBLICATIONS_FILE, SUBSCRIPTIONS_FILE)] == files


@every_kind
def test_entity_stays_as_it_was_when_the_file_can_not_be_written(device, kind):
    plant(device)
    run_paused(device)
    before = get(device, kind, 1)
    for file in (BROKERS_FILE, PUBLICATIONS_FILE, SUBSCRIPTIONS_FILE):
        file.unlink()
    _, opcode, record = KINDS[kind]
    assert device.requests.ask(opcode, 1, payload=bytes(record.SIZE)[:FIRST_PACKET]) == NOT_WRITTEN_BACK
    assert get(device, kind, 1) == before
    assert not BROKERS_FILE.exists()
    if kind == "broker":
        send_rest(device, OFFICE)
        synchronise(device)
        assert get(device, kind, 1) == before


def test_second_packet_changes_the_broker_even_when_the_file_can_not_be_written(device):
    plant(device)
    run_paused(device)
    request = set_first_packet(device, 1, OFFICE)
    BROKERS_FILE.write_text("<BrokersConf")
    send_rest(device, OFFICE)
    assert request.wait() == [*PENDING, -1]
    assert get(device, "broker", 1) == OFFICE._replace(encryption=0)
    assert BROKERS_FILE.read_text() == "<BrokersConf"


def test_rest_without_a_first_packet_changes_nothing(device):
    plant(device)
    run_paused(device)
    content = BROKERS_FILE.read_bytes()
    written = device.tags.writes_made()
    send_rest(device, OFFICE)
    synchronise(device)
    assert len(device.tags.journal(since=written)) == 2  # of the request that synchronised
    assert BROKERS_FILE.read_bytes() == content


def test_rest_goes_to_every_broker_that_waits_for_one(device):
    plant(device)
    run_paused(device, *VERBOSE)
    sent = [set_first_packet(device, number, OFFICE._replace(client=f"line-{number}")) for number in (2, 1)]
    send_rest(device, OFFICE)
    for request in sent:
        assert request.wait() == [*PENDING, 0]
    # In the order of the list, and named by the place in it.
    second, first = sent
    assert first.writes()[-1].number < second.writes()[-1].number
    assert [message for message in csvlog.messages("DEBUG") if message.startswith("ID is ")] == ["ID is 0", "ID is 1"]
    for number in (1, 2):
        assert get(device, "broker", number) == OFFICE._replace(client=f"line-{number}", encryption=0)
        assert attributes_of(BROKERS_FILE, number)["Password"] == "letmein"
    # Nobody waits any more.
    content = BROKERS_FILE.read_bytes()
    send_rest(device, OFFICE._replace(password="other"))
    synchronise(device)
    assert BROKERS_FILE.read_bytes() == content


def test_other_requests_may_come_between_the_packets(device):
    plant(device)
    run_paused(device)
    request = set_first_packet(device, 1, OFFICE)
    assert device.requests.ask(PAUSE) == requests.ALREADY_PAUSED
    record = PublicationConfiguration("between", 0, 0, 0)
    assert device.requests.ask(SET_PUBLICATION, 1, payload=record.encode()) == DONE
    assert request.answers() == PENDING
    send_rest(device, OFFICE)
    assert request.wait() == [*PENDING, 0]


def test_start_between_the_packets_leaves_the_first_one_without_an_answer(device):
    plant(device)
    run_paused(device)
    request = set_first_packet(device, 2, OFFICE)
    assert device.requests.ask(START) == DONE
    content = BROKERS_FILE.read_bytes()
    send_rest(device, OFFICE)
    synchronise(device)
    assert request.answers() == PENDING
    assert BROKERS_FILE.read_bytes() == content
    assert get(device, "broker", 2).client == "line-7"  # the first half was in the file
    assert get(device, "broker", 2).password == ""


def test_failed_start_between_the_packets_takes_the_waiting_broker_along(device):
    """The brokers are read first, so they are new even when another file is unusable."""
    plant(device)
    run_paused(device)
    request = set_first_packet(device, 2, OFFICE)
    good = PUBLICATIONS_FILE.read_text()
    PUBLICATIONS_FILE.write_text("<")
    assert device.requests.ask(START) == requests.FILES_UNUSABLE
    send_rest(device, OFFICE)
    synchronise(device)
    assert request.answers() == PENDING
    PUBLICATIONS_FILE.write_text(good)
    assert device.requests.ask(START) == DONE


def test_failed_start_leaves_what_stands_behind_the_bad_file_as_it_was(device):
    plant(device)
    run_paused(device)
    device.configure(brokers=[broker(3, AutoConnect=0)], publications=[publication(1, Topic="new")])
    SUBSCRIPTIONS_FILE.write_text("<")
    assert device.requests.ask(START) == requests.FILES_UNUSABLE
    assert get(device, "broker", 3).client == "plc-3"
    assert device.requests.ask(GET_SUBSCRIPTION, 1, payload=struct.pack("<I", RECORD_AT)) == UNKNOWN_ID
    assert get(device, "publication", 1).topic == "plc/data/1"


def test_start_that_fails_ahead_of_the_brokers_leaves_the_waiting_broker(device):
    """The general file is read first; with a bad one the brokers live on, and so does what they wait for."""
    plant(device)
    run_paused(device)
    request = set_first_packet(device, 2, OFFICE)
    GENERAL_FILE.write_text("<")
    assert device.requests.ask(START) == requests.FILES_UNUSABLE
    send_rest(device, OFFICE)
    assert request.wait() == [*PENDING, 0]
    assert get(device, "broker", 2) == OFFICE._replace(encryption=0)


def slow_serial_number(device):
    """Two files: the script that tells the number waits for the first, and makes the second ahead of that."""
    go, asked = pathlib.Path("/tmp/go"), pathlib.Path("/tmp/asked")
    device.script(
        pathlib.Path("/VEL/System/Config/Scripts/PYGetPLCSerial.py"),
        f"import pathlib, time\npathlib.Path('{asked}').touch()\n"
        f"while not pathlib.Path('{go}').exists(): time.sleep(0.05)\nprint('SN9')",
        interpreter="/usr/bin/python3",
    )
    return go, asked


def test_rest_at_the_heels_of_a_start_waits_for_it_and_finds_nobody(device):
    """A start that takes its time while it reads the brokers, and the second packet of one of them meanwhile."""
    plant(device)
    run_paused(device, *VERBOSE)
    go, asked = slow_serial_number(device)
    request = set_first_packet(device, 2, OFFICE)
    content = BROKERS_FILE.read_text().replace('LastWillTopic=""', 'LastWillTopic="gone/{PLC.SN}"')
    BROKERS_FILE.write_text(content)
    start = device.requests.send(START)
    wait_until(asked.exists, "the start to read the files")
    send_rest(device, OFFICE)
    wait_until(lambda: csvlog.has_message("reqId:16"), "the rest to be taken up")
    assert start.status == IN_PROGRESS
    go.touch()
    assert start.wait() == DONE
    synchronise(device)
    assert request.answers() == PENDING
    assert BROKERS_FILE.read_text() == content
    assert get(device, "broker", 2).will_topic == "gone/SN9"


def test_changes_at_the_heels_of_a_start_wait_for_it(device):
    """A start that takes its time on the main thread, and a change that comes meanwhile."""
    plant(device)
    run_paused(device)
    # The serial number is asked once, by the first topic that holds it.
    go, asked = slow_serial_number(device)
    text = SUBSCRIPTIONS_FILE.read_text()
    SUBSCRIPTIONS_FILE.write_text(text.replace("plc/command/1", "plc/{PLC.SN}/1"))
    start = device.requests.send(START)
    wait_until(asked.exists, "the start to read the files")
    record = PublicationConfiguration("late", 0, 0, 0)
    change = device.requests.send(SET_PUBLICATION, 1, payload=record.encode())
    change.wait_begun()
    assert (start.status, change.status) == (IN_PROGRESS, IN_PROGRESS)
    go.touch()
    assert start.wait() == DONE
    assert change.wait() == NOT_PAUSED
    assert attributes_of(PUBLICATIONS_FILE, 1)["Topic"] == "plc/data/1"
    assert get(device, "publication", 1).topic == "plc/data/1"
