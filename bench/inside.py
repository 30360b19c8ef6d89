"""Runs inside a sandbox: starts a broker, waits until it listens, then runs the command that the arguments give."""

import socket
import subprocess
import sys
import time
from pathlib import Path

from plant import PORT

CONFIGURATION = Path("/tmp/mosquitto.conf")
PATIENCE = 10  # seconds


def wait_until_listening(broker: subprocess.Popen) -> None:
    deadline = time.monotonic() + PATIENCE
    while True:
        try:
            socket.create_connection(("127.0.0.1", PORT), timeout=1).close()
            return
        except OSError:
            if broker.poll() is not None:
                sys.exit(f"the broker ended with status {broker.returncode}")
            if time.monotonic() > deadline:
                sys.exit(f"the broker does not listen on port {PORT}")
            time.sleep(0.02)


def main() -> int:
    CONFIGURATION.write_text(
        f"listener {PORT} 127.0.0.1\nallow_anonymous true\nlog_dest none\nset_tcp_nodelay true\n"
        "max_inflight_messages 0\nmax_queued_messages 0\n"
    )
    broker = subprocess.Popen(["mosquitto", "-c", str(CONFIGURATION)], stdout=sys.stderr)
    try:
        wait_until_listening(broker)
        return subprocess.run(sys.argv[1:], check=False).returncode
    finally:
        broker.terminate()
        broker.wait()


if __name__ == "__main__":
    sys.exit(main())
