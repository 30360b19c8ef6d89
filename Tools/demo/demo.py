"""The service at work, inside the sandbox: run by scripts/demo."""

import argparse
import json
import sys
import time

import paho.mqtt.client as mqtt
from controller import Controller, DemoFailure
from plant import NO_ADDRESS, ControlApplication, auto_connected_brokers, raw_periodic_publications, shown
from rich.console import Console, Group
from rich.live import Live
from rich.table import Table
from rich.text import Text

SECONDS_WITHOUT_TERMINAL = 10


class Listener:
    """An ordinary MQTT client at the broker: keeps the last message of each topic."""

    def __init__(self, port):
        self.last = {}  # topic -> (payload, time)
        self.counts = {}
        self._client = mqtt.Client(client_id="demo-listener")
        self._client.on_connect = lambda client, *_: client.subscribe("#", qos=1)
        self._client.on_message = self._keep
        self._client.connect("127.0.0.1", port)
        self._client.loop_start()

    def _keep(self, _client, _userdata, message):
        self.last[message.topic] = (message.payload, time.monotonic())
        self.counts[message.topic] = self.counts.get(message.topic, 0) + 1

    def stop(self):
        self._client.disconnect()
        self._client.loop_stop()


def picture(controller, publications, listener, application):
    table = Table(title="tags of the controller  ->  messages at the broker", title_justify="left")
    for heading in ("publication", "tag now", "last message", "age", "topic"):
        table.add_column(heading, no_wrap=heading != "topic")
    table.add_column("messages", justify="right")
    table.add_column("acks", justify="right")
    for publication in publications:
        tag = json.loads(controller.plcctl("tag", "get", *publication.tag_arguments, "--json"))["value"]
        payload, arrived = listener.last.get(publication.topic, (None, 0))
        table.add_row(publication.name, shown(tag),
                      "-" if payload is None else shown(publication.decode(payload)),
                      "-" if payload is None else f"{time.monotonic() - arrived:.1f} s",
                      publication.topic, str(listener.counts.get(publication.topic, 0)),
                      "-" if publication.acknowledgement == NO_ADDRESS else str(application.acknowledged[publication.name]))
    status = controller.status()
    statistics = status["statistics"]
    brokers = ", ".join(f"'{broker['name']}' {'connected' if broker['block']['connected'] else 'not connected'}"
                        for broker in status["brokers"])
    line = (f"service {status['general']['processStatus']['text']}; brokers {brokers}; "
            f"{statistics['sent']} sent, {statistics['acknowledged']} acknowledged")
    return Group(table, Text(line))


def check(publications, listener, application):
    """What has to be true at the end of a run that is long enough for every period."""
    for publication in publications:
        if publication.topic not in listener.last:
            raise DemoFailure(f"no message of '{publication.name}' arrived on {publication.topic}")
        value = shown(publication.decode(listener.last[publication.topic][0]))
        if value not in application.history[publication.name]:
            raise DemoFailure(f"the last message of '{publication.name}' is {value}, which the tag never was")
        if publication.acknowledgement != NO_ADDRESS and not application.acknowledged[publication.name]:
            raise DemoFailure(f"no message of '{publication.name}' was acknowledged in tag memory")


def show(arguments, console, draw, keep_going):
    if console.is_terminal and arguments.seconds is None:
        with Live(draw(), console=console, refresh_per_second=4) as live:
            while keep_going():
                time.sleep(0.25)
                live.update(draw())
        return
    end = time.monotonic() + (arguments.seconds or SECONDS_WITHOUT_TERMINAL)
    while keep_going() and time.monotonic() < end:
        time.sleep(min(2, max(0, end - time.monotonic())))
        console.print(draw())


def run(arguments, console):
    controller = Controller(arguments.build)
    brokers = auto_connected_brokers()
    publications = raw_periodic_publications(brokers.keys())
    port = int(next(iter(brokers.values())).get("Port"))
    application = ControlApplication(controller, publications)
    listener = None
    try:
        controller.start_broker(port)
        controller.plcctl("queue", "create")
        controller.plcctl("link", "up")
        controller.start_service()
        listener = Listener(port)
        application.start()

        def keep_going():
            controller.check_alive()
            if application.failure:
                raise application.failure
            return True

        try:
            show(arguments, console, lambda: picture(controller, publications, listener, application), keep_going)
        except KeyboardInterrupt:
            console.print("\nstopping")
        else:
            check(publications, listener, application)
    finally:
        if application.is_alive():
            application.stop()
        if listener:
            listener.stop()
        status = controller.stop()
    console.print(f"the service ended by signal {-status}, as it was told to; its log was /tmp/cStdErr.csv in the sandbox")


def main():
    parser = argparse.ArgumentParser(prog="scripts/demo", description=__doc__)
    parser.add_argument("--build", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--seconds", type=float, help="print for this long and end, instead of running until Ctrl-C")
    arguments = parser.parse_args()
    if arguments.seconds is not None and arguments.seconds < 5:
        parser.error("--seconds: 5 at least, so that every publication gets its turn")
    console = Console(width=None if sys.stdout.isatty() else 132)
    try:
        run(arguments, console)
    except DemoFailure as failure:
        print(f"demo: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
