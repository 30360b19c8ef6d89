"""What a run tells while it goes on, and what the service's process costs meanwhile."""

import pathlib
import re
import time
from typing import NamedTuple

from support.waiting import wait_until


class Report:
    """Lines with the run's name and its age, at most one in a few seconds for those that tell of progress."""

    PROGRESS_SECONDS = 5

    def __init__(self, name):
        self._name = name
        self._begin = time.monotonic()
        self._next_progress = self._begin

    def seconds(self):
        return time.monotonic() - self._begin

    def say(self, text):
        print(f"{self._name:<22} {self.seconds():7.1f} s  {text}", flush=True)

    def progress(self, text):
        if time.monotonic() >= self._next_progress:
            self.say(text)
            self._next_progress = time.monotonic() + self.PROGRESS_SECONDS


class Cost(NamedTuple):
    """What a process holds."""

    memory: int  # KiB of its own: what it shares grows while the journal of tag memory fills up
    threads: int
    sockets: int

    @classmethod
    def of(cls, service):
        status = pathlib.Path(f"/proc/{service.pid}/status").read_text()
        return cls(int(re.search(r"RssAnon:\s*(\d+)", status)[1]), service.threads(), service.open_sockets())

    def settled(self, service):
        """What the process holds once its threads and sockets are no more than these."""

        def is_back():
            cost = Cost.of(service)
            return cost if cost.threads <= self.threads and cost.sockets <= self.sockets else None

        return wait_until(is_back, lambda: f"what was at first, {self}; there are {Cost.of(service)}", timeout=20)

    def __str__(self):
        return f"{self.memory} KiB, {self.threads} threads, {self.sockets} sockets"


def largest_gap(moments, begin, end):
    """Between neighbours of these moments, the two ends included."""
    inside = [begin, *(moment for moment in moments if begin < moment < end), end]
    return max(later - earlier for earlier, later in zip(inside, inside[1:]))
