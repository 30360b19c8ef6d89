"""plcctl convert: what a payload becomes in a tag and a tag in a message, by the service's own code."""

import json

import pytest

from exitstatus import DONE, FAILED, NOTHING_TO_READ, USAGE


def convert(controller, arguments, **variables):
    result = controller.run(f"plcctl convert --json {arguments}", **variables)
    assert result.errors == "", result.errors
    return result.status, result.objects[0]


# Type, payload, bytes, value; None where the note is what matters.
PAYLOADS = [
    ("REAL", "21.5", "00 00 ac 41", 21.5),
    ("BOOL", "true", "01", True),
    ("INT16", "-2", "fe ff", -2),
    ("INT32[2]", "[1,2]", "01 00 00 00 02 00 00 00", [1, 2]),
    ("STR8:4", "ab", "61 62 00 00 00", "ab"),
    ("STR16:3", "Gö", "47 00 f6 00 00 00 00 00", "Gö"),
]


@pytest.mark.parametrize("tag, payload, data, value", PAYLOADS)
def test_a_payload_is_shown_as_bytes_and_value_without_a_note(controller, tag, payload, data, value):
    status, shown = convert(controller, "-- '" + tag + "' \"$PAYLOAD\"", PAYLOAD=payload)
    assert (status, shown["bytes"], shown["notes"]) == (DONE, data, [])
    assert (shown["values"][0]["value"], shown["values"][0]["notes"]) == (value, [])


# What surprises, what the service makes of it, and a part of the reason that is given.
SURPRISES = [
    ("INT8", "300", 44, "cut to the type's width"),
    ("INT32", "5000000000", 0, "what 32 bits don't hold becomes 0"),
    ("UINT16", "-1", 0, "takes no negative number"),
    ("INT16", "1.5", 0, "not written as a whole number"),
    ("INT16", '"7"', 0, "it is no number"),
    ("BOOL", "1", False, "only true"),
    ("REAL", "abc", 0.0, "it is no number"),
    ("INT8[3]", "[1,2]", [1, 2, 0], "the rest is 0"),
    ("INT8[2]", "[1,2,3]", [1, 2], "the rest is ignored"),
    ("INT8[2]", "[1,2", [0, 0], "no list"),
    ("INT8[2]", "[300,1]", [44, 1], "element 1: 300 became 44"),
    ("INT8[2]", "[[1],2]", [1, 2], "one long list"),
    ("STR16:2", "abc", "ab", "cut to 2 characters"),
    ("STR16:8", '"abc"', '"abc"', "quotes and escapes stay"),
    ("STR8:8", "Größe", "Größ", "use STR16"),
]


@pytest.mark.parametrize("tag, payload, value, reason", SURPRISES)
def test_what_may_surprise_is_shown_as_it_is_with_the_reason(controller, tag, payload, value, reason):
    status, shown = convert(controller, "-- '" + tag + "' \"$PAYLOAD\"", PAYLOAD=payload)
    assert status == DONE
    assert shown["values"][0]["value"] == value
    assert any(reason in note for note in shown["values"][0]["notes"]), shown


def test_a_raw_payload_is_taken_byte_by_byte_and_what_is_missing_is_0(controller):
    status, shown = convert(controller, "--format buffer UINT32 --hex 2c01")
    assert (status, shown["bytes"], shown["values"][0]["value"]) == (DONE, "2c 01 00 00", 300)
    assert "2 of the tag's 4 bytes" in shown["notes"][0]


def test_a_payload_comes_from_a_file_or_from_standard_input(controller):
    result = controller.run(
        "printf 21.5 > /tmp/payload; plcctl convert REAL --file /tmp/payload; printf 21.5 | plcctl convert REAL --file -"
    )
    assert (result.status, result.errors) == (DONE, "")
    assert result.lines == ["tag       REAL, 4 bytes", "bytes     00 00 ac 41", "value     21.5"] * 2


def test_a_zero_byte_ends_a_json_payload_with_a_note(controller):
    status, shown = convert(controller, "INT8 --hex 340035")
    assert (status, shown["values"][0]["value"]) == (DONE, 4)
    assert "a zero byte ends a JSON payload" in shown["notes"][0]


def test_a_tag_that_is_a_multiple_of_1020_bytes_loses_its_end_with_a_note(controller):
    status, shown = convert(controller, "--format buffer 'UINT8[2040]' --hex 01")
    assert (status, len(shown["bytes"].split())) == (DONE, 1020)
    assert any("multiple of 1020" in note for note in shown["notes"])


STRUCT = """<SubscriptionsConf Version="1.0"><Subscriptions>
<SubscriptionConf ID="3" Name="recipe" Topic="a" DataAddr="8192" DataType="10" Ent="0" PayloadFormat="1" SubAddr="9000">
<DataMembers>
<DataMember Off="0x0" DataType="8" DName="sugar" Ent="0"/>
<DataMember Off="0x4" DataType="3" DName="count" Ent="0"/>
<DataMember Off="0x5" DataType="11_3" DName="name" Ent="0"/>
<DataMember Off="0x9" DataType="4" DName="lanes" Ent="2"/>
</DataMembers></SubscriptionConf>
</Subscriptions></SubscriptionsConf>"""


@pytest.fixture
def recipe(controller):
    controller.write("Subscriptions.xml", STRUCT)
    return controller


def members(shown):
    return {each["name"]: (each["value"], " ".join(each["notes"])) for each in shown["values"]}


def test_a_configured_struct_is_shown_member_by_member(recipe):
    payload = '{"sugar":10.5,"count":7,"name":"abc","lanes":[1,-2]}'
    result = recipe.run('plcctl convert --subscription recipe "$PAYLOAD"', PAYLOAD=payload)
    assert (result.status, result.errors) == (DONE, "")
    assert result.lines == [
        "tag       subscription 'recipe', struct, 13 bytes",
        "bytes     00 00 28 41 07 61 62 63 00 01 00 fe ff",
        "  +0     REAL      'sugar' = 10.5",
        "  +4     UINT8     'count' = 7",
        "  +5     STR8:3    'name' = 'abc'",
        "  +9     INT16[2]  'lanes' = 1 -2",
    ]


def test_what_surprises_in_a_struct_is_told_at_its_member(recipe):
    payload = '{"count":2.5,"name":"abcdefgh","lanes":[1,null]}'
    _, shown = convert(recipe, '--subscription 3 "$PAYLOAD"', PAYLOAD=payload)
    found = members(shown)
    assert "no key 'sugar'" in found["sugar"][1]
    assert found["count"][0] == 3 and "rounded" in found["count"][1]
    assert "runs on into what lies behind it" in found["name"][1]
    assert "null takes no element" in found["lanes"][1]


def test_bad_json_for_a_struct_writes_nothing_and_leaves_minus_12(recipe):
    status, shown = convert(recipe, "--subscription recipe '{sugar:1}'")
    assert (status, shown["written"], shown["values"]) == (FAILED, False, [])
    assert shown["result"]["name"] == "SSC_ERROR_INVALID_JSON"


# Type, bytes, text.
TAGS = [
    ("REAL", "0000ac41", "21.5"),
    ("REAL", "0000807f", "inf"),
    ("BOOL", "02", "false"),
    ("INT16[2]", "0100feff", "[1,-2]"),
    ("STR16:3", "47006100", '"Ga"'),
]


@pytest.mark.parametrize("tag, data, text", TAGS)
def test_the_bytes_of_a_tag_are_shown_as_the_message_that_they_become(controller, tag, data, text):
    status, shown = convert(controller, f"--publish '{tag}' {data}")
    assert (status, shown["text"]) == (DONE, text)
    valid = True
    try:
        json.loads(text, parse_constant=lambda _: None)
    except ValueError:
        valid = False
    assert any("no valid JSON" in note for note in shown["notes"]) == (not valid)


def test_a_text_that_makes_the_message_invalid_json_is_told(controller):
    status, shown = convert(controller, "--publish STR8:4 61226200")
    assert (status, shown["text"]) == (DONE, '"a"b"')
    assert "no valid JSON" in shown["notes"][-1]


PUBLICATIONS = """<PublicationsConf Version="1.0"><Publications>
<PublicationConf ID="7" Name="level" Topic="a" DataAddr="3000" DataType="8" Ent="0" PayloadFormat="1"
BrokerReceivedAddr="4294967295"/>
<PublicationConf ID="8" Name="large" Topic="a" DataAddr="4000" DataType="3" Ent="6000" PayloadFormat="0"
BrokerReceivedAddr="4294967295"/></Publications></PublicationsConf>"""


def test_a_publication_is_shown_with_what_its_tag_holds_now_and_nothing_is_written(controller):
    controller.write("Publications.xml", PUBLICATIONS)
    result = controller.run(
        "plcctl tag set 3000 REAL 99.5; before=$(sha256sum /dev/shm/TagMemory)\n"
        "plcctl convert --publication level\n"
        '[ "$before" = "$(sha256sum /dev/shm/TagMemory)" ]'
    )
    assert (result.status, result.errors) == (DONE, "")
    assert "message   99.5" in result.lines


def test_a_publication_that_is_too_large_is_status_1(controller):
    controller.write("Publications.xml", PUBLICATIONS)
    result = controller.run("plcctl convert --publication 8 00")
    assert result.status == FAILED
    assert "larger than 5000 bytes" in result.text


def test_conversions_create_no_tag_memory(controller):
    result = controller.run("plcctl convert REAL 21.5 > /dev/null; ls -A /dev/shm")
    assert (result.status, result.text, result.errors) == (DONE, "", "")


@pytest.mark.parametrize(
    "arguments",
    ["", "REAL", "RAEL 1", "REAL 1 2", "STR16 abc", "--publish REAL", "--publish REAL xyz", "--hex REAL 0"]
    + ["--format text REAL 1", "--subscription a --publication b x"],
)
def test_wrong_arguments_are_status_2(controller, arguments):
    result = controller.run(f"plcctl convert {arguments}")
    assert (result.status, result.text) == (USAGE, "")
    assert result.errors


def test_an_unknown_subscription_is_status_2_with_those_that_are_there(recipe):
    result = recipe.run("plcctl convert --subscription cola 1")
    assert (result.status, result.text) == (USAGE, "")
    assert "there are 'recipe'" in result.errors


def test_a_file_that_the_service_refuses_is_status_3_with_the_reason(controller):
    controller.write("Subscriptions.xml", "<SubscriptionsConf>")
    result = controller.run("plcctl convert --subscription cola 1")
    assert (result.status, result.text) == (NOTHING_TO_READ, "")
    assert "is refused by the service: invalid content" in result.errors
