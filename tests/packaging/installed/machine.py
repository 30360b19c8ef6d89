"""A Debian machine of its own for one test: the packages are installed, systemd is its first process, and its network
is loopback alone."""

import contextlib
import itertools
import os
import pathlib
import shlex
import signal
import subprocess
import time

HERE = pathlib.Path(__file__).resolve().parent
NAMESPACES = ["--mount", "--pid", "--ipc", "--uts", "--net", "--cgroup"]
CGROUP = pathlib.Path("/sys/fs/cgroup")
UNIT = "mqttclientmanager"
DEFAULTS = "/etc/default/mqttclientmanager"
CONFIGURATION = "/VEL/UserApps/Config/MQTT"
_numbers = itertools.count()


class Result:
    def __init__(self, finished):
        self.status = finished.returncode
        self.text = finished.stdout


class Machine:
    """Made of directories that stay as they are, the topmost first; what it changes lies in `work`."""

    def __init__(self, layers, work):
        self.root, self._init, self._cgroups = work / "root", None, []
        upper, scratch = work / "upper", work / "scratch"
        for directory in (self.root, upper, scratch):
            directory.mkdir()
        lower = ":".join(map(str, layers))
        options = f"lowerdir={lower},upperdir={upper},workdir={scratch}"
        subprocess.run(["mount", "-t", "overlay", "overlay", "-o", options, self.root], check=True)

    def boot(self):
        self._cgroups = self._make_cgroups()
        self._starter = subprocess.Popen(
            ["unshare", *NAMESPACES, "--fork", "--kill-child", "bash", HERE / "boot", self.root],
            preexec_fn=self._enter_cgroups,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
        )
        self.wait_for(self._find_init, "the machine's first process")
        self.wait_for(lambda: self._has_booted(), "the end of the machine's start")

    def _make_cgroups(self):
        """One in each of the trees that systemd uses; they become its roots."""
        trees = [CGROUP] if (CGROUP / "cgroup.procs").exists() else [CGROUP / "systemd", CGROUP / "unified"]
        directories = [tree / f"packaging-{os.getpid()}-{next(_numbers)}" for tree in trees if tree.exists()]
        for directory in directories:
            directory.mkdir()
        return directories

    def _enter_cgroups(self):
        for directory in self._cgroups:
            (directory / "cgroup.procs").write_text(str(os.getpid()))

    def _find_init(self):
        children = pathlib.Path(f"/proc/{self._starter.pid}/task/{self._starter.pid}/children").read_text().split()
        assert self._starter.poll() is None, "systemd could not be started"
        name = pathlib.Path(f"/proc/{children[0]}/comm").read_text().strip() if children else ""
        self._init = children[0] if name == "systemd" else None
        return self._init

    def _has_booted(self):
        return self.run("systemctl is-system-running", check=False).text.strip() in ("running", "degraded")

    def run(self, script, check=True):
        """The shell script's result; of its output, both streams."""
        inside = ["nsenter", "-t", self._init, "-a", "env", "-i", "HOME=/root", "LANG=C.UTF-8", "PAGER=cat",
                  "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                  "DEBIAN_FRONTEND=noninteractive", "sh", "-c", script]  # fmt: skip
        finished = subprocess.run(inside, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                  text=True, check=False, timeout=180)  # fmt: skip
        assert finished.returncode == 0 or not check, f"{script}: status {finished.returncode}\n{finished.stdout}"
        return Result(finished)

    def succeeds(self, script):
        return self.run(script, check=False).status == 0

    def write(self, path, text, mode=0o644):
        self.run(f"mkdir -p {shlex.quote(os.path.dirname(path))} && cat > {shlex.quote(path)} <<'END'\n{text}\nEND\n"
                 f"chmod {mode:o} {shlex.quote(path)}")  # fmt: skip

    def read(self, path):
        return self.run(f"cat {shlex.quote(path)}").text

    def unit(self, *properties):
        """What systemd tells of the service's unit, for example ActiveState."""
        shown = self.run(f"systemctl show {UNIT} " + " ".join(f"-p {name}" for name in properties)).text
        told = dict(line.split("=", 1) for line in shown.splitlines())
        return told[properties[0]] if len(properties) == 1 else tuple(told[name] for name in properties)

    def journal(self):
        return self.run(f"journalctl --no-pager -o cat -u {UNIT}").text

    def wait_for(self, condition, what, seconds=60):
        deadline = time.monotonic() + seconds
        while not (found := condition()):
            if time.monotonic() > deadline:
                raise AssertionError(f"waited {seconds} s for {what}")
            time.sleep(0.1)
        return found

    def wait_until(self, script, seconds=60):
        self.wait_for(lambda: self.succeeds(script), script, seconds)

    # What tests have in common.

    def configure(self):
        """The sample controller, with the controller's part played by plcctl. Nothing is started."""
        self.run("cp -r /usr/share/mqttclientmanager/samples/DeviceRoot/VEL / && "
                 "ln -s /VEL/UserApps /usr/UserApps_0 && mkdir -p /etc/CA_Certificates && "
                 "plcctl link up && plcctl queue create")  # fmt: skip

    def make_verbose(self):
        """Without it, a service that is well logs nothing."""
        self.run(f"sed -i 's/ARGUMENTS=$/ARGUMENTS=\"-verbose true\"/' {DEFAULTS}")

    def start_service(self):
        self.run(f"systemctl start {UNIT}")
        self.wait_until("plcctl status | grep -q PS_RUNNING")

    def close(self):
        if self._init:
            with contextlib.suppress(ProcessLookupError):
                os.kill(int(self._init), signal.SIGKILL)
            self._starter.wait()
        subprocess.run(["umount", "-l", self.root], check=True)
        for cgroup in self._cgroups:
            for directory, _, _ in os.walk(cgroup, topdown=False):
                os.rmdir(directory)
