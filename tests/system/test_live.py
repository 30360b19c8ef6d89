"""plcctl live in a real terminal multiplexer, beside the service: what stands on the screen."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess

import pytest

from support import configuration, csvlog, records
from support.configuration import broker, publication, subscription
from support.livescreen import PLCCTL, PROMPT, LiveScreen
from support.waiting import wait_until


@pytest.fixture
def screen(cleanup):
    """Opens terminals; takes the arguments of LiveScreen."""

    def start(*arguments, **options):
        return cleanup.enter_context(contextlib.closing(LiveScreen(*arguments, **options)))

    return start


def test_a_lost_broker_turns_on_the_screen_with_its_code_by_name(device, mosquitto, screen):
    server = mosquitto()
    device.configure(brokers=[broker(1, Name="plant", ConnectionInterval=6), broker(2, Name="cloud", AutoConnect=0)])
    device.run()
    device.wait_connected()
    view = screen()
    view.start()
    view.type("2")
    view.wait_for("1 plant", "connected", "CB_OK")
    view.wait_for("2 cloud", "not connected", "CB_OK")
    server.kill()
    view.wait_for("1 plant", "lost", "CB_CONNECTION_LOST")
    server.start()
    view.wait_for("1 plant", "connected", "CB_OK")


def test_an_arriving_message_shows_its_topic_its_age_and_its_value(device, mosquitto, send, screen):
    server = mosquitto()
    device.configure(subscriptions=[subscription(1, Name="setpoint", Topic="plc/+/speed", PayloadFormat=records.RAW)])
    device.run()
    device.wait_connected()
    view = screen(120, 40)
    view.start()
    view.type("4")
    view.wait_for("setpoint", "in force", "no message yet")
    send(server).publish("plc/a/speed", b"\x2a\x00\x00\x00")
    view.wait_for("setpoint", "in force", " s ", "plc/a/speed", "42")

    def age():
        found = re.search(r"(\d+(?:\.\d)?) s .*plc/a/speed", view.row("setpoint", "plc/a/speed"))
        return float(found[1]) if found else 0.0

    first = age()
    wait_until(lambda: age() > first + 0.5, view.text)  # it grows older


def test_acknowledgements_and_counters_get_their_rates(device, mosquitto, screen):
    mosquitto()
    device.configure(
        publications=[
            publication(1, Name="level", QOS=1, BrokerReceivedAddr=configuration.acknowledgement_at(1)),
            publication(2, Name="note", PeriodicInterval=-1),
        ]
    )
    device.tags.write(configuration.data_at(1), (77).to_bytes(4, "little"))
    device.run()
    view = screen()
    view.start()
    # Not at once: a busy machine sends what is due late, and then more in a moment.
    wait_until(lambda: 5 < float(view.wait_for("sent ", ".").split()[2]) < 12, lambda: "ten a second:\n" + view.text())
    view.wait_for("their periods make 10.0 per second")
    view.type("3")
    view.wait_for("1 level", "100 ms", "77")
    view.wait_for("2 note", "request", "-", "-", "-", "-", "0")


def test_a_verbose_service_tells_the_rate_of_each_publication(device, mosquitto, screen):
    mosquitto()
    device.configure(publications=[publication(1, Name="level")])
    device.run("-verbose", "true")
    device.wait_connected()
    view = screen()
    view.start()
    view.type("3")
    # sent/s, and no acknowledgements at QoS 0
    wait_until(
        lambda: (row := view.row("1 level", "100 ms").split()) and row[4][0].isdigit() and float(row[4]) > 3,
        lambda: f"a rate:\n{view.text()}",
    )
    assert view.row("1 level").split()[5] == "-"


def test_a_filter_leaves_the_rows_that_have_the_text(device, screen):
    names = ["speed", "level", "recipe"]
    device.configure(publications=[publication(at + 1, Name=name) for at, name in enumerate(names)])
    device.run()
    view = screen()
    view.start()
    view.type("3")
    view.wait_for("recipe")
    view.type("/LEV")
    view.wait_for("filter: LEV_")
    view.press("Enter")
    view.wait_without("recipe")
    assert view.row("2 level")
    view.press("Escape")
    view.wait_for("recipe")


def test_sorting_goes_by_the_value_of_a_column(device, screen):
    names = {1: "b", 2: "c", 10: "a"}
    device.configure(publications=[publication(number, Name=f"name-{name}") for number, name in names.items()])
    device.run()
    view = screen()
    view.start()
    view.type("3")

    def order():
        return [line.split()[1][-1] for line in view.lines() if "name-" in line]

    wait_until(lambda: order() == ["b", "c", "a"], view.text)
    view.type("s")
    view.wait_for("ID^")
    assert order() == ["b", "c", "a"]
    view.type("s")
    wait_until(lambda: order() == ["a", "b", "c"], view.text)
    view.type("r")
    wait_until(lambda: order() == ["c", "b", "a"], view.text)


def test_pause_holds_the_screen_until_it_is_pressed_again(device, mosquitto, screen):
    mosquitto()
    device.configure(publications=[publication(1)])
    device.run()
    device.wait_connected()
    view = screen()
    view.start()
    view.wait_for("sent ", ".")
    view.type("p")
    view.wait_for("PAUSED at")
    held = view.text()
    sent = device.statistics().sent
    wait_until(lambda: device.statistics().sent > sent + 10, "publications meanwhile")
    assert view.text() == held
    view.type("p")
    view.wait_without("PAUSED")
    wait_until(lambda: view.text() != held, "the screen to go on")


def test_the_answer_to_a_request_is_shown_by_its_name(device, mosquitto, screen):
    mosquitto()
    device.configure(
        brokers=[broker(1, Name="plant", AutoConnect=0)],
        publications=[publication(1, Name="note", PeriodicInterval=-1), publication(2, Name="level")],
    )
    device.run()
    view = screen()
    view.start()
    view.type("2c")
    view.wait_for("connect broker 1 'plant': SC_AC_OK (0), done (after")
    view.wait_for("1 plant", "connected")
    view.type("3n")
    view.wait_for("send publication 1 'note': SC_AC_OK (0)")
    view.press("Down")
    view.type("n")
    view.wait_for("send publication 2 'level': SC_AC_ERROR_NOT_APERIODIC (-8)")


def test_what_disturbs_a_plant_is_asked_for_and_only_y_sends_it(device, screen):
    device.configure()
    device.run()
    view = screen()
    view.start()
    view.type("P")
    view.wait_for("pause the service? y sends it")
    view.type("x")
    view.wait_for("nothing was sent")
    assert device.status() == records.RUNNING
    view.type("Py")
    view.wait_for("pause the service: SC_AC_OK (0), done")
    view.wait_for("plcctl live", "PS_PAUSED")


def test_a_request_without_a_queue_says_what_to_do(device, screen):
    device.configure()
    device.run()
    device.requests.close()
    pathlib.Path("/dev/mqueue/MQTTQueue").unlink(missing_ok=True)
    view = screen(120, 40)
    view.start()
    view.wait_for("request queue there is none")
    view.type("2c")
    view.wait_for("there is no /MQTTQueue")


def test_lines_of_the_log_are_shown_by_severity_over_its_rolling(device, screen):
    device.configure()
    device.run()
    view = screen()
    view.start()
    view.type("5")
    view.wait_for("INFO")

    def add(severity, message):
        with csvlog.FILE.open("a") as log:
            log.write(f'2024/05/06;07:08:09.012;{severity};1;MQTTClientManager;f;m.cpp;1;"{message}"\n')

    add("ERROR", "it failed")
    add("WARN", "take care \x1b[2J")
    view.wait_for("ERROR it failed")
    view.wait_for("WARN  take care \\x1b[2J")
    csvlog.FILE.rename(csvlog.OLDER_FILE)
    csvlog.FILE.write_bytes(csvlog.BYTE_ORDER_MARK + csvlog.HEADER)
    add("FATAL", "after the rolling")
    view.wait_for("FATAL after the rolling")
    view.type("vv")
    view.wait_for("5 Log", "ERROR and worse")
    view.wait_without("WARN  take care")
    assert view.row("ERROR it failed")


def test_a_service_is_waited_for_and_its_end_is_told(device, mosquitto, screen):
    mosquitto()
    device.configure(brokers=[broker(1, Name="plant")])
    view = screen()
    view.start()
    view.wait_for("no service has written here yet")
    service = device.run()
    view.wait_for("plcctl live", "PS_RUNNING")
    view.wait_for("1 plant", "connected")
    service.kill()
    view.wait_for(f"NOT RUNNING: process {service.pid} has ended")
    view.wait_for("1 plant", "(ended)")
    device.run()
    view.wait_for("plcctl live", "PS_RUNNING")


def test_a_missing_controller_is_told_and_waited_for(device, screen):
    device.configure(brokers=[broker(1, Name="plant")])
    memory = pathlib.Path("/dev/shm/TagMemory")
    aside = memory.with_name("aside")
    memory.rename(aside)
    view = screen()
    view.start()
    view.wait_for("no controller here: tag memory does not exist")
    assert not memory.exists()
    aside.rename(memory)
    view.wait_for("no service has written here yet")


def test_a_configuration_that_breaks_is_told_and_read_again_when_it_is_mended(device, screen):
    device.configure(brokers=[broker(1, Name="plant")])
    device.run()
    view = screen()
    view.start()
    view.wait_for("1 plant")
    configuration.BROKERS_FILE.write_text("<BrokersConf><Brokers><BrokerConf")
    view.wait_for("Brokers.xml: line 1")
    view.wait_without("1 plant")
    configuration.BROKERS_FILE.write_text(configuration.brokers_xml([broker(1, Name="pl\x85ant")]))
    view.wait_for("1 pl\\x85ant")
    assert not view.row("Brokers.xml: line")


def test_the_view_follows_the_size_of_the_terminal_both_ways(device, screen):
    device.configure(brokers=[broker(1, Name="plant")])
    device.run()
    view = screen()
    view.start()
    view.type("2")
    view.wait_for("1 plant")
    assert not view.row("127.0.0.1:1883")
    view.resize(120, 40)
    view.wait_for("1 plant", "127.0.0.1:1883")  # a column more
    wait_until(lambda: "q quit" in view.lines()[39], view.text)
    view.resize(50, 10)
    view.wait_for("too small: 64x12 at least")
    view.resize(80, 24)
    wait_until(lambda: "q quit" in view.lines()[23] and view.row("1 plant"), view.text)


def test_looking_writes_nothing(device, screen):
    device.configure(brokers=[broker(1, Name="plant")], publications=[publication(1)], subscriptions=[subscription(1)])
    device.tags.write(configuration.data_at(1), b"\x05\x00\x00\x00")
    view = screen()
    view.start()
    before = device.tags.writes_made()
    for key in "2345?":
        view.type(key)
    view.wait_for("which severities are shown")
    view.press("Escape")
    view.type("3")
    view.press("Enter")
    view.wait_for("publication 1 'publication1'")
    view.type("q")
    view.wait_for(PROMPT)
    assert device.tags.writes_made() == before


def test_without_unicode_and_without_colours_everything_is_plain_text(device, screen):
    device.configure(brokers=[broker(1, Name="Größe")])
    device.run()
    view = screen(locale="C", TERM="vt100", NO_COLOR="1")
    view.start()
    view.wait_for("1 Gr??e")
    assert view.text().isascii()


@pytest.mark.parametrize("end", ["q", "ctrl-c", signal.SIGTERM, signal.SIGHUP, signal.SIGSEGV])
def test_the_terminal_is_as_before_however_the_view_ends(device, screen, end):
    device.configure()
    view = screen()
    view.start()
    assert view.is_full_screen() and not view.has_cursor()
    if end == "q":
        view.type("q")
    elif end == "ctrl-c":
        view.press("C-c")
    else:
        os.kill(view.process(), end)
    wait_until(lambda: not view.is_full_screen() and view.has_cursor(), view.text)
    # The screen is there again a moment ahead of the modes; the shell prompts behind both.
    wait_until(lambda: sum(line.startswith(PROMPT) for line in view.lines()) >= 2, view.text)
    # What is typed is shown, and a line ends with Enter: the modes are those of before.
    view.type("stty -a; echo status was $((40 + 2))")
    view.press("Enter")
    view.wait_for("status was 42")
    assert view.row(" icanon") and view.row(" echo ") and view.row(" icrnl")


def test_after_a_stop_it_goes_on(device, screen):
    device.configure(brokers=[broker(1, Name="plant")])
    view = screen()
    view.start()
    view.press("C-z")
    wait_until(lambda: not view.is_full_screen() and view.has_cursor(), view.text)
    view.wait_for("Stopped")
    view.type("fg")
    view.press("Enter")
    view.wait_for("1 plant")
    view.type("2")
    view.wait_for("c connect  d disconnect")


def test_without_a_terminal_it_is_status_2_with_a_message(device):
    finished = subprocess.run(
        [str(PLCCTL), "live"], stdin=subprocess.DEVNULL, capture_output=True, check=False, timeout=30
    )
    assert (finished.returncode, finished.stdout) == (2, b"")
    assert b"the live view needs a terminal" in finished.stderr


def test_a_terminal_of_an_unknown_kind_is_status_2_with_a_message(device, screen):
    view = screen(200, 24)
    # The screen library keeps what it has when it refuses a terminal.
    view.type(f"ASAN_OPTIONS=detect_leaks=0 TERM=nobody-knows {PLCCTL} live; echo status $((1 + 1))-$?")
    view.press("Enter")
    view.wait_for("nothing is known of a terminal of the type 'nobody-knows'")
    view.wait_for("status 2-2")
