"""A second, different broker, for what should not hang on the first one's ways. scripts/bootstrap installs it."""

import json
import pathlib
import subprocess

from support import device
from support.waiting import wait_until

DIRECTORY = pathlib.Path(__file__).resolve().parent / "secondbroker"
MODULES = DIRECTORY / "node_modules"


class Aedes:
    """Takes clients on `port` once this returns. Each of `doors` describes a further port, as broker.mjs reads them."""

    def __init__(self, port=1883, doors=()):
        assert MODULES.is_dir(), "run scripts/bootstrap first"
        self.watch_port = port  # senders and listeners need no other one here
        output = pathlib.Path(f"/tmp/aedes-{port}")
        with output.open("wb") as file:
            self._process = subprocess.Popen(
                ["node", str(DIRECTORY / "broker.mjs"), str(port), json.dumps(doors)],
                stdin=subprocess.DEVNULL,
                stdout=file,
                stderr=subprocess.STDOUT,
            )
        wait_until(lambda: b"listening" in output.read_bytes() or self._process.poll() is not None, "aedes to listen")
        assert self._process.poll() is None, output.read_text()

    def stop(self):
        device.kill_softly(self._process)
