"""Publications that start a script of the device: Protobuf messages, and operations that the control application asks
for."""

import os
import pathlib
import shutil
import signal

import pytest

from support import build, configuration, csvlog, records
from support.configuration import broker, data_at, publication
from support.device import TEARDOWN_SECONDS, VERBOSE, died_of, has_died
from support.requests import DONE, PUBLICATION_FAILED, SEND
from support.waiting import holds_for, wait_until

DIRECTORY = configuration.DIRECTORY / "Protobuf"
SAMPLES = build.REPOSITORY / "Platform/DeviceRoot/VEL/UserApps/Config/MQTT/Protobuf"

PROTOBUF_SCRIPT = DIRECTORY / "CreateProtobufBuffer.py"
PROTOBUF_RESULT = pathlib.Path("/VEL/System/Config/ProtobufForMQTT")
OPERATION_SCRIPT = DIRECTORY / "HandleMQTTTriggeredOp.sh"
OPERATION_RESULT = pathlib.Path("/tmp/HandleMQTTTriggeredOp_URL.txt")

LARGEST_PAYLOAD = 5000
LARGEST_WRITE = 65535
TAG_SIZE = 32

# The process ID of a script that hangs.
SCRIPT_PROCESS = pathlib.Path("/tmp/script.pid")
HANG = f"echo $$ > {SCRIPT_PROCESS}; exec sleep 300"
PYTHON_HANG = f"import os, time; open('{SCRIPT_PROCESS}', 'w').write(f'{{os.getpid()}}\\n'); time.sleep(300)"

# How the last line of a publication begins.
PROTOBUF_END, OPERATION_END = "END rtnValue=", "END, rtnValue="


def on_request(identifier=1, payload_format=records.TRIGGERED, **attributes):
    attributes = {"DataType": f"{records.STR8}_{TAG_SIZE - 1}", "PeriodicInterval": -1} | attributes
    return publication(identifier, PayloadFormat=payload_format, **attributes)


def protobuf(identifier=1, **attributes):
    return on_request(identifier, records.PROTOBUF, **attributes)


def write_text(device, text, identifier=1):
    device.tags.write(data_at(identifier), text.encode().ljust(TAG_SIZE, b"\0"))


def tag(device, size=TAG_SIZE):
    return device.tags.read(data_at(1), size)


def last_message(beginning):
    return [message for message in csvlog.messages("DEBUG") if message.startswith(beginning)][-1]


def assert_code(end, code):
    assert last_message(end) == f"{end}{code}"


@pytest.fixture
def scripts(device):
    DIRECTORY.mkdir(parents=True)

    def install(operation="echo 1", message=None):
        """`message` is the body of the Protobuf script, in Python, with "result" to write to."""
        device.script(OPERATION_SCRIPT, operation)
        header = f"import pathlib, sys\nresult = pathlib.Path('{PROTOBUF_RESULT}')\n"
        device.script(PROTOBUF_SCRIPT, header + (message or ""), interpreter="/usr/bin/python3")

    return install


def assert_dies_without_its_script(device):
    script = wait_until(lambda: SCRIPT_PROCESS.exists() and SCRIPT_PROCESS.read_text().strip(), "the script to run")
    assert died_of(device.service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.tags.registrations() == {}
    wait_until(lambda: has_died(script), "the end of the script")


# Operations.


class Steps:
    """A periodic publication whose script waits, and then does what it is told, once for each step."""

    BODY = pathlib.Path("/tmp/step")
    GO = pathlib.Path("/tmp/go")
    WAITING = pathlib.Path("/tmp/waiting")

    SHELL = f"touch {WAITING}; while [ ! -e {GO} ]; do sleep 0.01; done; rm {GO}; . {BODY}"
    PYTHON = f"""
import os, time
open("{WAITING}", "w").close()
while not os.path.exists("{GO}"):
    time.sleep(0.01)
os.unlink("{GO}")
exec(open("{BODY}").read())
"""

    def __init__(self, end):
        self._end = end
        wait_until(self.WAITING.exists, "the script to run")

    def run(self, body):
        """Returns the code of the publication."""
        self.BODY.write_text(body)
        self.WAITING.unlink()
        self.GO.touch()
        wait_until(self.WAITING.exists, f"the publication after the one with '{body}'")
        return int(last_message(self._end).removeprefix(self._end))


def start_offline(device, *publications):
    device.configure(brokers=[broker(AutoConnect=0)], publications=publications or [on_request()])
    device.run(*VERBOSE)


OUTPUTS = [
    # body of the script, text in the result file, code, text at the tag's beginning afterwards (None: as before)
    ("echo 1", None, 0, None),
    ("echo 1", "not looked at", 0, None),
    ("echo 0", "http://there", 0, b"http://there"),
    ("echo 0", None, -13, None),
    ("echo 10", "ten", 0, b"ten"),
    ("echo 10", None, -13, None),
    ("echo 'got 1 of 0'", "zero", 0, b"zero"),
    ("echo 0; exit 3", "three", 0, b"three"),
    ("echo 1; kill -9 $$", None, 0, None),
    ("echo failed", "not looked at", -13, None),
    ("true", None, -13, None),
    ("echo 1 >&2", None, -13, None),
    ("yes x | head -c 1000000; echo 1", None, 0, None),
]


def test_output_decides_on_the_result(device, scripts):
    scripts(Steps.SHELL)
    start_offline(device, on_request(PeriodicInterval=10))
    steps = Steps(OPERATION_END)
    for body, result, code, text in OUTPUTS:
        OPERATION_RESULT.unlink(missing_ok=True)
        if result is not None:
            OPERATION_RESULT.write_text(result)
        write_text(device, "argument of the operation")
        before = tag(device)
        counted = device.statistics().sent
        assert steps.run(body) == code, body
        # A text takes the place of the tag's beginning, and nothing ends it.
        assert tag(device) == (text + before[len(text) :] if text else before), body
        assert device.statistics().sent == counted + (1 if code == 0 else 0), body


def test_lines_of_an_operation(device, scripts):
    scripts("echo 0")
    OPERATION_RESULT.write_text("http://there")
    start_offline(device)
    write_text(device, "url report.csv")
    device.requests.ask(SEND, 1)
    OPERATION_RESULT.unlink()
    device.requests.ask(SEND, 1)
    scripts("echo failed")
    device.requests.ask(SEND, 1)
    rows = csvlog.rows()
    functions = {row.function.rpartition("::")[2] for row in rows if row.file == "publisher_scripts.cpp"}
    assert functions == {"triggerOperation", "writeOperationResult", "runTriggeredOperation"}
    command = f"{DIRECTORY}/HandleMQTTTriggeredOp.sh"
    begin = [
        "m_cBroker->IsConnected() is '0', bypass is '1'",
        f"Size={TAG_SIZE}  Address={data_at(1)}",
        "Set permissions of HandleMQTTTriggeredOp.sh",
    ]
    # The result has taken the argument's place in the tag.
    assert [row.message for row in rows if row.file in ("publisher.cpp", "publisher_scripts.cpp")] == [
        *begin,
        f"Runinig '{command} url report.csv'",
        "Script result is '0\n'",
        f"Write 'http://there' to '{data_at(1)}' size '12'",
        "END, rtnValue=0",
        *begin,
        f"Runinig '{command} http://theresv'",
        "Script result is '0\n'",
        "No URL file fail",
        "END, rtnValue=-13",
        *begin,
        f"Runinig '{command} http://theresv'",
        "Script result is 'failed\n'",
        "Script HandleMQTTTriggeredOp.sh faild",
        "END, rtnValue=-13",
    ]


ARGUMENTS = {
    b"": [],
    b"one": ["one"],
    b"url report.csv": ["url", "report.csv"],
    b'  a "b c"  ': ["a", "b c"],
    b"up to here\0not this": ["up", "to", "here"],
    b"no shell; $HOME `id` 'a": ["no", "shell;", "$HOME", "`id`", "'a"],
    "größe".encode(): ["größe"],
    b"x" * TAG_SIZE: ["x" * TAG_SIZE],
}


def test_arguments_are_the_words_of_the_tag(device, scripts):
    """An empty tag gives none, and the script runs all the same."""
    seen = pathlib.Path("/tmp/arguments")
    scripts(f'for word in "$#" "$@"; do printf "<%s>" "$word"; done >> {seen}; echo >> {seen}; echo 1')
    seen.touch()
    for identifier, text in enumerate(ARGUMENTS, 1):
        device.tags.write(data_at(identifier), text.ljust(TAG_SIZE, b"\0") + b"the next tag")
    start_offline(device, *(on_request(n, PeriodicInterval=100) for n in range(1, len(ARGUMENTS) + 1)))
    expected = {f"<{len(words)}>" + "".join(f"<{word}>" for word in words) for words in ARGUMENTS.values()}

    def lines():
        return set(seen.read_text().split("\n")[:-1])  # the last one may be in the making

    wait_until(lambda: lines() >= expected, lambda: f"all publications; there are {lines()}")
    assert lines() == expected


def test_operation_writes_its_result_before_it_is_counted_and_answered(device, scripts):
    scripts("echo 0")
    OPERATION_RESULT.write_text("http://there")
    start_offline(device)
    request = device.requests.send(SEND, 1)
    assert request.wait() == DONE
    begin, end = (write.number for write in request.writes())
    between = [(write.position, write.size) for write in device.tags.journal() if begin < write.number < end]
    assert between == [(data_at(1), 12), (configuration.STATISTICS_AT, records.Statistics.SIZE)]


RESULTS = {
    "empty": (lambda: OPERATION_RESULT.touch(), 0),
    "binary": (lambda: OPERATION_RESULT.write_bytes(bytes(range(256)) * 8), 2048),
    "as large as a write can be": (lambda: OPERATION_RESULT.write_bytes(b"b" * LARGEST_WRITE), LARGEST_WRITE),
    "larger": (lambda: OPERATION_RESULT.write_bytes(b"c" * (1 << 20)), LARGEST_WRITE),
    "unreadable": (lambda: OPERATION_RESULT.touch(mode=0), None),
    "directory": (lambda: OPERATION_RESULT.mkdir(), None),
    "pipe": (lambda: os.mkfifo(OPERATION_RESULT), None),
    "device": (lambda: OPERATION_RESULT.symlink_to("/dev/zero"), None),
}


def test_result_file_of_any_kind(device, scripts):
    scripts(Steps.SHELL)
    start_offline(device, on_request(PeriodicInterval=10))
    steps = Steps(OPERATION_END)
    for kind, (make, size) in RESULTS.items():
        make()
        before = len(device.tags.journal(data_at(1)))
        assert steps.run("echo 0") == (-13 if size is None else 0), kind
        assert [write.size for write in device.tags.journal(data_at(1))[before:]] == ([] if size is None else [size])
        if size:
            assert tag(device, size) == OPERATION_RESULT.read_bytes()[:size]
        OPERATION_RESULT.rmdir() if OPERATION_RESULT.is_dir() else OPERATION_RESULT.unlink()
    assert csvlog.messages("WARN") == ["publication 'publication1': the result of its operation is cut to 65535 bytes"]


def test_operation_runs_with_and_without_a_broker_and_sends_nothing(device, mosquitto, listen, scripts):
    scripts("echo 1")
    listener = listen(mosquitto())
    device.configure(
        brokers=[broker(1), broker(2, AutoConnect=0)],
        publications=[on_request(1), on_request(2, CBrokerID=2), on_request(3, CBrokerID=9), publication(4)],
    )
    device.run()
    for identifier in (1, 2, 3):
        assert device.requests.ask(SEND, identifier) == DONE
    listener.wait_for("plc/data/4", 3)
    assert {message.topic for message in listener.received} == {"plc/data/4"}


def test_script_is_made_executable(device, scripts):
    scripts("echo 1")
    OPERATION_SCRIPT.chmod(0o600)
    start_offline(device)
    assert device.requests.ask(SEND, 1) == DONE
    assert OPERATION_SCRIPT.stat().st_mode & 0o777 == 0o777


def test_script_that_is_missing_or_no_program_fails(device, scripts):
    start_offline(device)
    for spoil in (lambda: None, lambda: OPERATION_SCRIPT.write_text("no program")):
        spoil()
        assert device.requests.ask(SEND, 1) == PUBLICATION_FAILED
        assert_code(OPERATION_END, -13)


def test_signal_while_an_operation_hangs_on_the_request_thread(device, scripts):
    scripts(HANG)
    start_offline(device)
    device.requests.send(SEND, 1)
    assert_dies_without_its_script(device)


def test_interrupt_while_permissions_are_set_is_not_lost(device, scripts, monkeypatch):
    """The C library's system() has the whole process ignore this signal for as long as it runs."""
    scripts("echo 1")
    programs = pathlib.Path("/tmp/bin")
    programs.mkdir()
    device.script(programs / "chmod", HANG)
    monkeypatch.setenv("PATH", f"{programs}:{os.environ['PATH']}")
    start_offline(device, on_request(PeriodicInterval=50))
    wait_until(SCRIPT_PROCESS.exists, "the permissions to be set")
    device.service.signal(signal.SIGINT)
    assert died_of(device.service.wait(TEARDOWN_SECONDS)) == signal.SIGINT


# Protobuf messages.


def start_online(device, mosquitto, listen, *publications):
    listener = listen(mosquitto())
    PROTOBUF_RESULT.parent.mkdir(parents=True, exist_ok=True)
    device.configure(publications=publications or [protobuf()])
    device.run(*VERBOSE)
    return listener


def test_sample_script_publishes_the_description_that_the_tag_names(device, mosquitto, listen):
    shutil.copytree(SAMPLES, DIRECTORY)
    listener = start_online(device, mosquitto, listen, protobuf(QOS=1))
    write_text(device, "Batch.json")
    assert device.requests.ask(SEND, 1) == DONE
    number, label, temperature = "08 2a", "12 08" + b"lemonade".hex(), "19 00 00 00 00 00 00 21 40"
    assert listener.wait_for("plc/data/1")[0].payload == bytes.fromhex(number + label + temperature)
    assert csvlog.has_message(f"Protobuf file is '{DIRECTORY}/Batch.json'")
    write_text(device, "absent.json")
    assert device.requests.ask(SEND, 1) == PUBLICATION_FAILED
    assert_code(PROTOBUF_END, -11)
    wait_until(lambda: device.statistics().acknowledged == 1, "the acknowledgement")
    assert device.statistics().sent == 1


def test_sample_operation_hands_back_a_text(device):
    shutil.copytree(SAMPLES, DIRECTORY)
    start_offline(device, on_request(DataType=f"{records.STR8}_63"))
    device.tags.write(data_at(1), b"url report.csv".ljust(64, b"\0"))
    assert device.requests.ask(SEND, 1) == DONE
    assert tag(device, 64).partition(b"\0")[0] == b"http://controller/export/report.csv"
    device.tags.write(data_at(1), b"check\0")
    assert device.requests.ask(SEND, 1) == DONE
    device.tags.write(data_at(1), b"unknown\0")
    assert device.requests.ask(SEND, 1) == PUBLICATION_FAILED
    assert device.statistics().sent == 2


MESSAGES = [
    # body of the script, payload (None: nothing is published), code
    ("result.write_bytes(bytes(range(256)))", bytes(range(256)), 0),
    ("", bytes(range(256)), 0),  # the file of the run before
    ("result.write_bytes(b'')", b"", 0),
    ("result.write_bytes(b'x' * 5000)", b"x" * LARGEST_PAYLOAD, 0),
    ("result.write_bytes(b'y' * 5001)", None, -12),
    ("result.write_bytes(b'z' * 1000000)", None, -12),
    ("result.write_bytes(b'good'); sys.exit(1)", b"good", 0),
    ("import os; result.write_bytes(b'dying'); os.kill(os.getpid(), 9)", b"dying", 0),
    ("print('x' * 1000000); result.write_bytes(b'loud')", b"loud", 0),
    ("result.write_text(' '.join(sys.argv[1:]))", f"{DIRECTORY}/some name".encode(), 0),
    ("result.chmod(0)", None, -11),
    ("result.unlink()", None, -11),
    ("result.mkdir()", None, -11),
    ("import os; result.rmdir(); os.mkfifo(result)", None, -11),
    ("result.unlink(); result.symlink_to('/dev/zero')", None, -11),
    ("result.unlink(); result.write_bytes(b'and on')", b"and on", 0),
]


def test_file_of_the_script_is_the_message(device, mosquitto, listen, scripts):
    scripts(message=Steps.PYTHON)
    write_text(device, "some name")
    listener = start_online(device, mosquitto, listen, protobuf(PeriodicInterval=10))
    steps = Steps(PROTOBUF_END)
    expected = []
    for body, payload, code in MESSAGES:
        assert steps.run(body) == code, body
        expected += [payload] if code == 0 else []
        assert [message.payload for message in listener.wait_for("plc/data/1", len(expected))] == expected, body
        assert device.statistics().sent == len(expected)
    holds_for(lambda: len(listener.received) == len(expected), "nothing more", 0.3)


def test_missing_script_publishes_nothing_without_a_file(device, mosquitto, listen, scripts):
    listener = start_online(device, mosquitto, listen)
    assert device.requests.ask(SEND, 1) == PUBLICATION_FAILED
    assert_code(PROTOBUF_END, -11)
    assert listener.received == []


def test_protobuf_script_is_not_started_without_a_connection(device, scripts):
    scripts(message=f"pathlib.Path('{SCRIPT_PROCESS}').touch()")
    start_offline(device, protobuf())
    assert device.requests.ask(SEND, 1) == PUBLICATION_FAILED
    assert_code(PROTOBUF_END, -11)
    assert not SCRIPT_PROCESS.exists()


def test_publications_of_both_threads_never_take_one_anothers_message(device, mosquitto, listen, scripts):
    """All of them share the one result file."""
    body = "import time; name = sys.argv[1].rpartition('/')[2]; result.write_text(name); time.sleep(0.2)"
    scripts(message=body)
    PROTOBUF_RESULT.parent.mkdir(parents=True, exist_ok=True)
    listener = listen(mosquitto())
    device.configure(publications=[protobuf(1, PeriodicInterval=10), protobuf(2)])
    write_text(device, "periodic", 1)
    write_text(device, "asked-for", 2)
    device.run()
    listener.wait_for("plc/data/1")
    for _ in range(4):
        assert device.requests.ask(SEND, 2) == DONE
    listener.wait_for("plc/data/2", 4)
    assert {(message.topic, message.payload) for message in listener.received} == {
        ("plc/data/1", b"periodic"),
        ("plc/data/2", b"asked-for"),
    }


def test_signal_while_a_protobuf_script_hangs_on_the_main_thread(device, mosquitto, listen, scripts):
    scripts(message=PYTHON_HANG)
    start_online(device, mosquitto, listen, protobuf(PeriodicInterval=50))
    assert_dies_without_its_script(device)


def test_broker_that_acknowledges_nothing_holds_no_other_script_publication_up(device, scripted, scripts):
    """The turn of a script ends with its result file: the main thread doesn't wait for the other thread's broker."""
    healthy, stalled = scripted(1883), scripted(1884)
    stalled.acknowledge = False
    runs = pathlib.Path("/tmp/runs")
    scripts(message=f"open('{runs}', 'a').write(sys.argv[1]); result.write_text('x')")
    write_text(device, "asked-for", 2)
    PROTOBUF_RESULT.parent.mkdir(parents=True, exist_ok=True)
    periodic, asked_for = protobuf(1, PeriodicInterval=100), protobuf(2, CBrokerID=2, QOS=1)
    device.configure(brokers=[broker(1), broker(2, Port=1884)], publications=[periodic, asked_for])
    device.run(*VERBOSE)
    device.wait_connected(2)
    assert device.requests.ask(SEND, 2) == DONE
    request = device.requests.send(SEND, 2)  # waits for the acknowledgement of the one before, 20 s
    wait_until(lambda: runs.read_text().count("asked-for") == 2, "the script to run for the request")
    came = len(healthy.publishes)
    # One may have been under way.
    wait_until(lambda: len(healthy.publishes) >= came + 2, "messages to the healthy broker", timeout=15)
    assert not request.is_answered


def test_script_holds_no_connection_open(device, mosquitto, scripts):
    """A program that it leaves in the background would keep the broker from noticing that the service died."""
    links = pathlib.Path("/tmp/links")
    scripts(f"for file in /proc/$$/fd/*; do readlink $file; done > {links}; echo 1")
    mosquitto()
    device.configure(publications=[on_request()])
    device.run()
    device.wait_connected()
    assert device.requests.ask(SEND, 1) == DONE
    assert "pipe:" in links.read_text()
    assert "socket:" not in links.read_text()


def test_hanging_script_does_not_leave_its_children_behind(device, scripts):
    scripts(f"sleep 300 & echo $! > {SCRIPT_PROCESS}; wait")
    start_offline(device)
    device.requests.send(SEND, 1)
    assert_dies_without_its_script(device)


def test_operations_of_both_threads_never_take_one_anothers_result(device, scripts):
    scripts(f"echo -n $1 > {OPERATION_RESULT}; sleep 0.2; echo 0")
    write_text(device, "periodic", 1)
    write_text(device, "asked-for", 2)
    start_offline(device, on_request(1, PeriodicInterval=10), on_request(2))
    wait_until(lambda: device.tags.journal(data_at(1)), "a periodic result")
    for _ in range(4):
        assert device.requests.ask(SEND, 2) == DONE
    for identifier, text in ((1, b"periodic"), (2, b"asked-for")):
        results = [write for write in device.tags.journal(data_at(identifier)) if write.size < TAG_SIZE]
        assert {write.data[: write.size] for write in results} == {text}
