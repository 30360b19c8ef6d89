"""Periodic publications: what goes out, what doesn't, and what the application's tags have to do with it."""

import struct

import pytest

from support import build, configuration, csvlog, records
from support.configuration import broker, caller_xml, data_at, member, publication
from support.device import VERBOSE
from support.exchange import RAW_SIZES, assert_only_what_went_out_is_counted, payloads
from support.records import INT16, INT32, NOTYPE, STR8, STR16, STRUCT, UINT8, UINT16, UINT32
from support.waiting import holds_for, wait_until

LARGEST_PAYLOAD = 5000


def ends_with(result):
    return csvlog.has_message(f"END rtnValue={result}", severity="DEBUG")


MEMORY = bytes(range(1, 256))


def test_payload_is_the_tags_bytes(device, mosquitto, listen):
    cases = [{"DataType": data_type, "Ent": entries} for data_type, entries in RAW_SIZES]
    assert payloads(device, mosquitto, listen, MEMORY, *cases) == [MEMORY[:size] for size in RAW_SIZES.values()]


def test_struct_ends_with_its_last_member(device, mosquitto, listen):
    members = [member(0, INT32, "counter"), member(4, f"{STR8}_16", "label")]
    (sent,) = payloads(device, mosquitto, listen, MEMORY, {"DataType": STRUCT, "members": members})
    assert sent == MEMORY[:21]


def test_struct_whose_members_are_out_of_order_comes_out_short(device, mosquitto, listen):
    members = [member(8, INT32, "second"), member(0, INT16, "first", entries=3)]
    (sent,) = payloads(device, mosquitto, listen, MEMORY, {"DataType": STRUCT, "members": members})
    assert sent == MEMORY[:6]


def test_member_offset_is_hexadecimal_behind_two_characters(device, mosquitto, listen):
    offsets = {"0x10": 16, "10": 0, "0xff": 255, "x": 0, "": 0, "0xZZ": 0, "##7": 7, "0x-5": 0}
    cases = [{"DataType": STRUCT, "members": [member(text, UINT8, "byte")]} for text in offsets]
    sent = payloads(device, mosquitto, listen, bytes(512), *cases)
    assert [len(payload) for payload in sent] == [offset + 1 for offset in offsets.values()]


def test_members_of_another_type_are_ignored(device, mosquitto, listen):
    case = {"DataType": UINT16, "members": [member(40, UINT32, "x")]}
    assert payloads(device, mosquitto, listen, MEMORY, case) == [MEMORY[:2]]


def test_data_without_a_size_goes_out_empty(device, mosquitto, listen):
    cases = [
        {"DataType": NOTYPE},
        {"DataType": None},
        {"DataType": STR8},
        {"DataType": 13},
        {"DataType": -1},
        {"DataType": STRUCT, "members": []},
        {"DataType": STRUCT, "members": [member(0, STRUCT, "x")]},
        {"DataType": f"{STR16}_-20"},
        {"DataType": UINT32, "Ent": -3},
        {"DataType": UINT32, "Ent": 1073741824},
    ]
    assert payloads(device, mosquitto, listen, MEMORY, *cases) == [b""] * len(cases)


def test_every_payload_is_fresh(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(PeriodicInterval=20)])
    device.run()
    for value in (1, 70000, 0xFFFFFFFF):
        data = struct.pack("<I", value)
        device.tags.write(data_at(1), data)
        wait_until(lambda: listener.received and listener.received[-1].payload == data, f"the value {value}")


def test_retain_flag_and_quality_of_service_are_on_the_wire(device, scripted):
    partner = scripted()
    device.configure(
        publications=[
            publication(1, PeriodicInterval=30, QOS=0, RetainFlag=1),
            publication(2, PeriodicInterval=30, QOS=1),
            publication(3, PeriodicInterval=30, QOS=2, RetainFlag=7),
        ]
    )
    device.run()
    for number, qos, retain in ((1, 0, True), (2, 1, False), (3, 2, True)):
        wait_until(lambda: partner.on(f"plc/data/{number}"), f"publication {number}")
        sent = partner.on(f"plc/data/{number}")[0]
        assert (sent.qos, sent.retain) == (qos, retain)


def test_topics_are_utf8(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(Topic="halle/öfen/漢字", PeriodicInterval=50)])
    device.run()
    listener.wait_for("halle/öfen/漢字")


def test_largest_payload_is_published(device, mosquitto, listen):
    memory = bytes(n % 251 for n in range(LARGEST_PAYLOAD))
    case = {"DataType": UINT8, "Ent": LARGEST_PAYLOAD}
    assert payloads(device, mosquitto, listen, memory, case) == [memory]


def test_larger_payload_is_not_published(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(
        publications=[
            publication(1, DataType=UINT8, Ent=LARGEST_PAYLOAD + 1, PeriodicInterval=50),
            publication(2, DataType=UINT8, Ent=LARGEST_PAYLOAD, PeriodicInterval=50),
        ]
    )
    service = device.run(*VERBOSE)
    listener.wait_for("plc/data/2", 10)
    assert listener.on("plc/data/1") == []
    assert ends_with(records.PAYLOAD_TOO_BIG)
    service.stop()
    assert_only_what_went_out_is_counted(device, listener)


@pytest.mark.parametrize("attributes", [{"Ent": 65536}, {"Ent": 70000}, {"Ent": 536870911}], ids=str)
def test_huge_data_is_refused_quickly(device, mosquitto, listen, attributes):
    listener = listen(mosquitto())
    device.configure(
        publications=[
            publication(1, DataType=UINT32, PeriodicInterval=50, **attributes),
            publication(2, PeriodicInterval=50),
        ]
    )
    service = device.run(*VERBOSE)
    spent = service.processor_seconds()
    listener.wait_for("plc/data/2", 10)
    assert service.processor_seconds() - spent < build.time_factor()  # it was refused ten times meanwhile
    assert ends_with(records.PAYLOAD_TOO_BIG)
    assert listener.on("plc/data/1") == []
    service.stop()
    assert service.peak_memory < 200e6


def test_data_outside_tag_memory_goes_out_as_zeros(device, mosquitto, listen):
    case = {"DataAddr": 0x7000000, "DataType": f"{STR8}_9"}
    assert payloads(device, mosquitto, listen, MEMORY, case) == [bytes(10)]


def test_data_may_lie_in_the_operand_window(device, mosquitto, listen):
    device.tags.write(0x7F410000, b"operand!")
    case = {"DataAddr": 0x7F410000, "DataType": f"{STR8}_7"}
    assert payloads(device, mosquitto, listen, MEMORY, case) == [b"operand!"]


def test_unknown_formats_publish_nothing(device, mosquitto, listen):
    listener = listen(mosquitto())
    unknown = [publication(n, PayloadFormat=value) for n, value in enumerate([4, 255, -1, 1000], 2)]
    device.configure(publications=[*unknown, publication(1)])
    device.run(*VERBOSE)
    listener.wait_for("plc/data/1", 3)
    assert {message.topic for message in listener.received} == {"plc/data/1"}
    assert ends_with(records.NOT_PUBLISHED)


def test_missing_format_means_raw_bytes(device, mosquitto, listen):
    assert payloads(device, mosquitto, listen, MEMORY, {"PayloadFormat": None}) == [MEMORY[:4]]


def test_quality_of_service_out_of_range_is_refused_without_harm(device, mosquitto, listen):
    listener = listen(mosquitto())
    out_of_range = [publication(n, QOS=value) for n, value in enumerate([-1, 3, 4, 7, 2147483647], 2)]
    device.configure(publications=[*out_of_range, publication(1, QOS=1)])
    device.run(*VERBOSE)
    listener.wait_for("plc/data/1", 5)
    assert {message.topic for message in listener.received} == {"plc/data/1"}
    assert ends_with(-9)
    assert device.broker() == records.BrokerStatus(1, 0, 0)


def test_publication_on_request_is_not_published_by_the_clock(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(1, PeriodicInterval=-1), publication(2, PeriodicInterval=50)])
    device.run()
    listener.wait_for("plc/data/2", 20)
    assert listener.on("plc/data/1") == []


def test_nothing_is_kept_for_a_broker_that_is_away(device, mosquitto, listen):
    partner = mosquitto()
    partner.stop()
    device.configure(publications=[publication(PeriodicInterval=20, QOS=1)])
    device.run(*VERBOSE)
    wait_until(lambda: ends_with(records.NOT_PUBLISHED), "a publication to be lost")
    assert device.tags.journal(configuration.STATISTICS_AT) == []
    device.tags.write(data_at(1), b"new!")
    partner.start()
    listener = listen(partner)
    device.wait_connected()
    listener.wait_for("plc/data/1", 3)
    assert {message.payload for message in listener.received} == {b"new!"}


def test_each_publication_goes_to_its_own_broker(device, mosquitto, listen):
    listeners = [listen(mosquitto(port)) for port in (1883, 1884)]
    device.configure(
        brokers=[broker(1), broker(2, Port=1884)],
        publications=[publication(1, CBrokerID=2), publication(2, CBrokerID=1)],
    )
    device.run()
    listeners[0].wait_for("plc/data/2", 3)
    listeners[1].wait_for("plc/data/1", 3)
    assert [listeners[0].on("plc/data/1"), listeners[1].on("plc/data/2")] == [[], []]


def test_publication_without_a_broker_is_named_and_harms_nobody(device, mosquitto, listen):
    listener = listen(mosquitto())
    orphans = [publication(n, Name=f"orphan<{n}>", CBrokerID=text) for n, text in enumerate([99, None, "x"], 2)]
    device.configure(publications=[*orphans, publication(1, PeriodicInterval=50)])
    device.run(*VERBOSE)
    listener.wait_for("plc/data/1", 5)
    errors = csvlog.messages("ERROR")
    assert all(any(f"orphan<{n}>" in error for error in errors) for n in (2, 3, 4))
    assert ends_with(records.NOT_PUBLISHED)
    assert device.general().publications == 4
    assert {message.topic for message in listener.received} == {"plc/data/1"}


def test_success_is_logged_with_its_particulars(device, scripted):
    scripted()
    device.tags.write(data_at(1), b"abc\0xyz")
    device.configure(publications=[publication(DataType=f"{STR8}_6", Name="oven", Topic="%1/%2", QOS=1)])
    device.run(*VERBOSE)
    expected = (
        f"Publication 'oven' Publish Size=7  Address={data_at(1)}  Data=abc  Token=1  Topic=%1/%2"
        "  SIZEOF_PUBLISH_BUFFER=5000"
    )
    wait_until(lambda: csvlog.has_message("Publication 'oven'"), "a success")
    assert next(message for message in csvlog.messages() if "Publication 'oven'" in message).strip() == expected


def test_other_lines_of_a_publication(device, scripted):
    scripted()
    device.configure(publications=[publication()])
    service = device.run(*VERBOSE)
    wait_until(lambda: ends_with(0), "a success")
    rows = [row for row in csvlog.rows() if row.thread == service.pid]
    last = next(n for n, row in enumerate(rows) if row.message.endswith("END rtnValue=0"))
    assert rows[last - 3].message.strip() == "m_cBroker->IsConnected() is '1', bypass is '0'"
    assert rows[last - 2].message.strip() == f"Size=4  Address={data_at(1)}"
    assert rows[last].function == "Publisher::Publish"


def test_element_of_another_name_behind_the_first_is_a_publication_too(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure()
    inner = caller_xml(publication(1), "PublicationConf") + caller_xml(publication(2), "Anything")
    configuration.PUBLICATIONS_FILE.write_text(
        f"<PublicationsConf><Publications>{inner}</Publications></PublicationsConf>"
    )
    device.run()
    assert device.general().publications == 2
    listener.wait_for("plc/data/2")


def test_publication_file_with_another_top_element_holds_none(device):
    device.configure(brokers=[broker(AutoConnect=0)])
    configuration.PUBLICATIONS_FILE.write_text("<Other><Publications><PublicationConf/></Publications></Other>")
    device.run()
    assert device.general().publications == 0


@pytest.mark.parametrize("topic", ["", "plc/#", "plc/+/x", "t" * 65536], ids=["empty", "#", "+", "too long"])
def test_topic_that_the_broker_closes_for_does_not_end_the_service(device, mosquitto, topic):
    mosquitto()
    device.configure(brokers=[broker(ConnectionInterval=0)], publications=[publication(Topic=topic)])
    service = device.run()
    holds_for(lambda: not service.has_ended(), "the service", 2)


def test_three_hundred_publications_go_out(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(n, PeriodicInterval=200) for n in range(1, 301)])
    device.run()
    wait_until(lambda: len({message.topic for message in listener.received}) == 300, "all of them")
