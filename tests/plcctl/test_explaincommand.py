"""plcctl explain: what codes mean, where they stand, what to do."""

import pathlib
import re

import pytest

from exitstatus import DONE, USAGE

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
STATUS_CODES = REPOSITORY / "MQTTClientManager" / "Records" / "statuscodes.h"
PAGE = REPOSITORY / "docs" / "troubleshooting.md"

PLACES = {
    "StatusCodes": "request",
    "ProcessStatus": "process",
    "CBrokerStatusCodes": "broker",
    "PublicationStatusCodes": "publication",
    "SubscriptionStatusCodes": "subscription",
}


def declared_codes():
    """(name, number, place) of every enumerator of the service's codes."""
    for enumeration, body in re.findall(r"^enum (\w+) : int\n\{(.*?)^\}", STATUS_CODES.read_text(), re.M | re.S):
        for name, number in re.findall(r"(\w+) = (-?\d+)", body):
            yield name, int(number), PLACES[enumeration]


def test_every_code_of_the_service_is_explained(controller):
    result = controller.run("plcctl explain --json")
    assert (result.status, result.errors) == (DONE, "")
    explained = {(each["name"], each["code"], each["place"]) for each in result.objects if each["meaning"]}
    declared = set(declared_codes())
    assert len(declared) > 30
    assert declared - explained == set()


@pytest.mark.parametrize("code", ["-13", "243", "0xF3", "CB_CONNECTION_LOST"])
def test_a_code_is_found_by_number_by_byte_and_by_name(controller, code):
    result = controller.run(f"plcctl explain {code} --in broker")
    assert (result.status, result.errors) == (DONE, "")
    assert result.lines == [
        "-13 (byte 243, 0xF3), last result in a broker's status block",
        "    CB_CONNECTION_LOST: the connection was lost",
        "    what to do: wait for ConnectionInterval seconds; if it comes back again and again, look for a second "
        "client with the same ClientID",
    ]


def test_a_number_is_explained_for_every_place_where_it_may_stand(controller):
    result = controller.run("plcctl explain 0xF5 --json")
    assert result.status == DONE
    found = {each["place"]: each["name"] for each in result.objects}
    assert found == {
        "request": "SC_AC_ERROR_SUBSCRIPTION_FAILED",
        "broker": "CB_CONNECT_REFUSED",
        "subscription": "SSC_ERROR_NOT_CONNECTED",
        "publication": "PSC_ERROR_NOT_PUBLISHED",
    }
    assert {each["byte"] for each in result.objects} == {0xF5}


def test_refusals_of_a_broker_are_told_with_what_to_do(controller):
    result = controller.run("for code in 1 2 3 4 5; do plcctl explain $code --in broker; done")
    assert result.status == DONE
    assert result.text.count("refused by the broker") == 5
    assert result.text.count("what to do") == 5


def test_an_unknown_name_is_status_2_with_the_nearest(controller):
    result = controller.run("plcctl explain SC_AC_ERROR_PAUSE")
    assert (result.status, result.text) == (USAGE, "")
    assert "did you mean SC_AC_ERROR_PAUSED?" in result.errors


def test_the_page_lists_every_code_of_the_service_with_the_same_meaning(controller):
    result = controller.run("plcctl explain --json")
    page = PAGE.read_text(encoding="utf-8")
    own = [each for each in result.objects if each["name"] or each["place"] in ("broker", "library")]
    missing = [each for each in own if f"| {each['code']} | {each['meaning']} |" not in without_names(page)]
    assert missing == []


def without_names(page):
    """The table rows as "| code | meaning |", whatever stands between the two and behind them."""
    rows = re.findall(r"^\| (-?\d+) \|[^|]*\|[^|]*\| ([^|]+) \|", page, re.MULTILINE)
    return "".join(f"| {code} | {meaning} |\n" for code, meaning in rows)
