"""Topic variables: the controller's name, serial number and MAC text, and what takes the place of a missing one."""

import pathlib

import pytest

from support import csvlog
from support.configuration import broker, publication, will
from support.device import MAC_SCRIPT, SERIAL_SCRIPT, SETTINGS_FILE, client_library_calls
from support.requests import BROKER_FAILED, CONNECT, DONE, PAUSE, START
from support.waiting import wait_until

RUNS = pathlib.Path("/tmp/script-runs")


def expanded(device, *topics):
    """What the service makes of these topics: each is the will topic of a broker, as the client library gets it."""
    brokers = [broker(n, Port=9, ConnectionInterval=0, **will(1, topic)) for n, topic in enumerate(topics, 1)]
    device.configure(brokers=brokers)
    device.run(spy=True)
    return [call["options"]["will"]["topicName"] for call in client_library_calls("connect")]


def serial_script(device, output, count_runs=True):
    count = f'open("{RUNS}", "a").write("serial\\n")' if count_runs else ""
    device.script(SERIAL_SCRIPT, f"{count}\nimport sys\nsys.stdout.write({output!r})", interpreter="/usr/bin/python3")


def mac_script(device, body):
    device.script(MAC_SCRIPT, f'echo "mac $*" >> {RUNS}\n{body}')


def script_runs():
    return RUNS.read_text().splitlines() if RUNS.exists() else []


def test_all_three_variables_are_expanded(device):
    assert expanded(device, "a/{PLC.NAME}/{PLC.SN}/{PLC.MAC}/z") == ["a/press/SN123/02:00:00:00:00:01/z"]


def test_publication_topics_are_expanded(device, mosquitto, listen):
    listener = listen(mosquitto())
    device.configure(publications=[publication(Topic="{PLC.NAME}/{PLC.SN}")])
    device.run()
    listener.wait_for("press/SN123")


def test_topic_without_a_variable_touches_no_script(device):
    serial_script(device, "SN1")
    mac_script(device, "echo m")
    assert expanded(device, "plain", "{plc.sn}", "{PLC.SN", "{PLC.XX}") == ["plain", "{plc.sn}", "{PLC.SN", "{PLC.XX}"]
    assert script_runs() == []


def test_name_touches_no_script(device):
    serial_script(device, "SN1")
    mac_script(device, "echo m")
    assert expanded(device, "{PLC.NAME}") == ["press"]
    assert script_runs() == []


def test_each_script_runs_once_for_all_topics(device):
    serial_script(device, "SN1")
    mac_script(device, "echo m")
    assert expanded(device, "{PLC.SN}/{PLC.SN}", "{PLC.SN}{PLC.MAC}", "{PLC.MAC}") == ["SN1/SN1", "SN1m", "m"]
    assert sorted(script_runs()) == ["mac Get Ac", "serial"]


@pytest.mark.parametrize(
    "settings",
    [
        {"plcName": ""},
        {},
        {"PLCNAME": "x"},
        {"plcName": None},
        {"plcName": {"a": 1}},
        [{"plcName": "x"}],
        "",
        "{broken",
        "null",
    ],
    ids=str,
)
def test_serial_number_takes_the_place_of_a_missing_name(device, settings):
    device.settings(settings)
    assert expanded(device, "{PLC.NAME}/{PLC.NAME}") == ["SN123/SN123"]


def test_serial_number_takes_the_place_of_a_name_without_a_settings_file(device):
    SETTINGS_FILE.unlink()
    assert expanded(device, "{PLC.NAME}") == ["SN123"]


@pytest.mark.parametrize("value, text", [(17, "17"), (True, "true"), ("käse", "käse"), (" a b ", " a b ")])
def test_name_is_taken_as_text(device, value, text):
    device.settings({"other": 1, "plcName": value})
    assert expanded(device, "{PLC.NAME}") == [text]


def test_mac_text_takes_the_place_of_name_and_serial_number(device):
    device.settings({})
    serial_script(device, "")
    mac_script(device, "echo m")
    assert expanded(device, "{PLC.NAME}/{PLC.SN}", "{PLC.SN}") == ["m/m", "m"]
    # An empty answer is an answer: the script isn't asked again.
    assert script_runs().count("serial") == 1


def test_nothing_is_left_when_every_source_is_empty(device):
    device.settings({})
    serial_script(device, "\n")
    mac_script(device, "true")
    assert expanded(device, "a{PLC.NAME}{PLC.SN}{PLC.MAC}b") == ["ab"]


@pytest.mark.parametrize(
    "output, serial",
    [
        ("  SN \t 1 \n\n x  ", "SN 1 x"),
        ("A\0B", "A"),
        ("\n\nSN\n", "SN"),
        ("zürich", "zürich"),
        ("x" * 3000, "x" * 3000),
    ],
    ids=["white space", "zero byte", "line feeds", "umlaut", "long"],
)
def test_script_output_is_simplified(device, output, serial):
    serial_script(device, output)
    assert expanded(device, "{PLC.SN}") == [serial]


def test_zeros_mean_not_known_yet_and_are_asked_for_again(device):
    serial_script(device, "00000000000")
    assert expanded(device, "{PLC.SN}", "{PLC.SN}") == ["00000000000"] * 2
    assert script_runs() == ["serial", "serial"]


def test_exit_status_of_a_script_does_not_matter(device):
    mac_script(device, "echo m; exit 3")
    assert expanded(device, "{PLC.MAC}") == ["m"]


@pytest.mark.parametrize("how", ["missing", "not executable"])
def test_script_that_can_not_be_started_leaves_its_source_empty(device, how):
    if how == "missing":
        MAC_SCRIPT.unlink()
    else:
        MAC_SCRIPT.chmod(0o644)
    assert expanded(device, "a{PLC.MAC}b") == ["ab"]


def test_value_that_holds_another_variable_is_expanded_too(device):
    device.settings({"plcName": "n-{PLC.SN}"})
    serial_script(device, "s-{PLC.MAC}")
    assert expanded(device, "{PLC.NAME}") == ["n-s-02:00:00:00:00:01"]


@pytest.mark.parametrize("name", ["{PLC.NAME}", "x{PLC.NAME}", "{PLC.NAME}{PLC.NAME}"])
def test_value_that_holds_its_own_variable_comes_to_an_end(device, name):
    device.settings({"plcName": name})
    device.configure(brokers=[broker(AutoConnect=0, **will(1, "{PLC.NAME}"))])
    service = device.run()
    assert csvlog.messages("ERROR")
    service.stop()
    assert service.peak_memory < 200e6


@pytest.mark.timeout(90)
def test_hanging_script_is_given_up_and_the_next_source_is_asked(device):
    device.script(SERIAL_SCRIPT, "import time\ntime.sleep(300)", interpreter="/usr/bin/python3")
    device.configure(brokers=[broker(Port=9, ConnectionInterval=0, **will(1, "{PLC.SN}"))])
    device.start(spy=True)
    wait_until(lambda: client_library_calls("connect"), "the start to go on", timeout=40)
    assert client_library_calls("connect")[0]["options"]["will"]["topicName"] == "02:00:00:00:00:01"


def test_script_that_could_not_be_started_is_tried_again(device):
    """The serial number's script makes the other one executable."""
    mac_script(device, "echo m")
    MAC_SCRIPT.chmod(0o644)
    body = f"import os\nos.chmod({str(MAC_SCRIPT)!r}, 0o755)\nprint('SN1')"
    device.script(SERIAL_SCRIPT, body, interpreter="/usr/bin/python3")
    assert expanded(device, "a{PLC.MAC}b", "{PLC.SN}", "{PLC.MAC}") == ["ab", "SN1", "m"]


def test_name_is_read_at_each_start_and_the_serial_number_once_for_all(device):
    serial_script(device, "SN1")
    device.configure(brokers=[broker(Port=9, ConnectionInterval=0, **will(1, "{PLC.NAME}/{PLC.SN}"))])
    device.run(spy=True)
    device.settings({"plcName": "saw"})
    serial_script(device, "SN2")
    for request in (PAUSE, START):
        assert device.requests.ask(request) == DONE
    assert device.requests.ask(CONNECT, 1) == BROKER_FAILED
    topics = [call["options"]["will"]["topicName"] for call in client_library_calls("connect")]
    assert topics == ["press/SN1", "saw/SN1"]
