"""docs/conformance.md against the tests: what it names exists, and no file of tests is left out."""

import functools
import pathlib
import re

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
PAGE = REPOSITORY / "docs" / "conformance.md"

TEST_FILES = ["tests/*/*_test.cpp", "tests/*/test_*.py", "tests/soak/*.py"]
# Parts of the soak runs that are no run of their own.
NOT_TESTS = {"tests/soak/__init__.py", "tests/soak/__main__.py", "tests/soak/report.py"}

# A file, and the tests in it: `tests/unit/x_test.cpp` `Suite.name` `Suite.other`
PROOF = re.compile(r"`(tests/[^`]+)`((?: `[^`]+`)*)")
CPP_TEST = re.compile(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)", re.MULTILINE)
PYTHON_TEST = re.compile(r"^def (test_\w+)\(", re.MULTILINE)


def rows():
    """(line number, behaviour, proof) of every table row."""
    for number, line in enumerate(PAGE.read_text(encoding="utf-8").splitlines(), 1):
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if line.startswith("|") and len(cells) == 2 and not set(cells[0]) <= set("-: ") and cells[0] != "Behaviour":
            yield number, *cells


def proofs():
    """(line number, file, names of tests) of all that the page names."""
    for number, _, proof in rows():
        for match in PROOF.finditer(proof):
            yield number, match.group(1), re.findall(r"`([^`]+)`", match.group(2))


@functools.cache
def names_in(file):
    text = (REPOSITORY / file).read_text(encoding="utf-8")
    return {".".join(pair) for pair in CPP_TEST.findall(text)} | set(PYTHON_TEST.findall(text))


def test_every_row_names_a_proof():
    assert list(rows())
    assert [(number, behaviour) for number, behaviour, proof in rows() if not PROOF.search(proof)] == []


def test_every_test_that_is_named_exists():
    missing = []
    for number, file, names in proofs():
        if not (REPOSITORY / file).is_file():
            missing.append(f"line {number}: {file}")
            continue
        missing += [f"line {number}: {file} {name}" for name in names if name not in names_in(file)]
    assert missing == []


def test_every_file_of_tests_is_named():
    there = {path.relative_to(REPOSITORY).as_posix() for pattern in TEST_FILES for path in REPOSITORY.glob(pattern)}
    named = {file for _, file, _ in proofs()}
    assert sorted(there - NOT_TESTS - named) == []


@pytest.mark.parametrize("text", ["TEST_P(Suite, name)\n", "TEST_F(Suite,\n       name)\n"])
def test_names_of_tests_are_found(text):
    assert CPP_TEST.findall(text) == [("Suite", "name")]
