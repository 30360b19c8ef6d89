"""scripts/sandbox: what is private, what is shared, and how it ends."""

import os
import pty
import signal
import subprocess
import time
import uuid

import pytest

from conftest import REPOSITORY, SANDBOX


def wait_until(condition, seconds=10):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, "timed out"
        time.sleep(0.02)


def processes_with(text):
    """Process IDs outside the sandbox whose command line holds `text`."""
    found = []
    for process in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{process}/cmdline", "rb") as command_line:
                if text.encode() in command_line.read():
                    found.append(int(process))
        except OSError:
            pass  # gone meanwhile
    return found


@pytest.mark.parametrize("directory", ["/tmp", "/dev/shm", "/run"])
def test_directory_is_private(sandbox, directory):
    # A repository below the directory is all that may be seen of it.
    inside = str(REPOSITORY).removeprefix(directory + "/")
    expected = "" if inside == str(REPOSITORY) else inside.split("/")[0] + "\n"
    assert sandbox.output("ls", "-A", directory, cwd="/") == expected


def test_tmp_and_shared_memory_are_writable_and_leave_nothing_outside(sandbox):
    name = uuid.uuid4().hex
    sandbox.output("touch", f"/tmp/{name}", f"/dev/shm/{name}")
    assert not os.path.exists(f"/tmp/{name}") and not os.path.exists(f"/dev/shm/{name}")


def test_message_queues_are_private(sandbox):
    name = "/" + uuid.uuid4().hex
    create = f"""
import ctypes, os
library = ctypes.CDLL(None, use_errno=True)
queue = library.mq_open({name.encode()!r}, os.O_RDWR | os.O_CREAT, 0o600, None)
assert queue >= 0, os.strerror(ctypes.get_errno())
print(os.listdir("/dev/mqueue"))
"""
    assert sandbox.output("python", "-c", create) == f"['{name[1:]}']\n"
    assert sandbox.output("ls", "-A", "/dev/mqueue") == ""


def test_network_is_loopback_alone_and_it_works(sandbox):
    script = """
import socket
print(sorted(name for _, name in socket.if_nameindex()))
listener = socket.create_server(("127.0.0.1", 1883))
socket.create_connection(("localhost", 1883), 5).close()
try:
    socket.create_connection(("192.0.2.1", 1883), 5)
except OSError as error:
    print(error.strerror)
"""
    assert sandbox.output("python", "-c", script) == "['lo']\nNetwork is unreachable\n"


def test_processes_outside_are_out_of_sight(sandbox):
    assert sandbox.output("sh", "-c", "echo /proc/[0-9]*") in ("/proc/1 /proc/2\n", "/proc/1 /proc/2 /proc/3\n")


def test_two_sandboxes_use_the_same_port_at_once(sandbox):
    listen = ("import socket, sys; s = socket.create_server(('127.0.0.1', 1883)); "
              "print('up', flush=True); sys.stdin.read()")
    running = [sandbox.start("python", "-c", listen, stdin=subprocess.PIPE) for _ in range(2)]
    for process in running:
        assert process.stdout.readline() == "up\n"
    for process in running:
        process.communicate("")
        assert process.returncode == 0


def test_device_tree_is_in_place_and_writable(sandbox):
    sandbox.output("sh", "-c", "echo 1 >/VEL/System/new && echo 2 >/etc/CA_Certificates/new.pem")
    assert (sandbox.device / "VEL/System/new").read_text() == "1\n"
    assert (sandbox.device / "etc/CA_Certificates/new.pem").read_text() == "2\n"
    assert "MQTT" in sandbox.output("ls", "/usr/UserApps_0/Config")


def test_a_device_without_ca_directory_has_none_inside(sandbox):
    (sandbox.device / "etc/CA_Certificates/README.md").unlink()
    (sandbox.device / "etc/CA_Certificates").rmdir()
    assert sandbox.run("test", "-e", "/etc/CA_Certificates").returncode == 1


@pytest.mark.parametrize("path", ["/usr/bin/new", "/etc/new-file", "/etc/ssl/new", "/usr/lib/new", "/var/new"])
def test_the_machine_is_read_only(sandbox, path):
    sandbox.run("touch", path)
    assert not os.path.exists(path)


def test_repository_and_current_directory_are_writable_in_their_places(sandbox, tmp_path):
    work = tmp_path / "work"
    work.mkdir()
    assert sandbox.output("sh", "-c", f"pwd && touch here && test -w {REPOSITORY}/scripts", cwd=work) == f"{work}\n"
    assert (work / "here").exists()


@pytest.mark.parametrize("directory", ["/", "/tmp", "/usr", "/etc"])
def test_a_current_directory_of_the_machine_is_not_made_writable(sandbox, directory):
    assert sandbox.output("pwd", cwd=directory) == directory + "\n"
    sandbox.run("touch", "left-by-sandbox-test", cwd=directory)
    assert not os.path.exists(os.path.join(directory, "left-by-sandbox-test"))


def test_programs_are_the_distributions(sandbox):
    environment = dict(os.environ, PATH="/somewhere/bin:" + os.environ["PATH"], TMPDIR="/somewhere")
    output = sandbox.output("sh", "-c", "echo $PATH; echo \"$TMPDIR\"; python -c 'import sys; print(sys.executable)'",
                            env=environment)
    assert output == "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n\n/usr/bin/python\n"


def test_file_permissions_hold_whoever_starts_it(sandbox):
    secret = sandbox.device / "VEL/secret"
    secret.write_text("x")
    secret.chmod(0)
    result = sandbox.run("cat", "/VEL/secret")
    assert result.returncode == 1 and "Permission denied" in result.stderr


def test_extra_binds_are_shown(sandbox, tmp_path):
    (tmp_path / "mine.crt").write_text("my trust store\n")
    trust_store = "/etc/ssl/certs/ca-certificates.crt"
    options = ["--ro-bind", tmp_path / "mine.crt", trust_store, "--bind", tmp_path, "/extra"]
    script = f"cat {trust_store}; touch /extra/new; echo no >{trust_store}"
    assert sandbox.run("sh", "-c", script, options=options).stdout == "my trust store\n"
    assert (tmp_path / "new").exists() and (tmp_path / "mine.crt").read_text() == "my trust store\n"


def test_exit_status_is_the_commands(sandbox):
    assert sandbox.run("sh", "-c", "exit 7").returncode == 7
    assert sandbox.run("no-such-program").returncode == 127


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGSEGV, signal.SIGKILL, signal.SIGINT])
def test_death_by_a_signal_is_128_and_its_number(sandbox, number):
    assert sandbox.run("sh", "-c", f"ulimit -c 0; kill -{int(number)} $$").returncode == 128 + number


def test_what_the_command_left_running_ends_with_it(sandbox):
    mark = uuid.uuid4().hex
    sandbox.output("sh", "-c", f"setsid sh -c 'sleep 60; : {mark}' >/dev/null 2>&1 & exit 0")
    wait_until(lambda: not processes_with(mark))


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL, signal.SIGHUP])
def test_killing_the_sandbox_ends_everything_inside(sandbox, number):
    mark = uuid.uuid4().hex
    stubborn = f"trap '' TERM HUP; setsid sh -c 'sleep 60; : {mark}' & echo up; wait; : {mark}"
    process = sandbox.start("sh", "-c", stubborn)
    assert process.stdout.readline() == "up\n"
    process.send_signal(number)
    assert process.wait(10) == -number
    wait_until(lambda: not processes_with(mark))


def test_everything_inside_ends_with_the_process_that_started_it(sandbox):
    mark = uuid.uuid4().hex
    inner = " ".join(f"'{argument}'" for argument in sandbox.arguments("sh", "-c", f"echo up; sleep 60; : {mark}"))
    starter = subprocess.Popen(["sh", "-c", f"{inner}; :"], text=True, stdout=subprocess.PIPE)
    assert starter.stdout.readline() == "up\n"
    starter.kill()
    starter.wait()
    wait_until(lambda: not processes_with(mark))


def press_control_c(arguments):
    """Runs `arguments` on a terminal of their own, presses Ctrl-C once they print "up"; returns output and status."""
    child, terminal = pty.fork()
    if child == 0:
        os.execv(SANDBOX, arguments)
    seen = b""
    while b"up" not in seen:
        seen += os.read(terminal, 100)
    os.write(terminal, b"\x03")
    try:
        while chunk := os.read(terminal, 100):
            seen += chunk
    except OSError:
        pass  # how a terminal tells that its last user is gone
    return seen, os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


TIDIES_UP = """
import sys, time
try:
    print("up", flush=True)
    time.sleep(60)
except KeyboardInterrupt:
    print("tidied", flush=True)
    sys.exit(5)
"""


def test_control_c_reaches_the_command_which_decides(sandbox):
    seen, status = press_control_c(sandbox.arguments("python", "-c", TIDIES_UP))
    assert b"tidied" in seen and status == 5


def test_control_c_reaches_a_joined_command_which_decides(sandbox):
    process = sandbox.start("sh", "-c", "echo up; cat", stdin=subprocess.PIPE)
    assert process.stdout.readline() == "up\n"
    seen, status = press_control_c(sandbox.arguments("python", "-c", TIDIES_UP, options=["--enter"]))
    assert b"tidied" in seen and status == 5
    process.communicate("")
    assert process.returncode == 0


@pytest.mark.parametrize("options", [[], ["--enter"]])
def test_the_command_begins_with_no_signal_ignored(sandbox, options):
    running = sandbox.start("sh", "-c", "echo up; cat", stdin=subprocess.PIPE)
    assert running.stdout.readline() == "up\n"
    assert "SigIgn:\t0000000000000000\n" in sandbox.output("cat", "/proc/self/status", options=options)
    running.communicate("")


def test_a_second_command_joins_the_running_controller(sandbox):
    process = sandbox.start("sh", "-c", "echo shared >/tmp/file; echo up; read line", stdin=subprocess.PIPE)
    assert process.stdout.readline() == "up\n"
    joined = sandbox.run("sh", "-c", "cat /tmp/file; id -u; ls /VEL; exit 9", options=["--enter"])
    user = os.getuid() or 1000
    assert (joined.stdout, joined.returncode) == (f"shared\n{user}\nSystem\nUserApps\n", 9), joined.stderr
    assert sandbox.run("sh", "-c", "kill -TERM $$", options=["--enter"]).returncode == -signal.SIGTERM
    process.communicate("")


def test_joining_nothing_is_an_error(sandbox):
    result = sandbox.run("true", options=["--enter"])
    assert result.returncode == 125
    assert result.stderr.startswith(f"sandbox: no controller runs on {sandbox.device}; start one with")


@pytest.mark.skipif(os.getuid() != 0, reason="only root can become another user")
def test_an_unprivileged_user_needs_no_more_than_root(sandbox):
    sandbox.device.parent.chmod(0o755)
    for parent in sandbox.device.parents:
        if parent.stat().st_uid == 0 and parent.stat().st_mode & 0o077 == 0 and str(parent) != "/":
            parent.chmod(0o755)
    subprocess.run(["chown", "-R", "65534:65534", sandbox.device], check=True)
    nobody = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
    process = subprocess.Popen([*nobody, *sandbox.arguments("sh", "-c", "echo new >/VEL/new; echo up; cat")],
                               text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert process.stdout.readline() == "up\n"
    joined = subprocess.run([*nobody, *sandbox.arguments("sh", "-c", "id -u; cat /VEL/new", options=["--enter"])],
                            text=True, capture_output=True, timeout=50)
    assert joined.stdout == "65534\nnew\n", joined.stderr
    process.communicate("")
    assert process.returncode == 0


@pytest.mark.parametrize("arguments, message", [
    ([], "needs DIR -- COMMAND"),
    (["somewhere"], "needs DIR -- COMMAND"),
    (["--", "true"], "DIR is missing"),
    (["--unknown", "somewhere", "--", "true"], "unknown option --unknown"),
    (["/nowhere", "--", "true"], "/nowhere is no controller's file tree"),
    (["--bind", "/nowhere", "/x", "somewhere", "--", "true"], "there is no /nowhere"),
])
def test_wrong_use_is_explained(arguments, message):
    result = subprocess.run([SANDBOX, *arguments], capture_output=True, text=True)
    assert result.returncode == 125
    assert result.stderr.startswith("sandbox: ") and message in result.stderr


def test_missing_bubblewrap_is_explained(sandbox, tmp_path):
    programs = tmp_path / "programs"
    programs.mkdir()
    for program in ("bash", "dirname", "env"):
        (programs / program).symlink_to(f"/usr/bin/{program}")
    result = sandbox.run("true", env={"PATH": str(programs)})
    assert result.returncode == 125
    assert result.stderr == "sandbox: bubblewrap is missing; scripts/bootstrap installs it\n"


def test_a_machine_that_forbids_sandboxes_is_explained(sandbox, tmp_path):
    refusing = tmp_path / "bwrap"
    refusing.write_text("#!/bin/sh\necho 'bwrap: No permissions to create new namespace' >&2\nexit 1\n")
    refusing.chmod(0o755)
    result = sandbox.run("true", env=dict(os.environ, PATH=f"{tmp_path}:/usr/bin:/bin"))
    assert result.returncode == 125
    assert "No permissions to create new namespace" in result.stderr and "user.max_user_namespaces" in result.stderr


def test_help_tells_how_to_use_it():
    result = subprocess.run([SANDBOX, "--help"], capture_output=True, text=True)
    assert result.returncode == 0 and result.stdout.startswith("usage: scripts/sandbox")
