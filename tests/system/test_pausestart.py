"""Pausing and starting: the states, what a broker sees, what comes back and what doesn't."""

import pathlib
import signal
import time

import pytest

from support import configuration, csvlog, records, scriptedbroker
from support.configuration import broker, data_at, publication, subscription, will
from support.device import CLOCK_SCRIPT, STANDARD_ERROR, TEARDOWN_SECONDS, VERBOSE, died_of
from support.records import PAUSED, RUNNING, STARTING, TIME_NOT_SET, BrokerStatus
from support.requests import (
    ALREADY_PAUSED,
    BROKER_FAILED,
    CLIENT_NOT_CREATED,
    CONNECT,
    DISCONNECT,
    DONE,
    FILES_UNUSABLE,
    IS_PAUSED,
    NOT_PAUSED,
    PAUSE,
    SET_PUBLISH_STATE,
    START,
    SUBSCRIBE,
    UNKNOWN_ID,
)
from support.waiting import holds_for, wait_until

REFUSED = BrokerStatus(0, 0, -1)
NOT_CONNECTED = BrokerStatus(0, 0, -12)

# What a busy machine may add.
LATENESS = 4.0


def on_request_only(identifier=1, **attributes):
    return broker(identifier, AutoConnect=0, **attributes)


def pause(device):
    assert device.requests.ask(PAUSE) == DONE


def start(device):
    assert device.requests.ask(START) == DONE


def pause_and_start(device):
    pause(device)
    start(device)


def seconds_until_more(wanted, count):
    begin, before = time.monotonic(), count()
    wait_until(lambda: count() >= before + wanted, lambda: f"{count() - before} of {wanted}", timeout=20)
    return time.monotonic() - begin


BUSY = "Broker 'broker1' is busy, give it a sec"


def busy_lines():
    return [row for row in csvlog.rows() if row.message == BUSY]


def test_every_state_and_request(device):
    device.configure(
        brokers=[on_request_only(1), on_request_only(2)],
        subscriptions=[subscription(1, SubscribeAtBoot=0)],
        publications=[publication(n, PeriodicInterval=-1) for n in (1, 2, 3)],
    )
    device.run(*VERBOSE)
    sent = [device.requests.send(opcode) for opcode in (START, PAUSE, PAUSE, START, START)]
    assert [request.wait() for request in sent] == [NOT_PAUSED, DONE, ALREADY_PAUSED, DONE, NOT_PAUSED]
    general = [records.General.decode(write.data) for write in device.tags.journal(configuration.GENERAL_AT)]
    assert general == [records.General(status, 2, 3, 1, 0) for status in (STARTING, RUNNING, PAUSED, RUNNING)]
    # The status is there before the request's answer tells of it.
    writes = device.tags.journal(configuration.GENERAL_AT)
    for request, write in ((sent[1], writes[2]), (sent[3], writes[3])):
        first, last = (answer.number for answer in request.writes())
        assert first < write.number < last

    def lines():
        return [(row.function.rpartition("::")[2], row.message) for row in csvlog.rows() if " function" in row.message]

    wait_until(lambda: len(lines()) >= 10, lambda: f"the last line, which follows the answer: {lines()}")
    results = {START: "HandleStartMQTT", PAUSE: "HandlePauseMQTT"}
    assert lines() == [
        line
        for opcode, result in ((START, -4), (PAUSE, 0), (PAUSE, -5), (START, 0), (START, -4))
        for line in [
            (results[opcode], "Enter function"),
            (results[opcode], f"End function (rtnstatus is {result})"),
        ]
    ]
    # A broker that wasn't connected doesn't stop the pause.
    assert device.broker_history(1)[2:4] == [NOT_CONNECTED, BrokerStatus(0, 0, 0)]
    assert device.stray_writes() == []


def test_pause_takes_leave_of_the_broker(device, scripted):
    partner = scripted()
    device.configure(
        brokers=[broker(**will(10))],
        subscriptions=[subscription(1), subscription(2, SubscribeAtBoot=0)],
        publications=[publication(PeriodicInterval=50)],
    )
    device.run(*VERBOSE)
    wait_until(lambda: partner.publishes, "publications")
    pause(device)
    wait_until(lambda: partner.closed == 1, "the end of the connection")
    assert partner.packets[-3:] == [scriptedbroker.UNSUBSCRIBE] * 2 + [scriptedbroker.DISCONNECT]
    assert [packet.topics for packet in partner.unsubscribes] == [["plc/command/1"], ["plc/command/2"]]
    assert device.broker() == BrokerStatus(0, 0, 0)
    assert device.subscription(1)[:2] == (0, 0)
    assert csvlog.has_message("Destory MQTTClient of 'broker1'", severity="DEBUG")
    sent = device.statistics().sent
    holds_for(lambda: device.statistics().sent == sent, "silence of the publications", 0.5)


def test_pause_sends_no_will(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(brokers=[broker(**will(10))], publications=[publication(PeriodicInterval=50)])
    device.run()
    listener.wait_for("plc/data/1")
    pause(device)
    holds_for(lambda: listener.on("plc/state") == [], "no will", 0.5)


def test_start_connects_and_subscribes_nothing(device, mosquitto, listen, send):
    partner = mosquitto()
    listener, sender = listen(partner, "plc/data/#"), send(partner)
    device.configure(publications=[publication(PeriodicInterval=50)], subscriptions=[subscription()])
    device.run()
    listener.wait_for("plc/data/1")
    registrations, made = device.tags.registrations(), device.tags.registrations_made()
    pause(device)
    wait_until(lambda: partner.logged("Client plc-1 disconnected"), "the broker to have read all")
    sender.publish("plc/data/mark")
    listener.wait_for("plc/data/mark")  # and with it, all that was sent before the pause
    quiet = len(listener.on("plc/data/1"))
    before = device.statistics()
    start(device)
    holds_for(lambda: device.broker() == BrokerStatus(0, 0, 0), "an unconnected broker", 2.5)
    assert len(listener.on("plc/data/1")) == quiet
    assert device.statistics() == before
    # What is asked for works on the new entities.
    assert device.requests.ask(CONNECT, 1) == DONE
    listener.wait_for("plc/data/1", quiet + 5)
    assert device.subscription().subscribed == 0
    sender.publish("plc/command/1", b"\1\0\0\0", qos=1)  # the broker has taken it
    assert device.requests.ask(SUBSCRIBE, 1) == DONE
    sender.publish("plc/command/1", b"\2\0\0\0")
    device.wait_received(b"\2\0\0\0", nudge=lambda: sender.publish("plc/command/1", b"\2\0\0\0"))
    assert len(device.data_writes()) == 1
    assert device.statistics().received == 1
    assert (device.tags.registrations(), device.tags.registrations_made()) == (registrations, made)


def test_records_are_cleared_by_a_start(device, mosquitto, send):
    partner = mosquitto()
    device.configure(subscriptions=[subscription()])
    device.run()
    send(partner).publish("plc/command/1", b"\1\0\0\0")
    device.wait_received(b"\1\0\0\0")
    pause(device)
    assert device.subscription().topic == "plc/command/1"
    start(device)
    assert device.tags.read(configuration.subscription_at(1), 524) == bytes(524)
    assert device.broker() == BrokerStatus(0, 0, 0)


def test_statistics_count_on_after_a_start(device, mosquitto):
    mosquitto()
    device.configure(publications=[publication(PeriodicInterval=50)])
    device.run()
    wait_until(lambda: device.statistics().sent >= 3, "publications")
    pause_and_start(device)
    sent = device.statistics().sent
    assert device.requests.ask(CONNECT, 1) == DONE
    wait_until(lambda: device.statistics().sent > sent + 2, "further publications")
    writes = device.tags.journal(configuration.STATISTICS_AT)
    assert [records.Statistics.decode(write.data).sent for write in writes] == list(range(1, len(writes) + 1))


def test_edited_files_take_effect(device, scripted):
    partner = scripted(1884)
    general_at, statistics_at = 0x600, 0x700
    device.configure(
        brokers=[on_request_only()], publications=[publication(1)], subscriptions=[subscription(1)]
    )
    device.run()
    device.tags.write(data_at(9), b"new!")
    registered = device.tags.registrations(), device.tags.registrations_made()
    pause(device)
    device.configure(
        brokers=[on_request_only(1, Port=1884, ClientID="other")],
        publications=[publication(1, PeriodicInterval=30, Topic="other/topic", DataAddr=data_at(9)), publication(2)],
        subscriptions=[],
        general=general_at,
        statistics=statistics_at,
    )
    start(device)
    assert device.requests.ask(CONNECT, 1) == DONE
    assert partner.connects[0].client_id == "other"
    wait_until(lambda: partner.on("other/topic"), "the new topic")
    wait_until(lambda: partner.on("plc/data/2"), "the new publication")
    assert partner.on("other/topic")[0].payload == b"new!"
    assert partner.on("plc/data/1") == []
    assert device.requests.ask(SUBSCRIBE, 1) == UNKNOWN_ID
    assert (device.tags.registrations(), device.tags.registrations_made()) == registered
    # The counts are those of the run-up; the addresses are the new ones.
    assert device.status() == PAUSED
    assert device.tags.general(general_at) == records.General(RUNNING, 1, 1, 1, 0)
    assert device.tags.statistics(statistics_at).sent > 0
    assert device.statistics().sent == 0


@pytest.mark.parametrize(
    "broken, line",
    [
        (configuration.PUBLICATIONS_FILE, ["ParseXMLFilePublications failed"]),
        (configuration.SUBSCRIPTIONS_FILE, ["ParseXMLFileSubscriptions failed"]),
        (configuration.BROKERS_FILE, ["ParseXMLFileBrokers failed"]),
        (configuration.GENERAL_FILE, []),
    ],
    ids=lambda value: value.stem if isinstance(value, pathlib.Path) else "",
)
def test_broken_file_keeps_the_pause_until_a_start_with_good_ones(device, scripted, broken, line):
    partner = scripted()
    device.configure(
        brokers=[on_request_only()], publications=[publication(1)], subscriptions=[subscription(1)]
    )
    device.run()
    pause(device)
    good = broken.read_text()
    broken.write_text("<half an element")
    assert device.requests.ask(START) == FILES_UNUSABLE
    assert [message for message in csvlog.messages("ERROR") if message.startswith("ParseXML")] == line
    assert device.requests.ask(CONNECT, 1) == IS_PAUSED
    assert device.status_history() == [STARTING, RUNNING, PAUSED]
    broken.write_text(good)
    start(device)
    assert device.requests.ask(CONNECT, 1) == DONE
    wait_until(lambda: partner.on("plc/data/1"), "publications")


def test_client_that_can_not_be_created_keeps_the_pause(device, scripted):
    scripted()
    device.configure(brokers=[on_request_only(1), on_request_only(2)])
    device.run(*VERBOSE)
    pause(device)
    # The library makes a directory of this name, and directory names end at 255 bytes.
    configuration.write([on_request_only(1), on_request_only(2, ClientID="x" * 256)])
    assert device.requests.ask(START) == CLIENT_NOT_CREATED
    assert csvlog.has_message("failed with status (-2)", severity="DEBUG")
    assert device.status_history() == [STARTING, RUNNING, PAUSED]
    assert device.requests.ask(CONNECT, 1) == IS_PAUSED
    configuration.write([on_request_only(1), on_request_only(2)])
    start(device)
    assert device.requests.ask(CONNECT, 1) == DONE


def test_start_with_no_broker_left(device):
    """Only the run-up takes that for a reason to end."""
    device.configure(brokers=[on_request_only()], publications=[publication(PeriodicInterval=20)])
    device.run()
    pause(device)
    device.configure(brokers=[])
    start(device)
    assert device.requests.ask(CONNECT, 1) == UNKNOWN_ID
    pause(device)
    device.configure(brokers=[on_request_only()])
    start(device)
    assert device.requests.ask(CONNECT, 1) == BROKER_FAILED


def test_retries_of_the_run_up_go_on_with_the_new_entities(device, scripted):
    """Rows: one that has succeeded, one that never will, one whose broker is gone and one that may not retry now."""
    fails_first, moves = scripted(1884), scripted(1885)
    device.tags.set_link(False, False)
    device.configure(brokers=[broker(1, Port=1884), broker(2, Port=9), broker(3, Port=9), broker(4, Port=9)])
    device.run()
    device.tags.set_link()
    device.wait_connected(1)
    assert len(fails_first.connects) == 1
    pause(device)
    device.configure(
        brokers=[broker(4, Port=9, ConnectionInterval=0), broker(2, Port=1885, Name="moved"), broker(1, Port=1884)]
    )
    writes = device.tags.writes_made()
    start(device)
    device.wait_connected(1)
    device.wait_connected(2)
    assert len(moves.connects) == 1
    # A row ends with the success; what is left of the others would show within an interval.
    blocks = [device.block_writes(number, since=writes) for number in (1, 2, 3, 4)]
    holds_for(
        lambda: blocks == [device.block_writes(number, since=writes) for number in (1, 2, 3, 4)], "no attempt", 1.5
    )
    cleared = {1: 2, 2: 2, 3: 1, 4: 2}
    assert [len(block) for block in blocks] == [cleared[1] + 1, cleared[2] + 1, cleared[3], cleared[4]]


def test_several_rounds_double_nothing(device, scripted):
    partner = scripted()
    device.configure(
        brokers=[broker(1, Port=1884), on_request_only(2)],
        publications=[publication(1, PeriodicInterval=200, CBrokerID=2)],
    )
    service = device.run()
    assert device.requests.ask(CONNECT, 2) == DONE
    open_files = service.open_files()
    for _ in range(3):
        pause_and_start(device)
        assert device.requests.ask(CONNECT, 2) == DONE
    # The other broker's attempts open one more now and then.
    wait_until(lambda: service.open_files() <= open_files, lambda: f"{service.open_files()} files to be {open_files}")
    # By how long so many take, which a slow machine only makes longer: rows that were bound twice would need 2 s each.
    assert seconds_until_more(20, lambda: len(partner.publishes)) > 2.7
    assert seconds_until_more(4, lambda: device.broker_history(1).count(REFUSED)) > 2.7


def test_publish_state_belongs_to_the_row_and_survives(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(n, PeriodicInterval=50) for n in (1, 2, 3)])
    device.run()
    assert device.requests.ask(SET_PUBLISH_STATE, 2, state=0) == DONE
    pause(device)
    # The second row is another publication's now.
    device.configure(publications=[publication(n, PeriodicInterval=50) for n in (2, 3, 1)])
    start(device)
    listener.received.clear()
    assert device.requests.ask(CONNECT, 1) == DONE
    for number in (1, 2):
        listener.wait_for(f"plc/data/{number}", 5)
    assert listener.on("plc/data/3") == []
    assert device.requests.ask(SET_PUBLISH_STATE, 3, state=1) == DONE
    listener.wait_for("plc/data/3")


def test_clock_is_not_checked_again(device):
    checks = pathlib.Path("/tmp/checks")
    device.script(CLOCK_SCRIPT, f"echo checked >> {checks}; echo 0")
    device.configure(brokers=[on_request_only()])
    device.run()
    assert device.requests.ask(START) == NOT_PAUSED
    pause_and_start(device)
    assert device.status_history() == [STARTING, TIME_NOT_SET, PAUSED, RUNNING]
    assert checks.read_text() == "checked\n"


def test_broken_pipe_signal_is_still_told_after_a_start(device, mosquitto):
    mosquitto()
    device.configure()
    service = device.run()
    pause_and_start(device)
    assert device.requests.ask(CONNECT, 1) == DONE
    service.signal(signal.SIGPIPE)
    line = "MQTT SIGPIPESignalHandler:Catch signal 13\n"
    wait_until(lambda: line in STANDARD_ERROR.read_text(), "the line on standard error")
    assert not service.has_ended()


def fall_silent(partner):
    """The next attempts to reconnect get no answer."""
    partner.silent = True
    partner.drop_all()


def let_go(partner):
    partner.hang_up, partner.silent = True, False
    partner.drop_all()


def test_pause_waits_for_a_broker_that_is_busy(device, scripted):
    partner = scripted()
    device.configure()
    device.run(*VERBOSE)
    fall_silent(partner)
    wait_until(lambda: partner.connections == 2, "the attempt to reconnect")
    request = device.requests.send(PAUSE)
    wait_until(lambda: len(busy_lines()) >= 3, "three passes")
    assert request.answers() == [2]
    assert device.status() == RUNNING
    let_go(partner)
    assert request.wait() == DONE
    moments = [write.time for write in request.writes()]
    # One second for each line, and the scheduler's; and what a busy machine adds.
    assert len(busy_lines()) + 1 <= moments[1] - moments[0] < len(busy_lines()) + 2 + LATENESS
    # The passes end with the first that finds nobody busy; one line may have been on its way.
    ended = "Done reconnecting, State is (2) broker 'broker1'"
    wait_until(lambda: csvlog.has_message(ended), "the end of the loop")
    lines = csvlog.messages("DEBUG")
    assert lines[lines.index(ended) :].count(BUSY) <= 1
    connections = partner.connections
    holds_for(lambda: partner.connections == connections, "no further attempt", 1.5)


def test_pause_does_not_wait_for_a_loop_that_sleeps(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(ConnectionInterval=30)])
    device.run(*VERBOSE)
    partner.drop_all()
    device.wait_code(records.CONNECTION_LOST)
    request = device.requests.send(PAUSE)
    assert request.wait(20) == DONE
    assert request.seconds() < 30  # the interval
    assert busy_lines() == []
    device.configure()  # losses are served after a second from now on
    start(device)
    # The loop of the loss before the pause wakes up meanwhile, and has nothing to do any more.
    wait_until(lambda: csvlog.has_message("Done reconnecting, State is (2) broker 'broker1'"), "the end of the loop")
    assert partner.connections == 1
    assert device.requests.ask(CONNECT, 1) == DONE
    # Losses are served again.
    partner.drop_all()
    wait_until(lambda: partner.connections == 3, "the reconnection")


def test_requests_that_run_during_a_long_pause_are_not_refused(device, scripted):
    partner = scripted()
    device.configure(brokers=[broker(1), on_request_only(2, Port=1884)])
    device.run(*VERBOSE)
    fall_silent(partner)
    wait_until(lambda: partner.connections == 2, "the attempt to reconnect")
    request = device.requests.send(PAUSE)
    wait_until(busy_lines, "the pause to wait")
    assert device.requests.ask(DISCONNECT, 2) == BROKER_FAILED
    assert request.answers() == [2]
    let_go(partner)
    assert request.wait() == DONE
    assert device.requests.ask(DISCONNECT, 2) == IS_PAUSED


@pytest.mark.parametrize("after_failed_start", [False, True], ids=["", "after a failed start"])
def test_signal_while_paused(device, mosquitto, after_failed_start):
    mosquitto()
    device.configure(publications=[publication(PeriodicInterval=20)], subscriptions=[subscription()])
    service = device.run()
    pause(device)
    if after_failed_start:
        configuration.PUBLICATIONS_FILE.unlink()
        assert device.requests.ask(START) == FILES_UNUSABLE
    assert died_of(service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.tags.registrations() == {}


def test_signal_while_a_pause_waits(device, scripted):
    partner = scripted()
    device.configure()
    service = device.run(*VERBOSE)
    fall_silent(partner)
    wait_until(lambda: partner.connections == 2, "the attempt to reconnect")
    device.requests.send(PAUSE).wait_begun()
    wait_until(busy_lines, "the pause to wait")
    assert died_of(service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.tags.registrations() == {}


@pytest.mark.parametrize("opcode", [PAUSE, START], ids=["pause", "start"])
def test_signal_in_the_middle_of_a_change_of_state(device, mosquitto, opcode):
    mosquitto()
    device.configure(publications=[publication(n, PeriodicInterval=20) for n in range(1, 51)])
    service = device.run()
    if opcode == START:
        pause(device)
    device.requests.send(opcode).wait_begun()
    assert died_of(service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.tags.registrations() == {}


def test_signal_right_after_a_start(device, mosquitto):
    mosquitto()
    device.configure(publications=[publication(n, PeriodicInterval=20) for n in range(1, 51)])
    service = device.run()
    pause_and_start(device)
    assert died_of(service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.tags.registrations() == {}
