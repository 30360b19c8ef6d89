"""The demo, on the build under test and in a sandbox of its own, as scripts/demo runs it."""

import fcntl
import json
import os
import pty
import re
import select
import shutil
import struct
import subprocess
import termios
import time
import unicodedata
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[2]
BUILD = str(Path(os.environ.get("BUILD_DIR", REPOSITORY / "build" / "release")).resolve())

OUTGOING = "tags of the controller -> messages at the broker"
INCOMING = "messages at the broker -> tags of the controller"

FILLER = "\0"


def copy_of_device(directory):
    return shutil.copytree(REPOSITORY / "Platform" / "DeviceRoot", directory / "device")


@pytest.fixture
def device(tmp_path):
    return copy_of_device(tmp_path)


def sandboxed(device, *command):
    binds = [] if Path(BUILD).is_relative_to(REPOSITORY) else ["--ro-bind", BUILD, BUILD]
    return [REPOSITORY / "scripts" / "sandbox", *binds, device, "--", *command]


def run_demo(device, *arguments):
    command = sandboxed(device, "/usr/bin/python3", "Tools/demo/demo.py", "--build", BUILD, *arguments)
    return subprocess.run(list(map(str, command)), cwd=REPOSITORY, capture_output=True, text=True, timeout=120,
                          check=False)


def last_pictures(output):
    """The two tables of the last picture: what goes out, what comes in."""
    picture = output.split(OUTGOING)[-1]
    return picture.split(INCOMING)


def row(table, name):
    """The cells of the row that begins with this name; what was folded is whole again."""
    headings, _, *lines = [line for line in table.splitlines() if line.strip()]
    first = next(index for index, line in enumerate(lines) if line.startswith(name + "  "))
    last = next((index for index in range(first + 1, len(lines)) if not lines[index].startswith(" ")), len(lines))
    return ["".join(on_screen(line)[start:end].replace(FILLER, "").strip() for line in lines[first:last])
            for start, end in columns(headings, lines)]


def on_screen(line):
    """The line with a filler behind each character that takes two columns."""
    return "".join(character + (FILLER if unicodedata.east_asian_width(character) == "W" else "") for character in line)


def columns(headings, lines):
    """Begin and end of each column: two blanks stand between two of them in all lines."""
    texts = [on_screen(line) for line in [headings, *lines] if "  " in line and not line.startswith("service ")]
    width = max(map(len, texts))
    used = "".join("x" if any(text[at:at + 1].strip() for text in texts) else " " for at in range(width))
    return [found.span() for found in re.finditer(r"x(?:x| (?! ))*", used)]


@pytest.fixture(scope="module")
def finished(tmp_path_factory):
    """A run that ended by itself."""
    done = run_demo(copy_of_device(tmp_path_factory.mktemp("finished")), "--seconds", "6")
    assert done.returncode == 0, done.stderr
    return done


def test_shows_each_publication_and_ends_by_itself(finished):
    outgoing, incoming = last_pictures(finished.stdout)
    for name in ("line speed", "bottles by lane", "recipe", "emergency stop", "shift", "batch"):
        assert row(outgoing, name)
    assert '{"number":' in outgoing  # JSON, as it is on the wire
    assert "'plant' connected" in incoming
    assert "the service ended by signal 15" in finished.stdout


@pytest.mark.parametrize(
    "name, topic",
    [
        ("speed setpoint", "plant/bottling-1/set/speed"),
        ("recipe setpoint", "plant/bottling-1/set/recipe"),
        ("lane targets", "plant/bottling-1/set/lanes"),
        ("display text", "plant/bottling-1/set/display"),
        ("alarms of all lines", "plant/bottling-"),
    ],
)
def test_shows_what_each_subscription_made_of_its_message(finished, name, topic):
    rows = [row(picture.split(INCOMING)[1], name) for picture in finished.stdout.split(OUTGOING)[1:]]
    # Ahead of its first message there is nothing to see but the filter.
    seen = [cells for cells in rows if cells[-1] != "-"]
    assert seen, rows
    assert all(len(cells) == 6 and cells[1].startswith(topic) and cells[4] in ("0", "1") for cells in seen), rows
    assert all(re.fullmatch(r"\d\d:\d\d:\d\d", cells[5]) for cells in seen), rows
    # A message may be on its way at the moment of a picture, but not in all of them.
    assert any(shown_in_tag(name, message) == tag for message, tag in (cells[2:4] for cells in seen)), rows


def shown_in_tag(name, message):
    """How the tag of this subscription is shown when it holds what the message says."""
    if message == "-":
        return "no message"
    if name == "speed setpoint":
        return f"{struct.unpack('<f', bytes.fromhex(message))[0]:.1f}"
    if name == "lane targets":
        return " ".join(map(str, json.loads(message)))
    if name == "recipe setpoint":
        recipe = json.loads(message)
        return f'{recipe["sugar"]:.1f} {recipe["bottles"]} "{recipe["name"]}"'
    return f'"{message}"'


def test_a_message_that_someone_else_sends_is_shown_as_well(device):
    command = sandboxed(device, "/usr/bin/python3", "Tools/demo/demo.py", "--seconds", "25", "--build", BUILD, "--device",
                        device)
    with subprocess.Popen(list(map(str, command)), cwd=REPOSITORY, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True) as demo:
        shown = [demo.stdout.readline(), demo.stdout.readline()]
        assert shown[0] == "Send one yourself from a second terminal:\n"
        # The first picture comes after the office's own text for the display, which it sends once.
        while not shown[-1].startswith("display text") or "Größe" not in shown[-1]:
            shown.append(demo.stdout.readline())
            assert shown[-1], demo.stderr.read()
        sent = subprocess.run(["bash", "-c", shown[1]], cwd=REPOSITORY, capture_output=True, text=True, check=False)
        assert sent.returncode == 0, sent.stderr
        rest = demo.communicate(timeout=60)[0]
    assert row(last_pictures(rest)[1], "display text")[2:4] == ["Hello, line", '"Hello, line"']


def test_without_a_terminal_it_ends_after_ten_seconds(device):
    done = run_demo(device)
    assert done.returncode == 0, done.stderr
    # A picture every 2 s; a busy machine draws fewer of them, but never more.
    assert 1 <= done.stdout.count(OUTGOING) <= 5


def test_tells_why_when_the_service_does_not_start(device):
    (device / "VEL/UserApps/Config/MQTT/MQTTClientConf.xml").write_text("<broken")
    done = run_demo(device, "--seconds", "6")
    assert done.returncode == 1
    assert "demo: " in done.stderr
    assert "Traceback" not in done.stderr


def test_tells_why_when_a_publication_does_not_arrive(device):
    publications = device / "VEL/UserApps/Config/MQTT/Publications.xml"
    publications.write_text(publications.read_text().replace('PeriodicInterval="500"', 'PeriodicInterval="500000"'))
    done = run_demo(device, "--seconds", "6")
    assert done.returncode == 1
    assert "no message of 'line speed' arrived" in done.stderr


def test_tells_why_when_a_message_does_not_reach_its_tag(device):
    subscriptions = device / "VEL/UserApps/Config/MQTT/Subscriptions.xml"
    # A quality of service that doesn't exist: nothing is subscribed.
    subscriptions.write_text(subscriptions.read_text().replace('QOS="0" IsBuffered="0" SubAddr="10240"',
                                                               'QOS="7" IsBuffered="0" SubAddr="10240"'))
    done = run_demo(device, "--seconds", "6")
    assert done.returncode == 1
    assert "the last message of 'lane targets' in its tag did not come about" in done.stderr
    assert "Traceback" not in done.stderr


def test_ctrl_c_on_a_terminal_ends_it_in_order(device):
    controlling, terminal = pty.openpty()
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
    command = sandboxed(device, "/usr/bin/python3", "Tools/demo/demo.py", "--build", BUILD)
    with subprocess.Popen(list(map(str, command)), cwd=REPOSITORY, stdin=terminal, stdout=terminal, stderr=terminal,
                          env=os.environ | {"TERM": "xterm"}, start_new_session=True,
                          preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0)) as demo:
        os.close(terminal)
        output = read_until(controlling, "acknowledged")
        os.write(controlling, b"\x03")
        output += read_until(controlling, None)
        os.close(controlling)
    output = re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", output)
    assert demo.returncode == 0, output
    assert "the service ended by signal 15" in output
    assert "Traceback" not in output


def read_until(terminal, text):
    """What is written to the terminal up to this text, or with None up to the end."""
    output = b""
    deadline = time.monotonic() + 60
    while (text is None or text.encode() not in output) and time.monotonic() < deadline:
        if not select.select([terminal], [], [], 1)[0]:
            continue
        try:
            data = os.read(terminal, 65536)
        except OSError:  # nobody has the other side any more
            break
        output += data
    return output.decode("utf-8", "replace")


def test_a_time_that_is_too_short_is_refused(device):
    done = run_demo(device, "--seconds", "2")
    assert done.returncode == 2
    assert "5 at least" in done.stderr
