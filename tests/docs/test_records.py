"""The documents' tables of records and codes against the headers, as the program recordlayout prints them."""

import json
import os
import pathlib
import re
import subprocess

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
DIRECTORY = REPOSITORY / os.environ.get("BUILD_DIR", "build/release")
PAGES = {name: (REPOSITORY / "docs" / f"{name}.md").read_text(encoding="utf-8")
         for name in ("records", "requests", "subscriptions", "configuration")}  # fmt: skip

DESCRIBED_IN_RECORDS = ["MQTTGeneralStruct", "MQTTStatisticsStruct", "BrokerStatusBlock", "SubscriberStatusStruct"]


@pytest.fixture(scope="module")
def headers():
    finished = subprocess.run([DIRECTORY / "bin" / "recordlayout"], capture_output=True, check=True, text=True)
    return json.loads(finished.stdout)


def tables(page):
    """(heading, the text ahead of the table, its header, its rows) of every table."""
    heading, ahead, rows = "", "", []
    for line in [*PAGES[page].splitlines(), ""]:
        if line.startswith("|"):
            rows.append([cell.strip() for cell in line.strip("|").split("|")])
            continue
        if rows:
            yield heading, ahead, rows[0], rows[2:]
            rows, ahead = [], ""
        if line.startswith("#"):
            heading, ahead = line.lstrip("# "), ""
        ahead += line + "\n"


def table(page, header, mentioned=""):
    """The rows of the one table with this header, and with that text ahead of it or in its heading."""
    [found] = [rows for heading, ahead, head, rows in tables(page) if head == header and mentioned in heading + ahead]
    return found


def plain(cell):
    return cell.strip("`")


def fields_of(headers, record):
    return [tuple(field) for field in headers["records"][record]["fields"]]


def test_the_headers_leave_no_byte_out(headers):
    for name, record in headers["records"].items():
        end = 0
        for _, offset, size in record["fields"]:
            assert offset == end, name
            end += size
        assert end == record["size"], name


def test_the_overview_has_every_record_with_its_size(headers):
    rows = table("records", ["record", "size", "where", "who writes it"])
    named = {match.group(1): int(row[1]) for row in rows if (match := re.match(r"\[`(\w+)`\]", row[0]))}
    assert named == {name: record["size"] for name, record in headers["records"].items()}


@pytest.mark.parametrize("record", DESCRIBED_IN_RECORDS)
def test_every_field_stands_at_its_offset(headers, record):
    rows = table("records", ["offset", "size", "field", "type", "meaning"], f"`{record}`")
    assert [(plain(row[2]), int(row[0]), int(row[1])) for row in rows] == fields_of(headers, record)


def examples():
    return [(ahead, rows) for _, ahead, head, rows in tables("records") if head == ["offset", "bytes", "field", "value"]]


def record_of_example(ahead, rows, headers):
    """The record that the text names, or else the one whose fields these are."""
    for name in headers["records"]:
        if f"`{name}`" in ahead:
            return name
    names = [plain(row[2]) for row in rows]
    [name] = [name for name in headers["records"] if [field for field, _, _ in fields_of(headers, name)] == names]
    return name


def decoded(data, value):
    if len(data) > 4:
        return data.decode("utf-16-le")
    return str(int.from_bytes(data, "little", signed=value.startswith("-")))


@pytest.mark.parametrize("example", examples(), ids=lambda example: plain(example[1][0][2]) + " " + example[1][0][3])
def test_the_bytes_of_an_example_are_its_values(headers, example):
    ahead, rows = example
    fields = {name: (offset, size) for name, offset, size in fields_of(headers, record_of_example(ahead, rows, headers))}
    for offset, shown, field, value in rows:
        data = bytes.fromhex(plain(shown).removesuffix("..."))
        assert int(offset) == fields[plain(field)][0]
        if shown.endswith("...`"):
            assert data.endswith(bytes(2))
            data = data[:-2]
        else:
            assert len(data) == fields[plain(field)][1]
        assert decoded(data, value) == value


def test_every_record_has_an_example_but_one(headers):
    shown = {record_of_example(ahead, rows, headers) for ahead, rows in examples()}
    assert set(headers["records"]) - shown == {"SubscriptionConfigurationStruct"}


def codes_in(rows, has_byte):
    """{code: (name, meaning)}; where there is a column for the byte, it has to be the code's."""
    codes = {}
    for row in rows:
        if has_byte:
            assert int(row[0]) % 256 == int(row[1]), row
        codes[row[0]] = (plain(row[-2]) if len(row) == 3 + has_byte else "", row[-1])
    return codes


NAMED = ["code", "name", "meaning"]
WITH_BYTE = ["code", "byte", "name", "meaning"]


@pytest.mark.parametrize(
    "domain, heading, header, has_library_codes",
    [
        ("process", "Process status", NAMED, False),
        ("broker", "Results of brokers", WITH_BYTE, True),
        ("subscription", "Results of subscriptions", WITH_BYTE, True),
        ("publication", "Results of publications", NAMED, True),
    ],
)
def test_every_code_has_its_name_and_meaning(headers, domain, heading, header, has_library_codes):
    codes = {}
    if has_library_codes:
        codes |= codes_in(table("records", ["code", "byte", "meaning"]), True)
    codes |= codes_in(table("records", header, heading), header == WITH_BYTE)
    as_bytes = {code: tuple(texts) for code, texts in headers["codes"][domain].items() if int(code) < 128}
    assert codes == as_bytes


def test_opcodes_and_states_have_their_names(headers):
    opcodes = {row[0]: plain(row[1]) for row in table("records", ["opcode", "name", "request"])}
    assert opcodes == headers["opcodes"]
    states = {row[0]: plain(row[1]) for row in table("records", NAMED, "State of the hand-over")}
    assert states == headers["bufferedData"]


def test_places_that_never_change_are_the_headers_own(headers):
    assert f"`{headers['queue']}`" in PAGES["records"]
    first, second = headers["linkStates"]
    assert f"positions {first} and {second}" in PAGES["records"]


def test_types_have_their_numbers(headers):
    rows = table("configuration", ["number", "type", "size in bytes", "with `Ent` above 0"])
    named = {row[0]: "NOTYPE" if row[1] == "none" else row[1] for row in rows}
    assert {number: f"AT_{name}" for number, name in named.items()} == headers["types"]


# The other two pages have tables of their own.


def test_the_pages_on_requests_and_subscriptions_have_the_headers_offsets(headers):
    def places(rows):
        return [(int(row[0]), int(row[1])) for row in rows]

    def of_headers(record):
        return [(offset, size) for _, offset, size in fields_of(headers, record)]

    request = table("requests", ["offset", "size", "field", ""])
    assert places(request) == of_headers("MQTTRequestMsg")[:-1]
    assert places(table("requests", ["offset", "size", "field"])) == of_headers("MQTTStateRequestMsg")
    assert places(table("subscriptions", ["offset", "size", "field", ""], "524 bytes")) == of_headers(
        "SubscriberStatusStruct"
    )


def test_payloads_of_requests_are_as_long_as_their_records(headers):
    size = {name: record["size"] for name, record in headers["records"].items()}
    _, second_offset, second_size = fields_of(headers, "MQTTSecondPacketMsg")[-1]
    payload_offset = fields_of(headers, "MQTTRequestMsg")[-1][1]
    rows = {row[0]: (int(row[1]), int(row[2])) for row in table("requests", ["opcode", "offset", "size", "field"])}
    assert rows == {
        "7, 9, 11": (payload_offset, 4),
        "8": (payload_offset, headers["firstBrokerPacket"]),
        "10, 12": (payload_offset, size["PublicationConfigurationStruct"]),
        "16": (second_offset, second_size),
    }


def test_configuration_records_of_requests_have_the_headers_fields(headers):
    def fields(rows):
        found = []
        for place, size, _ in rows:
            match = re.match(r"(\d+)(?: (?:(\w+): )?`(\w+)`)?$", place)
            found.append((match.group(2) or "", match.group(3) or "Padding", int(match.group(1)), int(size)))
        return found

    broker = fields(table("requests", ["broker, 2012 bytes", "size", "in the file"]))
    assert [row[1:] for row in broker] == fields_of(headers, "CBrokerConfigurationStruct")
    callers = fields(table("requests", ["publication or subscription, 516 bytes", "size", "in the file"]))
    publication = [row[1:] for row in callers if row[0] != "subscription"]
    subscription = [row[1:] for row in callers if row[0] != "publication"]
    assert publication == fields_of(headers, "PublicationConfigurationStruct")[:-1]
    assert subscription == fields_of(headers, "SubscriptionConfigurationStruct")


def test_codes_of_requests_have_the_headers_names(headers):
    rows = table("requests", ["byte", "signed", "name", "meaning"])
    for byte, signed, name, _ in rows:
        assert int(signed) % 256 == int(byte)
        assert headers["codes"]["request"][signed][0] == plain(name)
    assert {row[1] for row in rows} == set(headers["codes"]["request"])
