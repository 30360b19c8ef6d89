"""Requests on publications: sending one now, and switching a periodic one off and on."""

import signal
import time

import pytest

from support import configuration, csvlog, records
from support.configuration import broker, data_at, publication
from support.device import TEARDOWN_SECONDS, VERBOSE, died_of
from support.records import JSON
from support.requests import CONNECT, DONE, IS_PAUSED, NO_ROW, PAUSE, PUBLICATION_FAILED, SEND, SET_PUBLISH_STATE
from support.waiting import holds_for, wait_until

SEND_PAUSE = 0.59  # 0.6 s, as far as a clock that goes in steps of up to 10 ms can tell


def on_request(identifier, **attributes):
    return publication(identifier, PeriodicInterval=-1, **attributes)


def number(value):
    return value.to_bytes(4, "little")


def send_and_write_in_the_pause(device, identifier):
    """The tag goes from 1 to 2. None where the machine was too slow for it."""
    device.tags.write(data_at(identifier), number(1))
    request = device.requests.send(SEND, identifier)
    request.wait_begun()
    device.tags.write(data_at(identifier), number(2))
    written = time.time()
    request.wait()
    return request if written < request.writes()[0].time + SEND_PAUSE else None


def test_send_publishes_what_the_tag_holds_after_the_pause(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(1, PeriodicInterval=60000), on_request(2)])
    device.run()
    request = wait_until(lambda: send_and_write_in_the_pause(device, 2), "a write in time", timeout=30)
    assert request.answers() == DONE
    assert min(one.seconds() for one in device.requests.sent) >= SEND_PAUSE
    count = len(device.requests.sent)
    assert listener.wait_for("plc/data/2", count)[-1].payload == number(2)
    holds_for(lambda: len(listener.received) == count, "one message each", 0.3)
    # The statistics are written once, ahead of the answer.
    begin, end = (write.number for write in request.writes())
    counted = [write for write in device.tags.journal(configuration.STATISTICS_AT) if begin < write.number < end]
    assert [records.Statistics.decode(write.data).sent for write in counted] == [count]

    def takes_its_pause_only():
        request = device.requests.send(SEND, 2)
        assert request.wait() == DONE
        return SEND_PAUSE <= request.seconds() < SEND_PAUSE + 0.5

    wait_until(takes_its_pause_only, "a send that takes no longer than its pause", timeout=30)


def test_sends_are_one_pause_apart(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[on_request(1)])
    device.run()
    sent = [device.requests.send(SEND, 1) for _ in range(5)]
    assert [request.wait() for request in sent] == [DONE] * 5
    begins = [request.writes()[0].time for request in sent]
    gaps = [later - earlier for earlier, later in zip(begins, begins[1:])]
    assert min(gaps) >= SEND_PAUSE
    assert min(gaps) < 2 * SEND_PAUSE  # one pause, where the machine had time
    assert len(listener.wait_for("plc/data/1", 5)) == 5
    assert device.statistics().sent == 5


def test_sends_that_are_refused_are_answered_at_once(device, mosquitto):
    mosquitto()
    device.configure(publications=[publication(1, PeriodicInterval=60000), on_request(2)])
    device.run()
    refused = {SEND: {1: -8, 9999: -2, 65535: -2}, SET_PUBLISH_STATE: {2: -7, 9999: -2, 65535: -2}}
    for opcode, answers in refused.items():
        for identifier, answer in answers.items():

            def is_answered_at_once():
                request = device.requests.send(opcode, identifier)
                assert request.wait() == [2, answer], (opcode, identifier)
                return request.seconds() < SEND_PAUSE

            wait_until(is_answered_at_once, f"an answer at once to {opcode} of {identifier}")
    assert device.statistics().sent == 0
    assert device.tags.journal(configuration.STATISTICS_AT) == []


def test_paused_service_refuses_before_it_looks_at_the_publication(device):
    device.configure(brokers=[broker(AutoConnect=0)], publications=[publication(1), on_request(2)])
    device.run()
    assert device.requests.ask(PAUSE) == DONE
    sent = [device.requests.send(opcode, n) for opcode in (SEND, SET_PUBLISH_STATE) for n in (1, 2, 9999)]
    assert [request.wait() for request in sent] == [IS_PAUSED] * 6
    for alike in (sent[:3], sent[3:]):
        assert min(request.seconds() for request in alike) < SEND_PAUSE


def test_every_failure_of_a_send_has_one_code_and_is_not_counted(device, mosquitto, listen):
    listener = listen(mosquitto())
    too_big = {"DataType": records.UINT8, "Ent": 5001}
    reasons = [
        {"CBrokerID": 2},
        {"CBrokerID": 7},
        {"QOS": 3},
        {"PayloadFormat": 255},
        {"PayloadFormat": 99},
        too_big,
        too_big | {"PayloadFormat": JSON},
    ]
    device.configure(
        brokers=[broker(1), broker(2, AutoConnect=0)],
        publications=[on_request(number, **attributes) for number, attributes in enumerate(reasons, 1)],
    )
    device.run(*VERBOSE)
    for identifier, attributes in enumerate(reasons, 1):
        request = device.requests.send(SEND, identifier)
        assert request.wait() == PUBLICATION_FAILED, attributes
        assert request.seconds() >= SEND_PAUSE
    assert device.tags.journal(configuration.STATISTICS_AT) == []
    assert listener.received == []
    lines = csvlog.messages("DEBUG")
    assert lines.count("Error: SC_AC_ERROR_DATA_BIG_THAN_BUFF: -12") == len(reasons)


def test_periodic_publications_go_on_during_a_send(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(1, PeriodicInterval=20), on_request(2, QOS=2)])
    device.run(*VERBOSE)
    listener.wait_for("plc/data/1", 10)

    def go_on_meanwhile():
        request = device.requests.send(SEND, 2)
        assert request.wait() == DONE
        begin, end = (write.number for write in request.writes())
        counted = [write for write in device.tags.journal(configuration.STATISTICS_AT, begin) if write.number < end]
        # 30 are due. With the send alone there would be one.
        return len({records.Statistics.decode(write.data).sent for write in counted}) > 10

    wait_until(go_on_meanwhile, "publications in the pause of a send", timeout=30)
    listener.wait_for("plc/data/2")
    rows = csvlog.rows()
    threads = {
        number: {row.thread for row in rows if row.message.startswith(f"Publication 'publication{number}' Publish")}
        for number in (1, 2)
    }
    assert threads[2] == {row.thread for row in rows if row.message == f"reqId:{SEND}"}
    assert threads[1].isdisjoint(threads[2])


@pytest.mark.parametrize("on", [1, -1, 127, -128])
def test_publication_is_switched_off_and_on(device, mosquitto, listen, on):
    listener = listen(mosquitto())
    device.configure(publications=[publication(1, PeriodicInterval=50), publication(2, PeriodicInterval=50)])
    device.run()

    def marked(identifier):
        return [message for message in listener.on(f"plc/data/{identifier}") if message.payload == number(7)]

    listener.wait_for("plc/data/1")
    assert device.requests.ask(SET_PUBLISH_STATE, 1, state=0) == DONE
    for identifier in (1, 2):
        device.tags.write(data_at(identifier), number(7))  # so that it shows what was read from here on
    wait_until(lambda: len(marked(2)) >= 10, "ten of the other one")
    # What the main thread was in when the flag was set may still come.
    assert len(marked(1)) <= 1
    assert device.requests.ask(SET_PUBLISH_STATE, 1, state=0) == DONE
    assert device.requests.ask(SET_PUBLISH_STATE, 1, state=on) == DONE
    wait_until(lambda: len(marked(1)) >= 4, "three more")


def test_what_is_switched_off_is_not_counted_and_keeps_its_phase(device, mosquitto, listen):
    listener = listen(mosquitto())
    period = 1.0
    device.configure(publications=[publication(1, PeriodicInterval=int(period * 1000))])
    device.run()

    def switch(state):
        request = device.requests.send(SET_PUBLISH_STATE, 1, state=state)
        assert request.wait() == DONE
        return request.writes()

    def counted(since):
        return device.tags.journal(configuration.STATISTICS_AT, since)

    def comes_two_periods_later():
        """False where the machine was too slow to be off ahead of the next one, or to send the one behind it in time."""
        since = device.tags.writes_made()
        first = wait_until(lambda: counted(since), "a publication")[0]
        off = switch(0)[-1]
        wait_until(lambda: time.time() - first.time > 1.4 * period, "the time to pass")
        on = switch(1)[0]
        second = wait_until(lambda: counted(on.number), "the next publication")[0]
        silent = [write for write in counted(off.number) if write.number < on.number]
        assert len(silent) <= 1  # what the main thread was in when the flag was set may still come
        # Two periods behind the first one, not one behind the request; the timer may be off by a twentieth of each.
        return not silent and abs(second.time - first.time - 2 * period) < 0.25

    wait_until(comes_two_periods_later, "a publication in the phase of the one before", timeout=40)
    sent = device.statistics().sent
    wait_until(lambda: len(listener.received) >= sent, "all that was counted")
    assert len(listener.received) <= device.statistics().sent + 1


def test_publication_that_the_scheduler_has_no_row_for_can_not_be_switched(device):
    device.configure(
        brokers=[broker(AutoConnect=0)],
        publications=[publication(n, PeriodicInterval=60000) for n in range(1, 302)],
    )
    device.run(*VERBOSE)
    assert device.requests.ask(SET_PUBLISH_STATE, 300, state=1) == DONE
    assert device.requests.ask(SET_PUBLISH_STATE, 301, state=1) == NO_ROW
    assert csvlog.messages("DEBUG").count("Error: SC_AC_ERROR_CHANGE_STATE_FAILED: -13") == 1


def test_lines_of_each_request(device):
    device.configure(brokers=[broker(AutoConnect=0)])
    device.run(*VERBOSE)
    for opcode in (SEND, SET_PUBLISH_STATE):
        device.requests.ask(opcode, 65535)
    device.requests.ask(CONNECT, 9999)
    rows = [(row.function.rpartition("::")[2], row.message) for row in csvlog.rows()]
    for function in ("HandleSendAPeriodic", "HandleSetPublicationPublishState"):
        expected = [(function, "Enter function (ID=65535)"), (function, "End function (rtnstatus is -2)")]
        assert [row for row in rows if row[0] == function] == expected


def test_signal_in_the_pause_of_a_send(device, mosquitto):
    mosquitto()
    device.configure(publications=[on_request(1)])
    service = device.run()
    device.requests.send(SEND, 1).wait_begun()
    assert died_of(service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.tags.registrations() == {}
