"""Configuration files that nobody would write in good faith: told in the log, quickly, and in bounded memory."""

import pytest

from support import build, configuration, csvlog
from support.configuration import broker, publication
from support.device import exit_status

FILES = {
    "MQTTClientConf.xml": (configuration.GENERAL_FILE, "ClientConf"),
    "Brokers.xml": (configuration.BROKERS_FILE, "BrokersConf"),
    "Publications.xml": (configuration.PUBLICATIONS_FILE, "PublicationsConf"),
}
MEMORY_LIMIT = 150e6
SECONDS_LIMIT = 5  # of processor time

BROKER_NUMBERS = (
    "EncryptionType",
    "Port",
    "KeepAlive",
    "ConnectionInterval",
    "LastWillAddr",
    "CleanSession",
    "BrokerAddr",
    "DataType",
)
PUBLICATION_NUMBERS = ("QOS", "RetainFlag", "DataAddr", "BrokerReceivedAddr", "Ent", "PayloadFormat")

ENTITY_BOMB = "".join(f'<!ENTITY e{n} "{f"&e{n - 1};" * 10}">' for n in range(1, 12))


def each_file(test):
    return pytest.mark.parametrize("name", FILES)(test)


def assert_refused(device, name, content):
    """The file ends the start as invalid content, quickly and without much memory."""
    device.configure()
    file, _ = FILES[name]
    file.write_bytes(content if isinstance(content, bytes) else content.encode())
    assert exit_status(device.run_to_its_end()) == 0
    assert device.service.processor_time < SECONDS_LIMIT * build.time_factor()
    assert csvlog.messages("ERROR")[0].startswith("invalid content due to ")
    assert device.service.peak_memory < MEMORY_LIMIT
    assert device.tags.writes_made() == 0


@each_file
@pytest.mark.parametrize("depth", [300, 30_000, 1_000_000])
def test_deep_nesting_is_refused(device, name, depth):
    _, root = FILES[name]
    assert_refused(device, name, f"<{root}>" + "<a>" * depth + "</a>" * depth + f"</{root}>")


@each_file
def test_deep_nesting_without_an_end_is_refused(device, name):
    assert_refused(device, name, "<a>" * 1_000_000)


def test_usual_nesting_is_accepted(device):
    device.configure(brokers=[broker(AutoConnect=0)])
    text = configuration.BROKERS_FILE.read_text()
    nested = "<a>" * 250 + "</a>" * 250
    configuration.BROKERS_FILE.write_text(text.replace("</BrokersConf>", nested + "</BrokersConf>"))
    device.run()


@each_file
def test_entities_that_multiply_are_refused(device, name):
    _, root = FILES[name]
    document = f'<!DOCTYPE {root} [<!ENTITY e0 "boom">{ENTITY_BOMB}]><{root} Version="&e11;">&e11;</{root}>'
    assert_refused(device, name, document)


@each_file
def test_entities_that_hold_themselves_are_refused(device, name):
    _, root = FILES[name]
    assert_refused(device, name, f'<!DOCTYPE {root} [<!ENTITY a "&b;"><!ENTITY b "&a;">]><{root}>&a;</{root}>')


@each_file
@pytest.mark.parametrize(
    "content",
    [b"", b"\0" * 1000, b"\xff" * 1000, bytes(range(256)) * 100, b"<", b"<a", b"<a b='",
     b"<?xml version='1.0'?>", b"text only", b"<a/><b/>", "<a></b>".encode("utf-16")],
    ids=["empty", "zeros", "ones", "bytes", "less", "name", "value", "declaration", "text", "two roots", "utf-16"],
)  # fmt: skip
def test_rubbish_is_refused(device, name, content):
    assert_refused(device, name, content)


@each_file
def test_file_that_ends_early_is_refused_wherever_it_ends(device, name):
    device.configure(publications=[publication(members=[], DataType=10)])
    file, _ = FILES[name]
    whole = file.read_bytes().rstrip()
    for end in range(1, len(whole), len(whole) // 5):
        file.write_bytes(whole[:end])
        assert exit_status(device.run_to_its_end()) == 0
        assert csvlog.messages("ERROR")[0].startswith("invalid content due to ")
        csvlog.FILE.unlink()
    assert device.tags.writes_made() == 0


@each_file
def test_external_entities_are_refused_and_not_fetched(device, name):
    secret = "/tmp/secret"
    with open(secret, "w", encoding="utf-8") as file:
        file.write("secret words")
    _, root = FILES[name]
    assert_refused(device, name, f'<!DOCTYPE {root} [<!ENTITY leak SYSTEM "file://{secret}">]><{root}>&leak;</{root}>')
    assert "secret words" not in str(csvlog.messages())


@each_file
def test_many_entities_are_refused_quickly(device, name):
    _, root = FILES[name]
    declarations = "".join(f'<!ENTITY e{n} "x">' for n in range(50_000))
    assert_refused(device, name, f"<!DOCTYPE {root} [{declarations}]><{root}/>")


@each_file
def test_a_deep_content_model_is_refused(device, name):
    _, root = FILES[name]
    assert_refused(device, name, f"<!DOCTYPE {root} [<!ELEMENT a {'(' * 200_000}b{')' * 200_000}>]><{root}/>")


@each_file
def test_millions_of_elements_are_refused(device, name):
    _, root = FILES[name]
    assert_refused(device, name, f"<{root}>" + "<a/>" * 3_000_000 + f"</{root}>")


def test_document_type_without_declarations_is_accepted(device):
    device.configure(brokers=[broker(AutoConnect=0)])
    text = configuration.BROKERS_FILE.read_text()
    configuration.BROKERS_FILE.write_text('<!DOCTYPE BrokersConf SYSTEM "[brokers].dtd">' + text)
    device.run()


def test_huge_values_are_taken_in_bounded_memory(device):
    megabyte = "n" * 1_000_000
    device.configure(
        brokers=[broker(AutoConnect=0, Name=megabyte, UserName=megabyte, Password=megabyte)],
        publications=[publication(Name=megabyte, Topic=megabyte)],
    )
    service = device.run()
    service.stop()
    assert service.peak_memory < MEMORY_LIMIT


def test_thousands_of_publications_are_taken(device):
    publications = [publication(n, PeriodicInterval=-1, DataAddr=4 * n) for n in range(1, 3001)]
    device.configure(brokers=[broker(AutoConnect=0)], publications=publications)
    service = device.run()
    assert device.general().publications == 3000
    assert len(device.tags.registrations()) == 21
    service.stop()
    assert service.peak_memory < MEMORY_LIMIT


def test_numbers_out_of_range_everywhere_do_no_harm(device):
    numbers = ["-1", "2147483648", "-2147483648", "99999999999999999999", "1e9", "0x7F", "", " "]
    brokers, publications = [], []
    for n, number in enumerate(numbers, 1):
        brokers.append(broker(n, AutoConnect=0) | dict.fromkeys(BROKER_NUMBERS, number))
        members = [configuration.member("0x" + number, number, "m", number)]
        changed = dict.fromkeys(PUBLICATION_NUMBERS, number) | {"DataType": f"10_{number}"}
        publications.append(publication(n, members, PeriodicInterval=-1) | changed)
    device.configure(brokers, publications, general=0x400)
    service = device.run()
    assert device.general().brokers == device.general().publications == len(numbers)
    service.stop()


def test_members_with_hostile_offsets_touch_nothing_outside(device, mosquitto, listen):
    listener = listen(mosquitto())
    members = {
        1: [configuration.member("0xFFFFFFFF", 6, "m")],
        2: [configuration.member("0x7FFFFFFC", 6, "m")],
        3: [configuration.member("0x80000000", 6, "m"), configuration.member("0x0", 6, "n")],
        4: [configuration.member("0x0", 9, "m")],
        5: [configuration.member("0x0", 99, "m"), configuration.member("0x4", -7, "n")],
    }
    publications = [publication(n, entry, DataType=10, PeriodicInterval=50) for n, entry in members.items()]
    device.configure(publications=[*publications, publication(6, PeriodicInterval=50)])
    device.run()
    listener.wait_for("plc/data/6", 10)
