"""scripts/stall holds up the processes of the command that it runs, and no others, and leaves none of them standing."""
import contextlib
import pathlib
import signal
import subprocess
import sys
import time

import pytest

STALL = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "stall"

# A process that tells how long it stood still at most, and a child of it that does the same.
CLOCK = """\
import os, sys, time
child = os.fork()
end, last, longest = time.monotonic() + float(sys.argv[1]), time.monotonic(), 0
while time.monotonic() < end:
    time.sleep(0.005)
    now = time.monotonic()
    longest, last = max(longest, now - last), now
if child:
    os.waitpid(child, 0)
print(longest, flush=True)
"""


def stall(*arguments, **options):
    return subprocess.run(
        [str(STALL), *map(str, arguments)], capture_output=True, text=True, timeout=60, check=False, **options
    )


def state_of(process):
    return pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0]


def test_processes_and_their_children_stand_still_for_a_while():
    done = stall("--rate", 20, "--longest", 0.5, "--seed", 1, "--", sys.executable, "-c", CLOCK, 2.5)
    standstills = [float(line) for line in done.stdout.split()]
    assert done.returncode == 0
    assert len(standstills) == 2
    assert min(standstills) > 0.2
    assert "for 0.5 s at most" in done.stderr


def test_other_processes_go_on():
    with subprocess.Popen(["sleep", "60"]) as other:
        watched = subprocess.Popen([str(STALL), "--rate", "50", "--", "sleep", "1"], stderr=subprocess.DEVNULL)
        seen = set()
        while watched.poll() is None:
            seen.add(state_of(other.pid))
            time.sleep(0.01)
        other.kill()
    assert "T" not in seen


def test_processes_with_a_terminal_of_their_own_go_on(tmp_path):
    child = tmp_path / "child"
    command = ["script", "-qec", f"echo $$ > {child}; exec sleep 2", "/dev/null"]
    watched = subprocess.Popen([str(STALL), "--rate", "50", "--longest", "0.1", "--", *command],
                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)  # fmt: skip
    seen, deadline = set(), time.monotonic() + 30
    while watched.poll() is None and time.monotonic() < deadline:
        with contextlib.suppress(OSError, ValueError):  # it isn't there yet, or not any more
            seen.add(state_of(int(child.read_text())))
        time.sleep(0.01)
    watched.terminate()
    assert "S" in seen and "T" not in seen


@pytest.mark.parametrize("script, status", [("exit 7", 7), ("kill -9 $$", 137), ("exit 0", 0)])
def test_status_is_that_of_the_command(script, status):
    assert stall("--", "sh", "-c", script).returncode == status


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_nothing_is_left_standing_behind_a_signal(tmp_path, number):
    child = tmp_path / "child"
    script = f"sleep 30 & echo $! > {child}; trap 'exit 3' TERM INT; wait"
    with subprocess.Popen(
        [str(STALL), "--rate", "100", "--longest", "30", "--", "sh", "-c", script], start_new_session=True
    ) as watched:
        deadline = time.monotonic() + 20
        while not (child.exists() and child.read_text()) or state_of(child.read_text().strip()) != "T":
            assert time.monotonic() < deadline, "the child never stood still"
            time.sleep(0.01)
        for process in [watched.pid] if number == signal.SIGTERM else [watched.pid, children_of(watched.pid)[0]]:
            subprocess.run(["kill", f"-{number.value}", str(process)], check=True)
        assert watched.wait(timeout=30) in (3, 128 + number.value)
    left = child.read_text().strip()
    assert state_of(left) != "T"
    subprocess.run(["kill", left], check=True)


def children_of(process):
    return subprocess.run(["pgrep", "-P", str(process)], capture_output=True, text=True, check=True).stdout.split()


@pytest.mark.parametrize("arguments", [["--rate", 0, "--", "true"], ["--longest", 0, "--", "true"], []], ids=str)
def test_wrong_arguments_are_told(arguments):
    done = stall(*arguments)
    assert (done.returncode, done.stdout) == (2, "")


def test_command_that_there_is_not_is_told():
    done = stall("/nowhere/at-all")
    assert done.returncode == 127
    assert "/nowhere/at-all" in done.stderr
