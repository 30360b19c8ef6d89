"""The manual pages, as they are shown."""

import gzip
import re
import subprocess

import pytest
from support import build

PLCCTL = build.DIRECTORY / "bin" / "plcctl"
OPTION = re.compile(r"^  (?:-\w,)?(--[\w-]+)", re.MULTILINE)
SUBCOMMANDS = re.compile(r"^Subcommands:\n((?:  .*\n)+)", re.MULTILINE)


def shown(file):
    """The page's text and the formatter's warnings, without hyphenation."""
    finished = subprocess.run(["man", "--warnings", "--no-hyphenation", "--no-justification", "-l", file],
                              check=True, capture_output=True, text=True,
                              env={"MANWIDTH": "200", "LC_ALL": "C.UTF-8", "PATH": "/usr/bin:/bin"})  # fmt: skip
    return re.sub(r".\x08", "", finished.stdout), finished.stderr


def help_of(*words):
    return subprocess.run([PLCCTL, *words, "--help"], check=True, capture_output=True, text=True).stdout


def commands(*words):
    """All of plcctl's commands, each as a list of words."""
    for block in SUBCOMMANDS.findall(help_of(*words)):
        for name in re.findall(r"^  (\S+)", block, re.MULTILINE):
            yield [*words, name]
            yield from commands(*words, name)


@pytest.fixture(scope="module")
def pages(tree):
    return sorted((tree / "usr/share/man").rglob("*.gz"))


@pytest.fixture(scope="module")
def page_of_plcctl(tree):
    return shown(tree / "usr/share/man/man1/plcctl.1.gz")[0]


def test_pages_have_no_mistakes(pages):
    assert {page.name for page in pages} >= {"plcctl.1.gz", "MQTTClientManager.8.gz"}
    assert [(page.name, shown(page)[1]) for page in pages if shown(page)[1]] == []


def test_pages_have_the_usual_sections(pages):
    for page in pages:
        text = gzip.decompress(page.read_bytes()).decode()
        for section in ("NAME", "DESCRIPTION", "SEE ALSO"):
            assert re.search(rf'^\.SH "?{section}"?$', text, re.MULTILINE), (page.name, section)


def test_each_command_and_option_of_plcctl_stands_in_its_page(page_of_plcctl):
    sections = re.split(r"^   (?=plcctl )", page_of_plcctl, flags=re.MULTILINE)
    found = list(commands())
    assert ["tag", "get"] in found
    for words in found:
        heading = f"plcctl {' '.join(words)} "
        (section,) = [text for text in sections if text.startswith(heading) and
                      text[len(heading)].isupper() | (text[len(heading)] == "[")]  # fmt: skip
        for option in OPTION.findall(help_of(*words)):
            assert option == "--help" or option in section, (words, option)


def test_examples_keep_their_lines(page_of_plcctl):
    assert "\n         plcctl tag get 2048 REAL\n" in page_of_plcctl


def test_exit_statuses_of_plcctl_stand_in_its_page(page_of_plcctl):
    statuses = re.findall(r"^  (\d+)  ", help_of(), re.MULTILINE)
    assert len(statuses) >= 4
    for status in statuses:
        assert re.search(rf"^ +{status}  ", page_of_plcctl, re.MULTILINE), status
