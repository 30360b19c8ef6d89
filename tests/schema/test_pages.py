"""What is generated from the table of attributes is what the repository holds, and manual pages are sound."""

import subprocess

import pytest
from support import build
from support.build import REPOSITORY

PAGES = sorted((REPOSITORY / "packaging" / "man").glob("*.5"))
CONFIGPAGES = build.DIRECTORY / "bin" / "configpages"


def run(*command):
    return subprocess.run([*map(str, command)], capture_output=True, check=False, text=True)


def test_generated_files_are_what_the_table_gives():
    finished = run(CONFIGPAGES, "check", REPOSITORY)
    assert (finished.stdout, finished.stderr, finished.returncode) == ("", "", 0)


def test_a_file_that_was_edited_is_found_and_written_anew(tmp_path):
    for folder in ("docs", "schemas", "packaging/man"):
        (tmp_path / folder).mkdir(parents=True)
    for path in [*REPOSITORY.glob("docs/examples/*.xml"), REPOSITORY / "docs" / "configuration.md"]:
        copy = tmp_path / path.relative_to(REPOSITORY)
        copy.parent.mkdir(exist_ok=True)
        copy.write_bytes(path.read_bytes())
    document = tmp_path / "docs" / "configuration.md"
    document.write_text(document.read_text(encoding="utf-8").replace("| 1 to 65535 |", "| 1 to 6553 |"), encoding="utf-8")

    finished = run(CONFIGPAGES, "check", tmp_path)
    assert finished.returncode == 1
    assert "docs/configuration.md is not what the table gives\n" in finished.stdout

    assert run(CONFIGPAGES, "write", tmp_path).returncode == 0
    assert run(CONFIGPAGES, "check", tmp_path).returncode == 0
    assert document.read_bytes() == (REPOSITORY / "docs" / "configuration.md").read_bytes()


@pytest.mark.parametrize(
    "text", ["<!-- table Brokers.xml Broker -->\n<!-- end -->\n", "<!-- table Brokers.xml BrokerConf -->\n"]
)
def test_a_marker_that_names_nothing_or_has_no_end_is_an_error(text, tmp_path):
    (tmp_path / "docs" / "examples").mkdir(parents=True)
    for path in REPOSITORY.glob("docs/examples/*.xml"):
        (tmp_path / "docs" / "examples" / path.name).write_bytes(path.read_bytes())
    (tmp_path / "docs" / "configuration.md").write_text(text, encoding="utf-8")
    finished = run(CONFIGPAGES, "check", tmp_path)
    assert finished.returncode == 2
    assert "marker" in finished.stderr


def test_there_is_a_manual_page_for_each_file():
    assert {"Brokers.xml.5", "MQTTClientConf.xml.5", "Publications.xml.5", "Subscriptions.xml.5"} <= {
        page.name for page in PAGES
    }


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_a_manual_page_is_set_without_a_warning(page):
    finished = run("groff", "-ww", "-man", "-Tutf8", "-z", page)
    assert (finished.stderr, finished.returncode) == ("", 0)


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_a_manual_page_can_be_looked_up_by_its_name(page):
    finished = run("lexgrog", page)
    assert finished.returncode == 0
    assert f'"{page.stem} - ' in finished.stdout
