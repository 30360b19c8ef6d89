"""The demo's screen."""

import time
from dataclasses import dataclass

from plant import NO_ADDRESS
from rich import box
from rich.console import Group
from rich.markup import escape
from rich.table import Table
from rich.text import Text
from tags import shown

# The least that everything fits into. A narrower screen leaves columns out, a lower one shortens long values.
WIDE = 110
HIGH = 30

LONGEST_PAYLOAD = 300  # characters


def readable(payload, is_text):
    """A payload as people read it: a text, or the bytes of a raw one. Whatever a person sent, it is one short line."""
    if not is_text:
        return payload[:LONGEST_PAYLOAD // 3].hex(" ")
    text = payload.decode("utf-8", "replace")[:LONGEST_PAYLOAD]
    return "".join(character if character.isprintable() else "·" for character in text)


def told(publication, payload):
    """A publication's message as people read it, also one that a person sent on its topic."""
    if publication.is_json or len(payload) != publication.type.size:
        return readable(payload, publication.is_json)
    return shown(publication.decode(payload))


@dataclass
class Column:
    heading: str
    only_wide: bool = False
    share: int = 0  # of the width that is left; 0 for a column as wide as its longest text
    justify: str = "left"
    width: int | None = None


class Screen:
    """What there is room for."""

    def __init__(self, width, height):
        self.wide = width >= WIDE
        self.overflow = "fold" if height >= HIGH else "ellipsis"

    def table(self, title, columns, rows):
        kept = [index for index, column in enumerate(columns) if self.wide or not column.only_wide]
        result = Table(title=title, title_justify="left", title_style="bold", box=box.SIMPLE_HEAD,
                       padding=(0, 1, 0, 0), pad_edge=False, show_edge=False, expand=True)
        for column in (columns[index] for index in kept):
            result.add_column(column.heading, justify=column.justify, ratio=column.share or None,
                              min_width=column.width, overflow=self.overflow,
                              no_wrap=not column.share or self.overflow == "ellipsis")
        for row in rows:
            result.add_row(*(escape(row[index]) for index in kept))
        return result


OUTGOING = [Column("publication"), Column("tag now", share=3), Column("last message", share=5),
            Column("age", only_wide=True, justify="right", width=5), Column("topic", only_wide=True),
            Column("messages", justify="right"), Column("acks", justify="right")]

INCOMING = [Column("subscription", only_wide=True), Column("topic"), Column("last message", share=4),
            Column("tag now", share=3), Column("bit", justify="right"), Column("time UTC", width=8)]


class Picture:
    def __init__(self, controller, publications, subscriptions, listener, application):
        self._controller = controller
        self._publications = publications
        self._subscriptions = subscriptions
        self._listener = listener
        self._application = application

    def draw(self, width, height):
        screen = Screen(width, height)
        status = self._controller.status()
        records = {subscription["id"]: subscription["record"] for subscription in status["subscriptions"]}
        outgoing = [self._outgoing(publication) for publication in self._publications]
        incoming = [self._incoming(subscription, records[subscription.identifier])
                    for subscription in self._subscriptions]
        return Group(screen.table("tags of the controller -> messages at the broker", OUTGOING, outgoing), Text(""),
                     screen.table("messages at the broker -> tags of the controller", INCOMING, incoming), Text(""),
                     Text(status_line(status)))

    def _outgoing(self, publication):
        message = self._listener.last(publication.topic)
        acknowledgements = self._application.acknowledged[publication.name]
        return [publication.name,
                shown(self._value(publication)),
                told(publication, message.payload) if message else "-",
                f"{time.monotonic() - message.time:.1f} s" if message else "-",
                publication.topic,
                str(message.count if message else 0),
                "-" if publication.acknowledgement == NO_ADDRESS else str(acknowledgements)]

    def _incoming(self, subscription, record):
        message = self._listener.last(subscription.filter)
        return [subscription.name,
                record["lastMessageTopic"] or subscription.filter,
                readable(message.payload, subscription.is_json) if message else "-",
                shown(self._value(subscription)),
                str(record["receivedBit"]),
                record["lastMessageTime"][11:19] if record["lastMessageTime"] else "-"]

    def _value(self, entity):
        return entity.type.decode(self._controller.read(entity.address, entity.type.size))


def status_line(status):
    statistics = status["statistics"]
    brokers = ", ".join(f"'{broker['name']}' {'connected' if broker['block']['connected'] else 'not connected'}"
                        for broker in status["brokers"])
    return (f"service {status['general']['processStatus']['text']}; brokers {brokers}; "
            f"{statistics['sent']} sent, {statistics['acknowledged']} acknowledged, {statistics['received']} received")
