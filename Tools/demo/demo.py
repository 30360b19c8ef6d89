"""The service at work, inside the sandbox: run by scripts/demo."""

import argparse
import signal
import sys
import threading
import time

from controlapplication import ControlApplication
from controller import Controller, DemoFailure, wait_for
from listener import Listener
from office import Office, invitation
from picture import HIGH, Picture
from plant import NO_ADDRESS, auto_connected_brokers, direct_subscriptions, periodic_publications
from rich.console import Console
from rich.live import Live
from tags import shown

SECONDS_WITHOUT_TERMINAL = 10
SECONDS_TO_ARRIVE = 5
INTERRUPTED = 130  # as shells have it


def check_outgoing(publications, listener, application):
    """What has to be true at the end of a run that is long enough for every period."""
    for publication in publications:
        message = listener.last(publication.topic)
        if not message:
            raise DemoFailure(f"no message of '{publication.name}' arrived on {publication.topic}")
        value = shown(publication.decode(message.payload))
        if value not in application.history[publication.name]:
            raise DemoFailure(f"the last message of '{publication.name}' is {value}, which the tag never was")
        if publication.acknowledgement != NO_ADDRESS and not application.acknowledged[publication.name]:
            raise DemoFailure(f"no message of '{publication.name}' was acknowledged in tag memory")


def check_incoming(subscriptions, controller, office, application):
    """The office has stopped: what it sent last stands in tags, or is on its way there."""
    for subscription in subscriptions:
        if subscription.name not in office.sent:
            raise DemoFailure(f"nothing was sent to '{subscription.name}'")
        topic, payload = office.sent[subscription.name]
        expected = subscription.decode(payload)

        def has_arrived(subscription=subscription, topic=topic, expected=expected):
            record = controller.subscription_records()[subscription.identifier]
            tag = subscription.type.decode(controller.read(subscription.address, subscription.type.size))
            return tag == expected and record["lastMessageTopic"] == topic and record["lastMessageTime"]

        wait_for(has_arrived, SECONDS_TO_ARRIVE, f"the last message of '{subscription.name}' in its tag")

        def was_taken(subscription=subscription):
            if application.failure:
                raise application.failure
            return application.taken[subscription.name]

        wait_for(was_taken, SECONDS_TO_ARRIVE, f"a received bit of '{subscription.name}'")


def show(arguments, console, draw, check_alive):
    """Returns False when it was ended by Ctrl-C."""
    interrupted = threading.Event()
    # An exception in the middle of drawing would leave the terminal without its cursor, and the rest unprinted.
    signal.signal(signal.SIGINT, lambda *_: interrupted.set())
    if console.is_terminal and arguments.seconds is None:
        with Live(draw(), console=console, auto_refresh=False) as live:
            while not interrupted.wait(0.25):
                check_alive()
                live.update(draw(), refresh=True)
        return False
    end = time.monotonic() + (arguments.seconds or SECONDS_WITHOUT_TERMINAL)
    while (left := end - time.monotonic()) > 0:
        if interrupted.wait(min(2, left)):
            return False
        check_alive()
        console.print(draw())
    return True


def run(arguments, console):
    controller = Controller(arguments.build)
    brokers = auto_connected_brokers()
    publications = periodic_publications(brokers.keys())
    subscriptions = direct_subscriptions(brokers.keys())
    port = int(next(iter(brokers.values())).get("Port"))
    application = ControlApplication(controller, publications, subscriptions)
    office = Office(port, subscriptions)
    listener = None
    try:
        controller.start_broker(port)
        controller.plcctl("queue", "create")
        controller.plcctl("link", "up")
        controller.start_service()
        listener = Listener(port)
        application.start()
        office.start()
        picture = Picture(controller, publications, subscriptions, listener, application)

        def check_alive():
            controller.check_alive()
            for worker in (application, office):
                if worker.failure:
                    raise worker.failure

        def draw():
            height = console.height if console.is_terminal else HIGH
            return picture.draw(console.width, height)

        console.print(invitation(subscriptions, port, arguments.device), highlight=False, soft_wrap=True)
        if show(arguments, console, draw, check_alive):
            office.stop()
            check_outgoing(publications, listener, application)
            check_incoming(subscriptions, controller, office, application)
        else:
            console.print("\nstopping")
    finally:
        office.stop()
        application.stop()
        if listener:
            listener.stop()
        status = controller.stop()
    if status is None:
        raise DemoFailure("the service was gone before it was told to end")
    console.print(f"the service ended by signal {-status}, as it was told to; "
                  "its log was /tmp/cStdErr.csv in the sandbox", highlight=False)


def main():
    parser = argparse.ArgumentParser(prog="scripts/demo", description=__doc__)
    parser.add_argument("--build", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--device", help=argparse.SUPPRESS)  # the sandbox's directory, as the world outside knows it
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
    except KeyboardInterrupt:  # before anything was shown
        return INTERRUPTED
    return 0


if __name__ == "__main__":
    sys.exit(main())
