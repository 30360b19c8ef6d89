"""An MQTT 3.1.1 broker that misbehaves on demand, where a real one can't be made to.

It decodes what clients send, keeps it for comparison, and answers as its attributes say at that moment.
"""

import contextlib
import socket
import ssl
import struct
import threading
import time
from typing import NamedTuple, Optional

CONNECT, CONNACK, PUBLISH, PUBACK, PUBREC, PUBREL, PUBCOMP = range(1, 8)
SUBSCRIBE, SUBACK, UNSUBSCRIBE, UNSUBACK, PINGREQ, PINGRESP, DISCONNECT = range(8, 15)


class Will(NamedTuple):
    topic: str
    message: bytes
    qos: int
    retain: bool


class Connect(NamedTuple):
    protocol: str
    level: int  # 4 is MQTT 3.1.1, 3 is MQTT 3.1
    client_id: str
    clean_session: bool
    keep_alive: int
    will: Optional[Will]
    user: Optional[str]
    password: Optional[str]
    time: float


class Publish(NamedTuple):
    topic: str
    payload: bytes
    qos: int
    retain: bool
    duplicate: bool
    identifier: int
    time: float


class Subscribe(NamedTuple):
    topics: list  # (filter, qos) of each
    identifier: int
    time: float


class Unsubscribe(NamedTuple):
    topics: list
    identifier: int
    time: float


class ScriptedBroker:
    def __init__(self, port=1883, tls=None):
        # What it answers; may be changed at any time.
        self.refuse = 0  # return code of CONNACK
        self.refuse_wills = 0  # the same, for clients that have a will
        self.session_present = False
        self.silent = False  # accepts connections and never answers
        self.hang_up = False  # closes instead of CONNACK
        self.hang_up_on_wills = False  # the same, for clients that have a will
        self.hang_up_at_once = False  # closes as soon as a connection is there
        self.hang_up_connected = False  # closes behind CONNACK
        self.greeting = b""  # goes out as soon as a connection is there
        self.after_connect_answer = b""  # goes out with each CONNACK, in one piece
        self.reading = threading.Event()  # while it is cleared, connected clients aren't listened to
        self.reading.set()
        self.acknowledgement_delay = 0.0  # seconds, and nothing else is done for that client meanwhile
        self.acknowledge = True  # publications at QoS 1 and 2
        self.cut_publish_answer = False  # half an acknowledgement, then the connection is closed
        self.grant = None  # return code of SUBACK; None grants what was asked for
        self.refused_filters = ()  # are answered with 0x80 in any case
        self.answer_subscribe = True
        self.cut_subscribe_answer = False  # half a SUBACK, then the connection is closed
        self.before_subscribe_answer = b""  # goes out ahead of each SUBACK
        self.after_subscribe_answer = b""  # goes out with it, in one piece

        # What came in.
        self.connections = 0
        self.connects = []
        self.publishes = []
        self.subscribes = []
        self.unsubscribes = []
        self.packets = []  # the kinds of all packets of clients, in order
        self.acknowledged = []  # identifiers of messages to the client, as its PUBACKs and PUBCOMPs came
        self.disconnects = 0
        self.closed = 0
        self.ciphers = []  # (name, TLS version) of each handshake
        self.errors = []  # handshakes that failed, packets that could not be read

        self._tls = tls
        self._unacknowledged = []
        self._acknowledging = threading.Lock()
        self._sockets = []
        self._locks = {}  # of each connection: what two threads send must not mix
        self._listener = socket.create_server(("127.0.0.1", port))
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self):
        self._listener.close()
        self.reading.set()
        self.drop_all()

    def drop_all(self):
        """Closes every connection without a word."""
        for connection in self._sockets:
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)

    def send_all(self, data):
        """Sends these bytes on every connection that is open, whatever they mean."""
        for connection in self._sockets:
            if connection.fileno() >= 0:
                with contextlib.suppress(OSError):  # dropped, and not closed by its thread yet
                    self._send(connection, data)

    def publish(self, topic, payload=b"", qos=0, identifier=1, retain=False):
        self.send_all(publish_packet(topic, payload, qos, identifier, retain))

    def acknowledge_now(self):
        """Acknowledges from now on, and what has been waiting as well."""
        with self._acknowledging:
            self.acknowledge = True
            waiting, self._unacknowledged = self._unacknowledged, []
        for connection, publish in waiting:
            with contextlib.suppress(OSError):
                self._answer_publish(connection, publish)

    def on(self, topic):
        return [publish for publish in self.publishes if publish.topic == topic]

    def _accept(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self._listener.accept()
                self._locks[connection] = threading.Lock()
                self._sockets.append(connection)
                self.connections += 1  # whoever has waited for it can drop it
                threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _send(self, connection, data):
        with self._locks[connection]:
            connection.sendall(data)

    def _serve(self, connection):
        try:
            if self._tls:
                connection = self._tls.wrap_socket(connection, server_side=True)
                self._locks[connection] = threading.Lock()
                self.ciphers.append(connection.cipher()[:2])
            if self.hang_up_at_once:
                return
            self._send(connection, self.greeting)
            while self.silent:
                if not connection.recv(4096):
                    return
            while packet := self._read_packet(connection):
                if not self._handle(connection, *packet):
                    return
                self.reading.wait()
        except (OSError, ssl.SSLError) as error:
            self.errors.append(str(error))
        finally:
            self.closed += 1
            connection.close()

    def _read_packet(self, connection):
        head = connection.recv(1)
        if not head:
            return None
        length = shift = 0
        while True:
            byte = self._read(connection, 1)[0]
            length |= (byte & 0x7F) << shift
            shift += 7
            if not byte & 0x80:
                return head[0] >> 4, head[0] & 0x0F, self._read(connection, length)

    @staticmethod
    def _read(connection, size):
        data = b""
        while len(data) < size:
            part = connection.recv(size - len(data))
            if not part:
                raise ConnectionError("closed in mid-packet")
            data += part
        return data

    def _handle(self, connection, kind, flags, body):
        self.packets.append(kind)
        if kind == CONNECT:
            return self._on_connect(connection, decode_connect(body))
        if kind == PUBLISH:
            publish = decode_publish(flags, body)
            self.publishes.append(publish)
            return self._on_publish(connection, publish)
        if kind == PUBREL:
            self._send_short(connection, PUBCOMP, body)
        elif kind == PINGREQ:
            self._send(connection, bytes([PINGRESP << 4, 0]))
        elif kind == SUBSCRIBE:
            return self._on_subscribe(connection, decode_subscribe(body))
        elif kind in (PUBACK, PUBCOMP):
            self.acknowledged.append(struct.unpack(">H", body)[0])
        elif kind == PUBREC:
            self._send(connection, bytes([PUBREL << 4 | 2, 2]) + body[:2])
        elif kind == UNSUBSCRIBE:
            self.unsubscribes.append(decode_unsubscribe(body))
            self._send_short(connection, UNSUBACK, body)
        elif kind == DISCONNECT:
            self.disconnects += 1
            return False
        return True

    def _on_connect(self, connection, connect):
        self.connects.append(connect)
        if self.hang_up or (connect.will and self.hang_up_on_wills):
            return False
        code = self.refuse or (self.refuse_wills if connect.will else 0)
        self._send(connection, bytes([CONNACK << 4, 2, int(self.session_present), code]) + self.after_connect_answer)
        return code == 0 and not self.hang_up_connected

    def _on_subscribe(self, connection, subscribe):
        self.subscribes.append(subscribe)
        codes = bytes(self._grant(topic, qos) for topic, qos in subscribe.topics)
        answer = packet(SUBACK << 4, struct.pack(">H", subscribe.identifier) + codes)
        self._send(connection, self.before_subscribe_answer)
        if self.cut_subscribe_answer:
            self._send(connection, answer[: len(answer) // 2])
            return False
        if self.answer_subscribe:
            self._send(connection, answer + self.after_subscribe_answer)
        return True

    def _grant(self, topic, qos):
        if topic in self.refused_filters:
            return 0x80
        return qos if self.grant is None else self.grant

    def _on_publish(self, connection, publish):
        if publish.qos == 0:
            return True
        if self.cut_publish_answer:
            self._send(connection, bytes([PUBACK << 4]))
            return False
        with self._acknowledging:
            if not self.acknowledge:
                self._unacknowledged.append((connection, publish))
                return True
        self._answer_publish(connection, publish)
        return True

    def _answer_publish(self, connection, publish):
        time.sleep(self.acknowledgement_delay)
        kind = PUBACK if publish.qos == 1 else PUBREC
        self._send_short(connection, kind, struct.pack(">H", publish.identifier))

    def _send_short(self, connection, kind, body):
        self._send(connection, bytes([kind << 4, 2]) + body[:2])


class _Reader:
    def __init__(self, data):
        self.data = data

    def take(self, size):
        part, self.data = self.data[:size], self.data[size:]
        return part

    def number(self, size=2):
        return int.from_bytes(self.take(size), "big")

    def block(self):
        return self.take(self.number())

    def text(self):
        return self.block().decode()


def decode_connect(body):
    reader = _Reader(body)
    protocol, level, flags, keep_alive = reader.text(), reader.number(1), reader.number(1), reader.number()
    client_id = reader.text()
    will = None
    if flags & 0x04:
        will = Will(reader.text(), reader.block(), flags >> 3 & 3, bool(flags & 0x20))
    user = reader.text() if flags & 0x80 else None
    password = reader.text() if flags & 0x40 else None
    return Connect(protocol, level, client_id, bool(flags & 0x02), keep_alive, will, user, password, time.monotonic())


def decode_publish(flags, body):
    reader = _Reader(body)
    topic, qos = reader.text(), flags >> 1 & 3
    identifier = reader.number() if qos else 0
    return Publish(topic, reader.data, qos, bool(flags & 1), bool(flags & 8), identifier, time.monotonic())


def decode_subscribe(body):
    reader = _Reader(body)
    identifier, topics = reader.number(), []
    while reader.data:
        topics.append((reader.text(), reader.number(1)))
    return Subscribe(topics, identifier, time.monotonic())


def decode_unsubscribe(body):
    reader = _Reader(body)
    identifier, topics = reader.number(), []
    while reader.data:
        topics.append(reader.text())
    return Unsubscribe(topics, identifier, time.monotonic())


def packet(head, body, announced=None):
    """`announced` is a length that the packet claims to have in place of its own."""
    length, head = len(body) if announced is None else announced, bytes([head])
    while True:
        length, digit = length >> 7, length & 0x7F
        head += bytes([digit | (0x80 if length else 0)])
        if not length:
            return head + body


def publish_packet(topic, payload=b"", qos=0, identifier=1, retain=False, announced=None):
    """A message to the client. Topic and payload may be texts or bytes, and then anything at all."""
    name, content = (part.encode() if isinstance(part, str) else part for part in (topic, payload))
    body = struct.pack(">H", len(name)) + name + (struct.pack(">H", identifier) if qos else b"")
    return packet(PUBLISH << 4 | qos << 1 | int(retain), body + content, announced)


def tls_context(server):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(server.certificate, server.key)
    return context


def tls12_context(server, ciphers, dh_parameters=None):
    """A listener that knows nothing newer than TLS 1.2. Without parameters it can't do DHE."""
    context = tls_context(server)
    context.maximum_version = ssl.TLSVersion.TLSv1_2
    context.set_ciphers(ciphers)
    if dh_parameters:
        context.load_dh_params(dh_parameters)
    return context
