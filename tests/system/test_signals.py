"""How the service dies: of the signal that it got, with its teardown done."""

import ctypes
import os
import pathlib
import signal

import pytest

from support import build, configuration, csvlog, records
from support.device import CLOCK_SCRIPT, MAC_SCRIPT, STANDARD_ERROR, STANDARD_OUTPUT, TEARDOWN_SECONDS, VERBOSE, died_of
from support.requests import CONNECT, UNKNOWN_ID
from support.waiting import wait_until

TERMINATION_SIGNALS = [
    signal.SIGINT,
    signal.SIGQUIT,
    signal.SIGILL,
    signal.SIGABRT,
    signal.SIGFPE,
    signal.SIGALRM,
    signal.SIGTERM,
]

SCRIPT_STARTED = pathlib.Path("/tmp/script-started")
HANGING_SCRIPT = f"touch {SCRIPT_STARTED}; exec sleep 60"


def each_signal(test):
    return pytest.mark.parametrize("number", TERMINATION_SIGNALS, ids=lambda number: number.name)(test)


@each_signal
def test_idle_service_dies_of_the_signal_after_its_teardown(device, mosquitto, number):
    mosquitto()
    device.configure(publications=[configuration.publication(PeriodicInterval=-1)])
    service = device.run(*VERBOSE)
    assert len(device.tags.registrations()) == 1
    service.signal(number)
    assert died_of(service.wait(TEARDOWN_SECONDS)) == number
    assert device.tags.registrations() == {}
    messages = csvlog.messages()
    assert messages.index("START (isInitDone? (1))") < messages.index("END")


@each_signal
def test_service_at_full_load_dies_of_the_signal_after_its_teardown(device, mosquitto, number):
    mosquitto()
    device.configure(publications=[configuration.publication(n, PeriodicInterval=10) for n in range(1, 301)])
    service = device.run()
    wait_until(lambda: device.statistics().sent > 300, "publications to flow")
    service.signal(number)
    assert died_of(service.wait(TEARDOWN_SECONDS)) == number
    assert device.tags.registrations() == {}


@each_signal
def test_service_under_acknowledged_load_dies_of_the_signal(device, mosquitto, number):
    mosquitto()
    device.configure(
        publications=[
            configuration.publication(
                n, PeriodicInterval=10, QOS=n % 3, BrokerReceivedAddr=configuration.acknowledgement_at(n)
            )
            for n in range(1, 61)
        ]
    )
    service = device.run()
    wait_until(lambda: device.statistics().acknowledged > 60, "acknowledgements to flow")
    service.signal(number)
    assert died_of(service.wait(TEARDOWN_SECONDS)) == number


def test_every_registration_is_undone(device):
    device.configure(
        brokers=[configuration.broker(AutoConnect=0)],
        publications=[configuration.publication(n, PeriodicInterval=-1) for n in range(1, 401)],
    )
    service = device.run()
    assert len(device.tags.registrations()) == 3
    service.stop()
    assert device.tags.registrations() == {}


def test_second_signal_in_the_teardown_is_the_one_that_counts(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    begin = "START (isInitDone? (1))"

    def dies_of_the_second():
        """False also where the machine was too slow to send it within the teardown."""
        csvlog.FILE.unlink(missing_ok=True)
        device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))
        service = device.run(*VERBOSE)
        service.signal(signal.SIGTERM)
        wait_until(lambda: csvlog.has_message(begin), "the teardown to begin")
        service.signal(signal.SIGINT)
        ended_by = died_of(service.wait(TEARDOWN_SECONDS))
        assert csvlog.messages().count(begin) == 1
        return ended_by == signal.SIGINT

    wait_until(dies_of_the_second, "a death of the second signal", timeout=30)


def test_broken_pipe_signal_is_told_and_survived(device, mosquitto):
    mosquitto()
    device.configure(publications=[configuration.publication(PeriodicInterval=20)])
    service = device.run()
    service.signal(signal.SIGPIPE)
    line = "MQTT SIGPIPESignalHandler:Catch signal 13\n"
    wait_until(lambda: line in STANDARD_ERROR.read_text(), "the line on standard error")
    sent = device.statistics().sent
    wait_until(lambda: device.statistics().sent > sent + 10, "publications to go on")
    assert not service.has_ended()


def test_broken_pipe_signal_is_told_each_time(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    service = device.run()
    for count in (1, 2, 3):
        service.signal(signal.SIGPIPE)
        wait_until(lambda: STANDARD_ERROR.read_text().count("Catch signal 13\n") == count, f"line {count}")


def test_broken_pipe_on_the_request_thread_costs_no_request(device):
    """The queue's receive goes on behind the handler."""
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    service = device.run(*VERBOSE)
    assert device.requests.ask(CONNECT, 9999) == UNKNOWN_ID
    thread = next(row.thread for row in csvlog.rows() if row.message.startswith("reqId:"))
    assert ctypes.CDLL(None).tgkill(service.pid, thread, signal.SIGPIPE) == 0
    wait_until(lambda: "Catch signal 13\n" in STANDARD_ERROR.read_text(), "the line")
    assert device.requests.ask(CONNECT, 9999) == UNKNOWN_ID
    assert csvlog.messages("ERROR") == []


@pytest.mark.parametrize("words", [(), VERBOSE], ids=["plain", "verbose"])
def test_reader_of_the_output_that_goes_away_costs_nothing(device, words):
    """As with `MQTTClientManager 2>&1 | head`: the line about the broken pipe breaks the pipe as well."""
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    readers = {}
    for file in (STANDARD_OUTPUT, STANDARD_ERROR):
        os.mkfifo(file)
        readers[file] = os.open(file, os.O_RDONLY | os.O_NONBLOCK)
    service = device.run(*words)
    for file, reader in readers.items():
        os.close(reader)
        file.unlink()  # what reads it after the test would wait for ever
    device.requests.send(999)  # an error line, at any level of the log
    assert device.requests.ask(CONNECT, 9999) == UNKNOWN_ID
    service.signal(signal.SIGTERM)
    assert died_of(service.wait(TEARDOWN_SECONDS)) == signal.SIGTERM


DEFAULTS = [signal.SIGHUP, signal.SIGUSR1]
if not build.sanitizers():  # which handle these two themselves
    DEFAULTS += [signal.SIGSEGV, signal.SIGBUS]


@pytest.mark.parametrize("number", DEFAULTS, ids=lambda number: number.name)
def test_other_signals_keep_their_default(device, number):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    service = device.run(*VERBOSE)
    service.signal(number)
    assert died_of(service.wait(TEARDOWN_SECONDS)) == number
    assert not csvlog.has_message("isInitDone?")


def test_signal_while_the_files_are_read_kills_without_a_teardown(device):
    device.script(MAC_SCRIPT, HANGING_SCRIPT)
    device.configure(brokers=[configuration.broker(LastWillTopic="{PLC.MAC}")])
    service = device.start(*VERBOSE)
    wait_until(SCRIPT_STARTED.exists, "the script to run")
    service.signal(signal.SIGTERM)
    assert died_of(service.wait(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert not csvlog.has_message("isInitDone?")
    assert device.tags.writes_made() == 0


def test_signal_while_a_broker_keeps_the_start_waiting(device, scripted):
    broker = scripted()
    broker.silent = True
    device.configure()
    service = device.start()
    wait_until(lambda: broker.connections, "the attempt")
    service.signal(signal.SIGTERM)
    assert died_of(service.wait(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.status() == records.STARTING


def test_signal_while_the_clock_is_checked(device):
    device.script(CLOCK_SCRIPT, HANGING_SCRIPT)
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    service = device.start()
    wait_until(SCRIPT_STARTED.exists, "the script to run")
    service.signal(signal.SIGTERM)
    assert died_of(service.wait(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.status() == records.STARTING


def test_death_closes_the_connection_without_a_farewell(device, scripted):
    broker = scripted()
    device.configure(publications=[configuration.publication(PeriodicInterval=20)])
    service = device.run()
    wait_until(lambda: broker.publishes, "publications")
    assert died_of(service.stop()) == signal.SIGTERM
    wait_until(lambda: broker.closed == broker.connections, "the connection to end")
    assert broker.disconnects == 0


def test_nothing_is_published_behind_the_beginning_of_the_teardown(device, scripted):
    broker = scripted()
    device.configure(publications=[configuration.publication(n, PeriodicInterval=20) for n in range(1, 21)])
    service = device.run(*VERBOSE)
    wait_until(lambda: len(broker.publishes) > 200, "publications")
    service.signal(signal.SIGTERM)
    service.wait(TEARDOWN_SECONDS)
    end = next(row.moment for row in reversed(csvlog.rows()) if row.message == "END")
    # What the main thread had begun may still come out. All others are ahead of the second that the teardown takes.
    assert end - device.tags.journal(configuration.STATISTICS_AT)[-2].time > 0.95
    wait_until(lambda: broker.closed == broker.connections, "the connection to end")
    assert 0 <= len(broker.publishes) - device.statistics().sent <= 1
