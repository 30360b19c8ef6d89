"""Runs inside a sandbox: starts a broker, waits until it listens, then runs the command that the arguments give, whose
output is a JSON object. With --listen TOPIC the object also gets the first message of that topic as "published"."""

import argparse
import json
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


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--listen", metavar="TOPIC")
    parser.add_argument("command", nargs="+")
    return parser.parse_args()


def start_listener(topic: str) -> subprocess.Popen:
    command = ["mosquitto_sub", "-h", "127.0.0.1", "-p", str(PORT), "-t", topic, "-C", "1", "-N"]
    return subprocess.Popen(command, stdout=subprocess.PIPE)


def heard(listener: subprocess.Popen) -> str:
    try:
        return listener.communicate(timeout=PATIENCE)[0].hex()
    except subprocess.TimeoutExpired:
        listener.kill()
        return ""


def main() -> int:
    arguments = parse_arguments()
    CONFIGURATION.write_text(
        f"listener {PORT} 127.0.0.1\nallow_anonymous true\nlog_dest none\nset_tcp_nodelay true\n"
        "max_inflight_messages 0\nmax_queued_messages 0\n"
    )
    broker = subprocess.Popen(["mosquitto", "-c", str(CONFIGURATION)], stdout=sys.stderr)
    try:
        wait_until_listening(broker)
        listener = start_listener(arguments.listen) if arguments.listen else None
        run = subprocess.run(arguments.command, stdout=subprocess.PIPE, check=False)
        if run.returncode != 0:
            return run.returncode
        outcome = json.loads(run.stdout)
        if listener:
            outcome["published"] = heard(listener)
        print(json.dumps(outcome))
        return 0
    finally:
        broker.terminate()
        broker.wait()


if __name__ == "__main__":
    sys.exit(main())
