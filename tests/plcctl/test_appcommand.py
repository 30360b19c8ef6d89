"""The control application's side of buffered subscriptions, with a stand-in of the service's side."""

import datetime
import itertools

import pytest
from exitstatus import DONE, NOTHING_TO_READ, USAGE

RECORD, DATA = 9000, 8192
BIT, FULL, STATE = RECORD + 2, RECORD + 3, RECORD + 520
OTHER_RECORD = 10000


@pytest.fixture
def buffering(plant):
    """A plant with two buffered subscriptions and one that isn't."""
    plant.write(
        "Subscriptions.xml",
        f"""<SubscriptionsConf Version="1.0"><Subscriptions>
        <SubscriptionConf ID="3" Name="orders" IsBuffered="1" DataAddr="{DATA}" DataType="6" SubAddr="{RECORD}"/>
        <SubscriptionConf ID="4" Name="recipes" IsBuffered="1" DataAddr="8300" DataType="10" SubAddr="{OTHER_RECORD}">
          <DataMembers><DataMember Off="0x0" DataType="5" DName="sugar"/>
          <DataMember Off="0x2" DataType="11_7" DName="name"/></DataMembers></SubscriptionConf>
        <SubscriptionConf ID="5" Name="plain" IsBuffered="0" DataAddr="8400" DataType="6" SubAddr="11000"/>
        </Subscriptions></SubscriptionsConf>""",
    )
    return plant


def set_byte(position, value):
    return f"plcctl tag set {position} UINT8 {value}\n"


def record_bytes(*pairs):
    return "".join(set_byte(position, value) for position, value in pairs)


def handed_over(plant, count, options):
    """The lines of the application while the stand-in hands over; the stand-in fails if the bit is cleared too early."""
    result = plant.run(
        f"plcctl link up; tagmemoryuser handover {RECORD} {DATA} {count} & service=$!\n"
        f"plcctl app orders --json --messages {count} {options} || exit 98\n"
        "wait $service || exit 97"
    )
    assert (result.status, result.errors) == (DONE, "")
    return result.objects


def seconds(line):
    return datetime.datetime.fromisoformat(line["time"].replace("Z", "+00:00")).timestamp()


@pytest.mark.parametrize("options", ["--delay 0", "--delay 30", "--delay 0 --every 700"])
def test_messages_are_taken_in_order_and_never_asked_for_while_one_is_handed_over(buffering, options):
    lines = handed_over(buffering, 4, options)
    states = [line["state"] for line in lines]
    assert states == ["waiting", "asked", "handingOver", "handedOver"] * 4
    assert [line["value"] for line in lines if line["state"] == "handedOver"] == [1, 2, 3, 4]
    assert {(line["id"], line["name"]) for line in lines} == {(3, "orders")}


def test_a_message_is_asked_for_after_the_delay(buffering):
    lines = handed_over(buffering, 2, "--delay 300")
    times = {state: [seconds(line) for line in lines if line["state"] == state] for state in ("waiting", "asked")}
    for waiting, asked in zip(times["waiting"], times["asked"]):
        assert asked - waiting >= 0.299


def test_messages_are_asked_for_at_most_once_in_the_given_time(buffering):
    lines = handed_over(buffering, 3, "--delay 0 --every 900")
    asked = [seconds(line) for line in lines if line["state"] == "asked"]
    assert len(asked) == 3
    for earlier, later in itertools.pairwise(asked):
        assert later - earlier >= 0.899


def test_only_the_received_bit_is_written(buffering):
    result = buffering.run(
        f"plcctl link up; tagmemoryuser handover {RECORD} {DATA} 2 & plcctl app --messages 2 > /dev/null & app=$!\n"
        "wait; echo $app; plcctl journal --json"
    )
    number, *writes = result.objects
    own = [(write["position"], write["size"], write["bytes"]) for write in writes if write["processId"] == number]
    assert own == [(BIT, 1, "00")] * 2


def test_nothing_is_cleared_while_the_state_says_handing_over(buffering):
    result = buffering.run(record_bytes((STATE, 1), (BIT, 1)) + f"plcctl app --for 1; plcctl tag get {BIT} UINT8")
    assert result.lines == ["1"]


def test_a_hand_over_that_began_before_the_application_is_known_from_the_journal(buffering):
    # What the record of a message that arrives in the middle shows is what a waiting one's shows.
    arrival = f"plcctl tag set {RECORD} BYTES 01000100{'00' * 516}02000000\n"
    result = buffering.run(set_byte(STATE, 1) + arrival + f"plcctl app --for 1; plcctl tag get {BIT} UINT8")
    assert result.lines == ["1"]
    result = buffering.run(
        set_byte(STATE, 1) + set_byte(STATE, 0) + arrival + "plcctl app --delay 0 > /tmp/lines & app=$!\n"
        + f"is_clear() {{ test $(plcctl tag get {BIT} UINT8) = 0; }}\nwait_for is_clear; kill $app; wait $app"
    )
    assert (result.status, result.errors) == (DONE, "")


def test_a_bit_that_an_arrival_sets_again_is_cleared_again_at_once_whatever_the_schedule_says(buffering):
    result = buffering.run(
        record_bytes((BIT, 1), (STATE, 2))
        + "plcctl app orders --delay 0 --every 100000 > /tmp/lines & app=$!\n"
        + f"is_clear() {{ test $(plcctl tag get {BIT} UINT8) = 0; }}\n"
        + f"wait_for is_clear; plcctl tag set {BIT} UINT8 1; wait_for is_clear; kill $app; wait $app; cat /tmp/lines"
    )
    assert (result.status, result.errors) == (DONE, "")
    assert [line.split(" ")[4] for line in result.lines] == ["waiting:", "asked"]


def test_each_state_is_a_line_for_people(buffering):
    script = (
        record_bytes((BIT, 1), (STATE, 2), (FULL, 1))
        + f"plcctl tag set {RECORD + 4} STR16 plant/orders\n"
        + "plcctl app orders --delay 0 --for 20 --messages 1 > /tmp/lines & app=$!\n"
        + "told() { grep -qs \"$1\" /tmp/lines; }\n"
        + "wait_for told 'asked for'\n"
        + record_bytes((STATE, 1), (FULL, 0))
        + "wait_for told 'has room'\n"
        + f"plcctl tag set {DATA} UINT32 77; "
        + set_byte(RECORD + 1, 244)
        + set_byte(STATE, 0)
        + "wait $app; status=$?; cat /tmp/lines; exit $status"
    )
    result = buffering.run(script)
    assert (result.status, result.errors) == (DONE, "")
    assert [line.split("  ", 1)[1] for line in result.lines] == [
        "'orders' queue full: what arrives now is lost",
        "'orders' waiting: a message is queued, the last one came on 'plant/orders'",
        "'orders' asked for: received bit cleared",
        "'orders' handing over: the tag is being written",
        "'orders' queue has room again",
        "'orders' handed over: 77; last result SSC_ERROR_INVALID_JSON (-12), "
        "a message was no valid JSON: the tag keeps its old data",
    ]


def test_all_buffered_subscriptions_are_served_and_no_other(buffering):
    waiting = "".join(
        record_bytes((record + 2, 1), (record + 520, 2)) for record in (RECORD, OTHER_RECORD, 11000)
    )
    result = buffering.run(
        waiting
        + "plcctl app --delay 0 --json > /tmp/lines & app=$!\n"
        + "is_clear() { test $(plcctl tag get $1 UINT8) = 0; }\n"
        + f"wait_for is_clear {RECORD + 2}; wait_for is_clear {OTHER_RECORD + 2}\n"
        + "kill $app; wait $app; cat /tmp/lines; plcctl tag get 11002 UINT8"
    )
    *lines, plain_bit = result.objects
    assert {line["name"] for line in lines if line["state"] == "asked"} == {"orders", "recipes"}
    assert plain_bit == 1


def test_a_struct_is_decoded_by_its_members(buffering):
    result = buffering.run(
        set_byte(OTHER_RECORD + 520, 1)
        + "plcctl tag set 8300 UINT16 12; plcctl tag set 8302 STR8 cola\n"
        + "plcctl app 4 --json --messages 1 --for 20 > /tmp/lines & app=$!\n"
        + f"again() {{ plcctl tag set {OTHER_RECORD + 520} UINT8 0; ! kill -0 $app 2> /dev/null; }}\n"
        + "wait_for again; cat /tmp/lines"
    )
    assert result.objects[-1]["value"] == {"sugar": 12, "name": "cola"}


@pytest.mark.parametrize(
    "script, status, text",
    [
        ("plcctl link up; plcctl app plain", USAGE, "subscription 5 'plain' isn't buffered"),
        ("plcctl link up; plcctl app 99", USAGE, "the configuration has no subscription 99"),
        ("plcctl link up; plcctl app Orders", USAGE, "there is no subscription 'Orders'; there are 3 'orders', 4 're"),
        ("plcctl link up; plcctl app --config /tmp", NOTHING_TO_READ, "has no buffered subscription"),
        ("plcctl app; status=$?; ls /dev/shm; exit $status", NOTHING_TO_READ, "no controller here"),
    ],
)
def test_what_cannot_be_played_is_refused_and_touches_nothing(buffering, script, status, text):
    result = buffering.run(script)
    assert (result.status, result.text) == (status, "")
    assert text in result.errors


def test_the_status_command_tells_buffered_subscriptions_apart(buffering):
    result = buffering.run(
        "plcctl link up; plcctl status; plcctl status --json; " + record_bytes((FULL, 1), (STATE, 2)) + "plcctl status"
    )
    first, second, third = result.lines[4:7]
    assert first.endswith("received bit 0; buffered, nothing waits")
    assert second.endswith("received bit 0; buffered, nothing waits")
    assert third.endswith("received bit 0")
    assert '"buffered":true' in result.lines[7] and '"buffered":false' in result.lines[7]
    assert result.lines[12].endswith("received bit 0; queue full; messages wait")
