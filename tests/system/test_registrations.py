"""Which tags the controller is asked to keep in step, and in which packets."""

import pytest

from support import csvlog
from support.configuration import NO_ADDRESS, broker, publication, will
from support.device import VERBOSE
from support.records import NOTYPE, STR8, UINT8
from support.tags import Operand
from support.waiting import wait_until

LINK_BYTES = [Operand(1, 0, 44), Operand(1, 0, 47)]


def registered(device, publications=(), brokers=None):
    """The packets in order, each a list of entries."""
    device.configure(brokers=brokers or [broker(AutoConnect=0)], publications=list(publications))
    device.run(*VERBOSE)
    return list(device.tags.registrations().values())


def on_request(identifier, **attributes):
    return publication(identifier, PeriodicInterval=-1, **attributes)


def small_tags(count):
    return [on_request(n, DataAddr=0x1000 + 4 * n) for n in range(count)]


def test_link_bytes_alone_are_one_packet(device):
    assert registered(device) == [LINK_BYTES]
    assert csvlog.has_message("m_numOfRegistrations:1, END")


def test_every_publication_counts_and_wills_follow(device):
    packets = registered(
        device,
        [publication(1, DataAddr=500), on_request(2, DataAddr=400, DataType=f"{STR8}_9")],
        [broker(1, AutoConnect=0, **will(20, address=300)), broker(2, AutoConnect=0, **will(7, address=200))],
    )
    assert packets == [[Operand(4, 0, 500), Operand(10, 0, 400), Operand(21, 0, 300), Operand(8, 0, 200), *LINK_BYTES]]


def test_broker_without_a_will_address_adds_nothing(device):
    brokers = [broker(AutoConnect=0, **will(20, address=NO_ADDRESS))]
    assert registered(device, brokers=brokers) == [LINK_BYTES]


def test_first_length_of_an_address_wins(device):
    packets = registered(
        device,
        [on_request(1, DataAddr=500), on_request(2, DataAddr=500, DataType=UINT8, Ent=99), on_request(3, DataAddr=504)],
        [broker(AutoConnect=0, **will(20, address=504))],
    )
    assert packets == [[Operand(4, 0, 500), Operand(4, 0, 504), *LINK_BYTES]]


def test_link_bytes_are_added_without_a_look_for_doubles(device):
    assert registered(device, [on_request(1, DataAddr=44)]) == [[Operand(4, 0, 44), *LINK_BYTES]]


def test_one_entry_more_than_a_packet_holds_makes_two(device):
    packets = registered(device, small_tags(149))
    assert [len(packet) for packet in packets] == [150, 1]
    assert packets[1] == LINK_BYTES[1:]
    assert csvlog.has_message("m_numOfRegistrations:2, END")


def test_as_many_entries_as_a_packet_holds_make_one(device):
    assert [len(packet) for packet in registered(device, small_tags(148))] == [150]


def test_three_packets_in_order(device):
    packets = registered(device, small_tags(400))
    assert [len(packet) for packet in packets] == [150, 150, 102]
    addresses = [entry.address for packet in packets for entry in packet]
    assert addresses == [0x1000 + 4 * n for n in range(400)] + [44, 47]


def test_large_tag_takes_further_room_of_its_packet(device):
    packets = registered(device, [on_request(1000, DataAddr=0x8000, DataType=UINT8, Ent=2500), *small_tags(200)])
    assert [len(packet) for packet in packets] == [148, 55]
    assert packets[0][0] == Operand(2500, 0, 0x8000)
    assert csvlog.has_message("add:2 destSection:0, MAX_REG_PER_PACKET:150")


@pytest.mark.parametrize("size, entries", [(999, 150), (1000, 150), (1001, 149), (1999, 149), (2000, 148)])
def test_further_room_goes_by_whole_thousands_above_a_thousand(device, size, entries):
    packets = registered(device, [on_request(1000, DataAddr=0x8000, DataType=UINT8, Ent=size), *small_tags(200)])
    assert len(packets[0]) == entries


def test_room_of_several_large_tags_adds_up(device):
    large = [on_request(n, DataAddr=0x8000 * n, DataType=UINT8, Ent=5000) for n in range(1, 41)]
    packets = registered(device, large)
    assert sum(len(packet) for packet in packets) == 42
    # 6 slots a tag: the packet takes entries while the slots before the next one are at most 149.
    assert len(packets[0]) == 25


def test_lengths_are_cut_to_16_bits(device):
    packets = registered(
        device,
        [
            on_request(1, DataAddr=500, DataType=UINT8, Ent=70000),
            on_request(2, DataAddr=600, DataType=UINT8, Ent=65536),
            on_request(3, DataAddr=700, DataType=NOTYPE),
        ],
    )
    assert packets == [[Operand(4464, 0, 500), Operand(0, 0, 600), Operand(65535, 0, 700), *LINK_BYTES]]


def test_packet_line_tells_the_next_entry_and_the_bytes(device):
    registered(device, [on_request(1, DataType=UINT8, Ent=10)])
    (identifier,) = device.tags.registrations()
    assert csvlog.has_message(f"iOperand:3, Size:12, RegID:{identifier} END")
    assert csvlog.has_message("RegSync  destSection: 3")


def test_registration_precedes_the_first_connection(device, scripted):
    partner = scripted()
    partner.silent = True
    device.configure(publications=[publication()])
    device.start()
    wait_until(lambda: partner.connections, "the first attempt")
    assert len(device.tags.registrations()) == 1
