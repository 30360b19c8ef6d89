"""A terminal of a real terminal multiplexer with `plcctl live` in it, and what stands on its screen."""

import pathlib
import shlex
import subprocess

from support import build
from support.waiting import wait_until

PLCCTL = build.DIRECTORY / "bin" / "plcctl"

# The shell's, before and after the view.
PROMPT = "ready$"

PATIENCE = 15.0

STANDARD_ERROR = pathlib.Path("/tmp/live.err")


class LiveScreen:
    """A shell at `width` x `height`; the view starts with start(). What plcctl says at its end goes to a file."""

    def __init__(self, width=80, height=24, locale="C.UTF-8", **variables):
        environment = {"PS1": f"{PROMPT} ", "LC_ALL": locale, **variables}
        command = shlex.join(["env", *(f"{key}={value}" for key, value in environment.items()), "sh", "-i"])
        self._tmux("-f", "/dev/null", "new-session", "-d", "-x", str(width), "-y", str(height), command)
        # In no order of the tests may a key be taken for one of the multiplexer's own.
        self._tmux("set-option", "-g", "prefix", "None")
        self._tmux("set-option", "-g", "status", "off")
        self._tmux("resize-window", "-x", str(width), "-y", str(height))
        self.wait_for(PROMPT)

    def start(self, *arguments, interval=100):
        self.type(shlex.join([str(PLCCTL), "live", "--interval", str(interval), *arguments]) + f" 2>{STANDARD_ERROR}")
        self.press("Enter")
        self.wait_for("1 Overview  2 Brokers")

    @staticmethod
    def _tmux(*arguments):
        finished = subprocess.run(["tmux", "-u", "-L", "live", *arguments], capture_output=True, check=False, text=True)
        assert finished.returncode == 0, (arguments, finished.stderr)
        return finished.stdout

    def type(self, text):
        self._tmux("send-keys", "-l", text)

    def press(self, *keys):
        """Keys by the multiplexer's names: Enter, Escape, Down, C-z."""
        self._tmux("send-keys", *keys)

    def resize(self, width, height):
        self._tmux("resize-window", "-x", str(width), "-y", str(height))

    def lines(self):
        return self._tmux("capture-pane", "-p").splitlines()

    def text(self):
        return "\n".join(self.lines())

    def row(self, *texts):
        """The first line in which all the texts stand, in this order; "" if there is none."""
        for line in self.lines():
            at = 0
            for text in texts:
                at = line.find(text, at)
                if at < 0:
                    break
                at += len(text)
            else:
                return line
        return ""

    def wait_for(self, *texts, timeout=PATIENCE):
        """Waits for a line in which the texts stand in this order, and returns it."""
        return wait_until(
            lambda: self.row(*texts), lambda: f"a line with {texts} on the screen:\n{self.text()}", timeout
        )

    def wait_without(self, *texts, timeout=PATIENCE):
        wait_until(
            lambda: not self.row(*texts), lambda: f"no line with {texts} on the screen:\n{self.text()}", timeout
        )

    def process(self):
        """The number of the view's process."""
        shell = self._tmux("list-panes", "-F", "#{pane_pid}").strip()
        found = subprocess.run(["pgrep", "-P", shell, "-x", "plcctl"], capture_output=True, check=True, text=True)
        return int(found.stdout.split()[0])

    def has_cursor(self):
        return self._tmux("display-message", "-p", "#{cursor_flag}").strip() == "1"

    def is_full_screen(self):
        return self._tmux("display-message", "-p", "#{alternate_on}").strip() == "1"

    def close(self):
        """What a sanitizer found in the view fails the test."""
        self._tmux("kill-server")
        errors = STANDARD_ERROR.read_text(errors="replace") if STANDARD_ERROR.exists() else ""
        assert not any(finding in errors for finding in build.SANITIZER_FINDINGS), errors
