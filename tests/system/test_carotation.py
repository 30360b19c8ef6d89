"""Another CA file after a failed attempt at level 4: candidates take their turns in place of the configured file."""

import os
import pathlib
import shutil
import signal
import threading

from support import build, certs, configuration, csvlog
from support.configuration import broker
from support.device import SCRIPTS, TEARDOWN_SECONDS, VERBOSE, died_of, has_died
from support.mosquitto import TLS_PORT
from support.records import BrokerStatus
from support.requests import BROKER_FAILED, CONNECT, DONE, PAUSE, START
from support.waiting import holds_for, wait_until

CANDIDATES = pathlib.Path("/etc/CA_Certificates")
SCRIPT = SCRIPTS / "OpenSslCheckConnectivity.sh"
SAMPLE_SCRIPT = build.REPOSITORY / "Platform/DeviceRoot/VEL/System/Config/Scripts" / SCRIPT.name
CA_FILE = configuration.DIRECTORY / "ca.crt"
KEEP_FILE = CANDIDATES / "ca.crt"

NAMES = ("a.pem", "b.crt", "c.pem")
FILES = {"CAFileName": "ca.crt", "ClientCertificateFileName": "client.crt", "ClientKeyFileName": "client.key"}

# A rotation ends when all that the machine has to write is on its disk.
SYNC_PATIENCE = 30

NO_ANSWER = "No connection to internet leave without taking any action"
NO_CODE_20 = "Couldn't find 'Verify return code: 20"
END = " m_caFileNextIndex:{} END"

# The process ID of a script that hangs.
SCRIPT_PROCESS = pathlib.Path("/tmp/script.pid")
HANG = f"echo $$ > {SCRIPT_PROCESS}; exec sleep 300"


def tls_broker(identifier=1, level=4, **attributes):
    """Nobody listens; connected by request only."""
    attributes = {"AutoConnect": 0, "Port": TLS_PORT} | FILES | attributes
    return broker(identifier, EncryptionType=level, **attributes)


def task_rows():
    return [row.message for row in csvlog.rows() if row.file == "clientbroker_carotation.cpp"]


def starts():
    return task_rows().count("START")


def ends():
    return len([message for message in task_rows() if message in (NO_ANSWER, NO_CODE_20) or message.endswith(" END")])


def fill(contents):
    """Puts candidates into the directory; their order is the directory's own. Returns their names in that order."""
    for name, content in contents.items():
        (CANDIDATES / name).write_bytes(content)
    return [name for name in os.listdir(CANDIDATES) if name in contents]


def as_candidates(*names):
    return fill({name: f"candidate {name}".encode() for name in names})


def start(device, script, *brokers, original=b"original"):
    """With the configured CA file in its place, and a script that isn't installed where `script` is None."""
    if script is not None:
        device.script(SCRIPT, script)
    device.configure(brokers=brokers or [tls_broker()])
    if original is not None:
        CA_FILE.write_bytes(original)
    return device.run(*VERBOSE)


def attempt(device, identifier=1):
    """A connection attempt that fails, and the end of what follows in the background. Returns the last line of that."""
    before = ends()
    assert device.requests.ask(CONNECT, identifier) == BROKER_FAILED
    wait_until(lambda: ends() > before, lambda: f"the end of the check; {task_rows()}", SYNC_PATIENCE)
    return task_rows()[-1]


def test_broker_is_reached_with_the_last_candidate(device, mosquitto):
    """By itself, with the sample script and real certificates. The configured file is kept."""
    right, wrong = certs.Authority("right"), [certs.Authority(name) for name in ("wrong", "other", "configured")]
    clients = certs.Authority("clients")  # were it the same, the broker would send its own authority along: code 19
    clients.issue("client")
    order = as_candidates(*NAMES)
    for name, authority in zip(order, (wrong[0], wrong[1], right)):
        (CANDIDATES / name).write_bytes(authority.certificate.read_bytes())
    mosquitto(TLS_PORT, tls=right.issue("server"), client_authority=clients.certificate)
    shutil.copy(SAMPLE_SCRIPT, SCRIPT)
    configured = wrong[2].certificate.read_bytes()
    start(device, None, tls_broker(AutoConnect=1), original=configured)
    device.wait_connected(timeout=30)
    assert device.broker() == BrokerStatus(1, 0, 0)
    assert CA_FILE.read_bytes() == right.certificate.read_bytes()
    assert KEEP_FILE.read_bytes() == configured
    sources = [message for message in task_rows() if message.startswith("src:")]
    assert sources == [f"src:{CANDIDATES / name} dst:{CA_FILE}" for name in order]
    assert sorted(os.listdir(CANDIDATES)) == sorted([*NAMES, "ca.crt"])


def test_candidates_take_turns_without_an_end(device):
    order = as_candidates(*NAMES)
    start(device, "echo 1")
    for turn in range(5):
        assert attempt(device) == END.format((turn + 1) % 3)
        assert CA_FILE.read_bytes() == f"candidate {order[turn % 3]}".encode()
    # The file that the first turn has kept takes part from the next scan of the directory on.
    assert KEEP_FILE.read_bytes() == b"original"


def test_lines_of_a_rotation(device):
    as_candidates("a.pem")
    start(device, "echo 1")
    attempt(device)
    taken = f"broker 'broker1': its issuer is unknown, {CA_FILE} is now a copy of {CANDIDATES}/a.pem"
    assert [(row.severity, row.message) for row in csvlog.rows() if row.file == "clientbroker_carotation.cpp"] == [
        ("DEBUG", "START"),
        ("DEBUG", f"src:{CANDIDATES}/a.pem dst:{CA_FILE}"),
        ("DEBUG", f"originalCaFile: {KEEP_FILE}"),
        ("INFO", taken),
        ("DEBUG", END.format(0)),
    ]


def test_file_at_the_keep_path_is_not_overwritten(device):
    order = fill({"a.pem": b"candidate", "ca.crt": b"kept before"})
    start(device, "echo 1")
    for name in order:
        content = (CANDIDATES / name).read_bytes()
        attempt(device)
        assert CA_FILE.read_bytes() == content
    assert KEEP_FILE.read_bytes() == b"kept before"


def test_missing_ca_file_is_only_put_in_place(device):
    as_candidates("a.pem")
    start(device, "echo 1", original=None)
    assert attempt(device) == END.format(0)
    assert CA_FILE.read_bytes() == b"candidate a.pem"
    assert not KEEP_FILE.exists()
    assert not any(message.startswith("originalCaFile") for message in task_rows())


def test_number_that_the_script_prints_decides(device):
    order = as_candidates(*NAMES)
    start(device, "echo 0")
    for body in ("echo 0", "echo text", "true", "echo 3 4", "echo -1", "echo 0x14", "echo 99999999999", "echo 1 >&2"):
        device.script(SCRIPT, body)
        assert attempt(device) == NO_CODE_20, body
        assert CA_FILE.read_bytes() == b"original"
    assert not KEEP_FILE.exists()
    for turn, body in enumerate(("printf ' 3\\n'", "printf '\\t\\n1\\n\\n'; exit 7", "echo 20; kill -9 $$")):
        device.script(SCRIPT, body)
        assert attempt(device) == END.format((turn + 1) % 3), body
        assert CA_FILE.read_bytes() == f"candidate {order[turn]}".encode()


def test_script_that_can_not_be_run_changes_nothing(device):
    as_candidates("a.pem")
    start(device, None)
    assert attempt(device) == NO_ANSWER
    device.script(SCRIPT, "echo 1")
    SCRIPT.chmod(0o644)
    assert attempt(device) == NO_ANSWER
    assert CA_FILE.read_bytes() == b"original"
    assert os.listdir(CANDIDATES) == ["a.pem"]


def test_script_gets_the_broker_its_files_and_the_directory(device):
    arguments = pathlib.Path("/tmp/arguments")
    start(device, f'for word; do echo "$word"; done > {arguments}; echo 0', tls_broker(CAFileName="my ca.crt"))
    attempt(device)
    directory = f"{configuration.DIRECTORY}/"
    files = [directory + name for name in ("client.crt", "client.key", "my ca.crt")]
    assert arguments.read_text().splitlines() == ["127.0.0.1", str(TLS_PORT), *files, directory]


def test_only_level_4_starts_a_check(device):
    levels = (0, 1, 2, 3, 5, 6, 4)
    start(device, "echo 0", *(tls_broker(number, level) for number, level in enumerate(levels, 1)))
    for number in range(1, len(levels)):
        assert device.requests.ask(CONNECT, number) == BROKER_FAILED
    attempt(device, len(levels))
    assert starts() == 1


def test_link_that_is_down_starts_no_check(device):
    start(device, "echo 0")
    device.tags.set_link(False, False)
    assert device.requests.ask(CONNECT, 1) == BROKER_FAILED
    device.tags.set_link()
    attempt(device)
    assert starts() == 1


def hang(device, *brokers):
    """A check that doesn't end; returns the process ID of its script."""
    start(device, HANG, *brokers)
    assert device.requests.ask(CONNECT, 1) == BROKER_FAILED
    return int(wait_until(lambda: SCRIPT_PROCESS.exists() and SCRIPT_PROCESS.read_text().strip(), "the script to run"))


def test_one_check_at_a_time_for_each_broker(device):
    as_candidates("a.pem")
    script = hang(device, tls_broker(1), tls_broker(2))
    for _ in range(3):
        assert device.requests.ask(CONNECT, 1) == BROKER_FAILED
    assert (starts(), ends()) == (1, 0)
    device.script(SCRIPT, "echo 1")
    attempt(device, 2)
    assert (starts(), ends()) == (2, 1)
    os.kill(script, signal.SIGKILL)
    wait_until(lambda: ends() == 2, "the end of the first check")
    attempt(device, 1)
    assert starts() == 3


def test_signal_while_the_script_hangs(device):
    script = hang(device)
    assert died_of(device.service.stop(TEARDOWN_SECONDS)) == signal.SIGTERM
    assert device.tags.registrations() == {}
    wait_until(lambda: has_died(script), "the end of the script")


def test_check_outlives_a_pause_and_a_start_which_scans_the_directory_anew(device):
    order = as_candidates("a.pem", "b.crt")
    go = pathlib.Path("/tmp/go")
    start(device, f"while [ ! -e {go} ]; do sleep 0.02; done; echo 1", tls_broker(ConnectionInterval=0))
    assert device.requests.ask(CONNECT, 1) == BROKER_FAILED
    wait_until(lambda: starts() == 1, "the check")
    assert device.requests.ask(PAUSE) == DONE
    (CANDIDATES / "c.pem").write_bytes(b"candidate c.pem")
    assert device.requests.ask(START) == DONE
    assert ends() == 0
    go.touch()
    wait_until(lambda: ends() == 1, "the end of the check", SYNC_PATIENCE)
    # The old entity's index moved, the new one's is at its beginning, and its list holds what came meanwhile.
    assert task_rows()[-1] == END.format(1)
    assert CA_FILE.read_bytes() == f"candidate {order[0]}".encode()
    listed = [name for name in os.listdir(CANDIDATES) if name != "ca.crt"]
    for turn, name in enumerate(listed):
        assert attempt(device) == END.format((turn + 1) % 3)
        assert CA_FILE.read_bytes() == f"candidate {name}".encode()


def test_without_candidates_the_rotation_is_skipped(device):
    (CANDIDATES / "README.txt").write_text("no candidate")
    start(device, "echo 1")
    for _ in range(2):
        assert attempt(device) == END.format(0)
    assert CA_FILE.read_bytes() == b"original"
    assert csvlog.messages("WARN") == [
        f"broker 'broker1': its issuer is unknown, and there is no candidate CA file in {CANDIDATES}/"
    ] * 2  # fmt: skip


def unusable(name):
    """Makes a candidate one that can't be read."""
    (CANDIDATES / name).unlink()
    return {
        "a.pem": lambda path: None,
        "b.crt": os.mkfifo,
        "c.pem": os.mkdir,
        "d.pem": lambda path: path.touch(mode=0),
        "e.pem": lambda path: path.write_bytes(bytes(17 << 20)),
    }[name](CANDIDATES / name)


def test_candidate_that_can_not_be_read_is_passed_over(device):
    names = as_candidates("a.pem", "b.crt", "c.pem", "d.pem", "e.pem")
    start(device, "echo 1")
    for turn, name in enumerate(names, 1):
        unusable(name)
        assert attempt(device) == END.format(turn % len(names)), name
        # The file in use goes only when another one takes its place.
        assert CA_FILE.read_bytes() == b"original"
    cannot = f"broker 'broker1': {CANDIDATES}/{{}} can't be put in place of {CA_FILE}"
    assert csvlog.messages("WARN") == [cannot.format(name) for name in names]


def test_directories_that_can_not_be_written(device):
    order = as_candidates(*NAMES)
    start(device, "echo 1")
    CA_FILE.chmod(0o444)  # of a file that is replaced it doesn't count
    assert attempt(device) == END.format(1)
    KEEP_FILE.unlink()
    CANDIDATES.chmod(0o555)
    assert attempt(device) == END.format(2)
    assert CA_FILE.read_bytes() == f"candidate {order[1]}".encode()
    configuration.DIRECTORY.chmod(0o555)
    assert attempt(device) == END.format(0)
    assert CA_FILE.read_bytes() == f"candidate {order[1]}".encode()
    not_kept = f"broker 'broker1': {CA_FILE} can't be kept as {KEEP_FILE}"
    not_placed = f"broker 'broker1': {CANDIDATES}/{order[2]} can't be put in place of {CA_FILE}"
    assert csvlog.messages("WARN") == [not_kept, not_kept, not_placed]
    for directory in (CANDIDATES, configuration.DIRECTORY):
        directory.chmod(0o755)


def test_ca_file_name_that_names_no_file(device):
    as_candidates("a.pem")
    names = ["", "gone/ca.crt", "../../../../../tmp"]
    start(device, "echo 1", *(tls_broker(number, CAFileName=name) for number, name in enumerate(names, 1)))
    for number in range(1, len(names) + 1):
        assert attempt(device, number) == END.format(0)
    assert os.listdir(CANDIDATES) == ["a.pem"]
    assert not [*configuration.DIRECTORY.glob(".*"), *pathlib.Path("/tmp").glob("..*")]


def test_brokers_that_share_a_ca_file_never_leave_a_part_of_one(device):
    """Two brokers at the same time, and a reader that always finds a whole file. The kept one is the configured one."""
    size = 1 << 20
    contents = {name: bytes([number]) * size for number, name in enumerate(NAMES, 1)}
    fill(contents)
    original = bytes([9]) * size
    gate = pathlib.Path("/tmp/gate")
    start(device, f"while [ ! -e {gate} ]; do :; done; echo 1", tls_broker(1), tls_broker(2), original=original)
    seen, stop = set(), threading.Event()

    def read():
        while not stop.is_set():
            try:
                seen.add(CA_FILE.read_bytes())
            except FileNotFoundError:
                seen.add(None)

    reader = threading.Thread(target=read)
    reader.start()
    for _ in range(4):
        before = ends()
        for identifier in (1, 2):
            assert device.requests.ask(CONNECT, identifier) == BROKER_FAILED
        gate.touch()
        wait_until(lambda: ends() == before + 2, "both checks", SYNC_PATIENCE)
        gate.unlink()
    stop.set()
    reader.join()
    assert seen <= {original, *contents.values()}
    assert KEEP_FILE.read_bytes() == original
    holds_for(lambda: not list(configuration.DIRECTORY.glob("ca.crt.*")), "nothing left behind", 0.1)


def test_candidates_are_files_and_the_first_two_are_named(device):
    as_candidates(*NAMES)
    (CANDIDATES / "directory.pem").mkdir()
    (CANDIDATES / "notes.txt").write_text("no candidate")
    order = [name for name in os.listdir(CANDIDATES) if name in NAMES]
    start(device, "echo 1")
    assert f"ClientBroker::ClientBroker() m_caFilesList {order[0]} {order[1]}" in csvlog.messages("DEBUG")
    for turn in range(3):
        assert attempt(device) == END.format((turn + 1) % 3)


def test_files_keep_the_mode_of_what_they_are_copies_of(device):
    as_candidates("a.pem")
    (CANDIDATES / "a.pem").chmod(0o640)
    start(device, "echo 1")
    CA_FILE.chmod(0o604)
    attempt(device)
    assert (CA_FILE.stat().st_mode & 0o777, KEEP_FILE.stat().st_mode & 0o777) == (0o640, 0o604)
