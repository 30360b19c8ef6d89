"""A piece of cable that can be cut: connections to a broker go through it."""

import contextlib
import selectors
import socket
import threading

CHUNK = 1 << 16


class Forwarder:
    """Listens on a port of its own and forwards each connection to `target` on this machine."""

    def __init__(self, target):
        self._target = target
        self._server = socket.create_server(("127.0.0.1", 0))
        self.port = self._server.getsockname()[1]
        self._ends = set()
        self._whole = True
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        with contextlib.suppress(OSError):
            while True:
                client, _ = self._server.accept()
                if self._whole:
                    threading.Thread(target=self._forward, args=(client,), daemon=True).start()
                else:
                    client.close()

    def _forward(self, client):
        with contextlib.suppress(OSError), client, socket.create_connection(("127.0.0.1", self._target)) as broker:
            self._ends |= {client, broker}
            others = {client: broker, broker: client}
            with selectors.DefaultSelector() as selector:
                for end in others:
                    selector.register(end, selectors.EVENT_READ)
                while all(forward_chunk(key.fileobj, others[key.fileobj]) for key, _ in selector.select()):
                    pass

    def cut(self):
        """Ends what is connected, and lets nobody through until mend()."""
        self._whole = False
        for end in self._ends:
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)
        self._ends.clear()

    def mend(self):
        self._whole = True

    def close(self):
        self._server.close()
        self.cut()


def forward_chunk(source, target):
    data = source.recv(CHUNK)
    target.sendall(data)
    return data
