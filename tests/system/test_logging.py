"""The rolling file and the console, as people and scripts read them."""

import contextlib
import re

from support import configuration, csvlog, records
from support.device import STANDARD_OUTPUT, VERBOSE
from support.waiting import wait_until

LONGEST_MESSAGE = 32000


def run_verbosely(device, **broker_attributes):
    device.configure(brokers=[configuration.broker(AutoConnect=0, **broker_attributes)])
    return device.run(*VERBOSE)


def creation_row():
    return next(row for row in csvlog.rows() if row.message.startswith("Broker '") and " creation done " in row.message)


def test_file_begins_with_the_mark_and_the_header(device):
    run_verbosely(device)
    header = b"sep=;\nDate;Time;Severity;TID;Process;Function;File;Line;Message\n"
    assert csvlog.FILE.read_bytes().startswith(b"\xef\xbb\xbf" + header)


def test_every_row_has_nine_columns(device):
    run_verbosely(device).stop()
    lines = csvlog.FILE.read_bytes().decode("utf-8-sig").splitlines()[2:]
    shape = re.compile(
        r'\d{4}/\d\d/\d\d;\d\d:\d\d:\d\d\.\d{3};(FATAL|ERROR|WARN|INFO|DEBUG|VERB);\d+;MQTTClientManager;'
        r'[\w:~]+;\w+\.cpp;\d+;"[^"]*"'
    )
    assert len(lines) > 10
    assert [line for line in lines if not shape.fullmatch(line)] == []


def test_row_names_thread_function_and_source(device):
    service = run_verbosely(device)
    row = next(row for row in csvlog.rows() if row.function == "MQTTClientManager::ManageTagsRegistration")
    assert row.thread == service.pid
    assert row.process == "MQTTClientManager"
    assert re.fullmatch(r"mqttclientmanager\w*\.cpp", row.file)
    assert row.line > 0


def test_clean_up_runs_on_a_thread_of_its_own(device):
    service = run_verbosely(device)
    service.stop()
    row = next(row for row in csvlog.rows() if row.message == "START (isInitDone? (1))")
    assert row.thread != service.pid
    assert row.function == "MQTTClientManager::Finalize"


def test_quotes_in_a_message_are_doubled(device):
    run_verbosely(device, Name='pl"an"t')
    assert b"\"Broker 'pl\"\"an\"\"t' with connection (" in csvlog.FILE.read_bytes()
    assert creation_row().message.startswith("Broker 'pl\"an\"t' with connection (")


def test_separators_and_line_feeds_stay_inside_the_quotes(device):
    run_verbosely(device, Name="a;b\nc")
    assert b"\"Broker 'a;b\nc' with connection (" in csvlog.FILE.read_bytes()


def test_text_in_the_log_is_utf8(device):
    run_verbosely(device, Name="Käse 漢字 😀")
    assert "'Käse 漢字 😀'".encode() in csvlog.FILE.read_bytes()


def test_percent_signs_in_names_are_not_expanded(device):
    run_verbosely(device, Name="%1%2%3")
    assert creation_row().message.startswith("Broker '%1%2%3' with connection (tcp://127.0.0.1:1883)")


def test_message_is_cut_at_its_longest(device):
    run_verbosely(device, Name="n" * (LONGEST_MESSAGE + 1000))
    row = next(row for row in csvlog.rows() if row.message.startswith("Broker 'nnn"))
    assert row.message == "Broker '" + "n" * (LONGEST_MESSAGE - len("Broker '")) + "..."


def test_message_of_exactly_the_longest_size_is_whole(device):
    # The line's other parts are taken from a run with a name of one character.
    run_verbosely(device, Name="n").stop()
    rest = len(creation_row().message) - 1
    csvlog.FILE.unlink()
    device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))
    run_verbosely(device, Name="n" * (LONGEST_MESSAGE - rest))
    row = next(row for row in csvlog.rows() if row.message.startswith("Broker 'nnn"))
    assert len(row.message) == LONGEST_MESSAGE
    assert row.message.endswith(")")


def test_broker_line_tells_name_connection_and_lengths(device):
    run_verbosely(device, Name="plant", ClientID="twelve chars")
    assert creation_row().message == (
        "Broker 'plant' with connection (tcp://127.0.0.1:1883), m_ClientID len (12) and connectionStr len (20)"
        " creation done with (0)"
    )


def test_existing_file_is_continued_without_a_second_header(device):
    run_verbosely(device).stop()
    first = csvlog.FILE.read_bytes()
    device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))
    run_verbosely(device)
    both = csvlog.FILE.read_bytes()
    assert both.startswith(first)
    assert len(both) > len(first)
    assert both.count(csvlog.HEADER) == 1


def test_full_file_is_moved_aside_and_two_files_are_kept(device):
    device.configure(publications=[configuration.publication(n, PeriodicInterval=1) for n in range(1, 101)])
    device.run(*VERBOSE)

    def rolled_file():
        with contextlib.suppress(FileNotFoundError):  # between two renames
            return csvlog.OLDER_FILE.stat().st_ino
        return None

    seen = {None}
    for _ in range(3):
        seen.add(wait_until(lambda: {rolled_file()} - seen, "the next file to be full", timeout=30).pop())
    device.service.stop()  # in order: a kill could come in the middle of a roll
    older = csvlog.OLDER_FILE.read_bytes()
    assert older.startswith(csvlog.BYTE_ORDER_MARK + csvlog.HEADER)
    assert csvlog.FILE.read_bytes().startswith(csvlog.BYTE_ORDER_MARK + csvlog.HEADER)
    # A file is closed by the first row that finds it above the limit.
    last_row = len(older) - older.rstrip(b"\n").rfind(b"\n") - 1
    assert csvlog.LARGEST_FILE - last_row < len(older) - last_row <= csvlog.LARGEST_FILE < len(older)
    assert sorted(file.name for file in csvlog.FILE.parent.glob("cStdErr*")) == ["cStdErr.1.csv", "cStdErr.csv"]


def test_console_shows_the_same_rows_in_its_own_layout(device):
    service = run_verbosely(device)
    service.stop()  # in order: a row goes to the file first
    shape = re.compile(
        r"(\d{4}-\d\d-\d\d) (\d\d:\d\d:\d\d\.\d{3}) (FATAL|ERROR|WARN |INFO |DEBUG|VERB ) "
        r"\[(\d+)\] \[([\w:~]+)@(\d+)\] (.*)"
    )
    lines = STANDARD_OUTPUT.read_text().splitlines()
    matches = [shape.fullmatch(line) for line in lines]
    assert len(lines) > 10
    assert [line for line, match in zip(lines, matches) if not match] == []
    on_console = [match.group(3, 4, 5, 6, 7) for match in matches]
    in_file = [
        (row.severity.ljust(5), str(row.thread), row.function, str(row.line), row.message) for row in csvlog.rows()
    ]
    assert sorted(on_console) == sorted(in_file)


def test_log_that_can_not_be_written_does_not_stop_the_service(device):
    csvlog.FILE.mkdir()
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    device.run(*VERBOSE)
    assert "FIRED" in STANDARD_OUTPUT.read_text()
