"""The control application of the demo's plant: runs the line, and answers what the service tells it in tags."""

import math

from plant import NO_ADDRESS
from tags import shown
from worker import Worker

RECIPES = ["lemonade", "cola", "water", "Größe L, süß"]


class ControlApplication(Worker):
    """Changes the plant's tags twice a second, and clears acknowledgement bytes and received bits."""

    def __init__(self, controller, publications, subscriptions):
        super().__init__(pause=0.5)
        self._controller = controller
        self._publications = {publication.name: publication for publication in publications}
        self._subscriptions = {subscription.identifier: subscription for subscription in subscriptions}
        self._seen = set()  # names of subscriptions whose received bit stood at the last look
        self.acknowledged = {publication.name: 0 for publication in publications}
        self.taken = {subscription.name: 0 for subscription in subscriptions}
        # Every value that a tag ever had, as it is shown; tags begin as zeros.
        self.history = {publication.name: {shown(publication.type.decode(bytes(publication.type.size)))}
                        for publication in publications}

    def step(self, number):
        self._run_the_line(number)
        self._take_acknowledgements()
        self._take_messages()

    def _run_the_line(self, number):
        recipe = RECIPES[number // 8 % len(RECIPES)]
        self._set("line speed", round(120 + 15 * math.sin(number / 5), 1))
        self._set("bottles by lane", [number * lane for lane in (3, 4, 5, 6)])
        self._set("recipe", recipe)
        self._set("emergency stop", number % 20 in (15, 16, 17))
        self._set("shift", number // 30 % 3 + 1)
        self._set("batch", {"number": number // 8 + 1, "temperature": 4.5 + number % 8 / 2, "running": number % 8 < 6,
                            "pressures": [30 + number % 5, 31, 29], "label": recipe})

    def _set(self, name, value):
        publication = self._publications[name]
        self.history[name].add(shown(value))
        self._controller.write(publication.address, publication.type.encode(value))

    def _take_acknowledgements(self):
        for publication in self._publications.values():
            if publication.acknowledgement == NO_ADDRESS:
                continue
            if self._controller.read(publication.acknowledgement, 1) != b"\0":
                self.acknowledged[publication.name] += 1
                self._controller.write(publication.acknowledgement, b"\0")

    def _take_messages(self):
        """Clears a received bit at the second look at it, so that people see it as well."""
        for identifier, record in self._controller.subscription_records().items():
            subscription = self._subscriptions.get(identifier)
            if not subscription or not record["receivedBit"]:
                continue
            if subscription.name not in self._seen:
                self._seen.add(subscription.name)
                continue
            self._seen.remove(subscription.name)
            self.taken[subscription.name] += 1
            self._controller.clear_received_bit(subscription.record)
