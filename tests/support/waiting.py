"""Waiting for things to happen, and watching that they don't: polls with a deadline, in place of bare sleeps."""

import time

from support import build

POLL_INTERVAL = 0.02


def wait_until(condition, what, timeout=10.0):
    """Polls `condition` until it gives something true, and returns that. Fails with `what` after `timeout` seconds."""
    limit = timeout * build.time_factor()
    deadline = time.monotonic() + limit
    while True:
        is_last_look = time.monotonic() > deadline
        result = condition()
        if result:
            return result
        if is_last_look:
            raise AssertionError(f"waited {limit:g} s in vain: {what() if callable(what) else what}")
        time.sleep(POLL_INTERVAL)


def holds_for(condition, what, seconds):
    """Fails with `what` as soon as `condition` is not true within the next `seconds`."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        # One that was looked at too late doesn't count.
        assert condition() or time.monotonic() >= deadline, f"did not last: {what() if callable(what) else what}"
        time.sleep(POLL_INTERVAL)
