"""docs/brokers.md and the run that makes it: the page tells what is known, and a result that differs is found."""

import pathlib
import re
import subprocess
import sys

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY / "tests"))

from brokers import inside, page  # noqa: E402
from brokers.expected import FAILURES, NOT_OFFERED, REMARKS  # noqa: E402
from brokers.makes import MAKES  # noqa: E402


def known_column(make):
    """What a run of this broker gives as long as nothing has changed."""
    names = [name for name, _, _ in inside.cells() if page.plain(name) not in NOT_OFFERED[make]]
    known = FAILURES[make]
    return {name: known[page.plain(name)].told if page.plain(name) in known else inside.PASSED for name in names}


def test_page_shows_what_is_known(monkeypatch):
    shown = page.FILE.read_text(encoding="utf-8")
    titles = re.search(r"^\| Who comes in \| (.*) \|$", shown, re.MULTILINE).group(1).split(" | ")
    versions = dict(zip(MAKES, (title.rpartition(" ")[2] for title in titles)))
    monkeypatch.setattr(page, "version", versions.get)
    assert page.text({make: known_column(make) for make in MAKES}) == shown


@pytest.mark.parametrize("make", MAKES)
def test_known_results_are_no_difference(make):
    assert page.differences(make, known_column(make)) == []


@pytest.mark.parametrize(
    ("make", "cell", "result"),
    [
        ("mosquitto", "tcp/publish-1", "waited in vain"),
        ("mosquitto", "tcp/publish-1", None),
        ("rabbitmq", "tls/publish-2", inside.PASSED),
        ("rabbitmq", "tls/publish-2", "another failure"),
        ("mosquitto", "run", "the run ended with status 1"),
    ],
    ids=["no longer passes", "no result", "passes now", "fails otherwise", "run broke off"],
)
def test_result_that_is_not_the_known_one_is_a_difference(make, cell, result):
    column = known_column(make) | {cell: result}
    if result is None:
        del column[cell]
    assert len(page.differences(make, column)) == 1


def test_notes_belong_to_checks_that_there_are():
    names = {page.plain(name) for name, _, _ in inside.cells()}
    noted = [name for notes in (FAILURES, NOT_OFFERED, REMARKS) for make in MAKES for name in notes[make]]
    assert set(noted) <= names


def test_unknown_broker_is_a_wrong_call():
    command = [REPOSITORY / "scripts" / "brokers", "nonsense"]
    finished = subprocess.run(command, capture_output=True, text=True, check=False)
    assert finished.returncode == 2
    assert "there is no broker 'nonsense'; there are: mosquitto" in finished.stderr
