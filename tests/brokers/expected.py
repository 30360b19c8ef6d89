"""What is known to be otherwise than "yes", and why. A run that differs from this fails."""

from typing import NamedTuple


class Expected(NamedTuple):
    """`told` is a part of what the failing check says, so that nothing else passes for it."""

    told: str
    note: str


SESSIONS_IN_MEMORY = Expected("[] arrived", "It keeps sessions in memory only. Send subscribe-all after its restart.")
NO_WORD_OF_THE_SESSION = (
    "It keeps the session and delivers what came meanwhile, but doesn't say so when the service connects (session present "
    "is 0). The service then counts its subscriptions as lost and drops those messages. Send subscribe-all after each "
    "reconnection, and don't rely on kept sessions."
)

# Checks of brokers that have no such thing, with the reason.
NOT_OFFERED = {
    "mosquitto": {},
    "aedes": {},
    "rabbitmq": {},
    "activemq": {},
    "ejabberd": {
        "level-4-stranger": "It asks for a certificate and lets a client with a good password in whatever it shows.",
    },
}

# Checks that fail, by broker: over TCP and TLS alike.
FAILURES = {
    "mosquitto": {},
    "aedes": {"session-restart": SESSIONS_IN_MEMORY},
    "rabbitmq": {
        "publish-2": Expected(
            "requests answered [[2, 0], [2, -12]",
            "This broker has no QoS 2: it answers such a publication with the acknowledgement of QoS 1, which the client "
            "library doesn't take for its own. The first message arrives, and all further ones of that broker answer -4 "
            "after 20 s, until it is connected anew. Use QoS 0 or 1.",
        ),
        "retained-wildcard": Expected(
            "data of subscription 1", "This broker gives retained messages to filters without wildcards only."
        ),
    },
    "activemq": {
        "away-1": Expected("[b'\\x00\\x00\\x00\\x00'] arrived", NO_WORD_OF_THE_SESSION),
        "away-2": Expected("[b'\\x00\\x00\\x00\\x00'] arrived", NO_WORD_OF_THE_SESSION),
        "session-restart": Expected("[] arrived", NO_WORD_OF_THE_SESSION),
    },
    "ejabberd": {"session-restart": SESSIONS_IN_MEMORY},
}

# What is to be said of a "yes".
REMARKS = {
    "mosquitto": {},
    "aedes": {},
    "rabbitmq": {
        "wrong-password": "With code 4 in the broker's status block; the others answer 5.",
        "receive-2": "It delivers with QoS 1: once in this run, and again after a loss at the wrong moment.",
        "away-2": "It delivers with QoS 1: once in this run, and again after a loss at the wrong moment.",
    },
    "activemq": {},
    "ejabberd": {
        "user": "The name is a whole one, `plc@localhost`, and every client needs one with its password.",
        "wrong-password": (
            "With code 1: the broker refuses the attempt with 5; the client library then tries the older protocol version, "
            "which this broker doesn't speak, and that answer stands."
        ),
    },
}
