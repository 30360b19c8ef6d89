"""The exit statuses that scripts rely on."""

DONE, FAILED, USAGE, NOTHING_TO_READ, NO_ANSWER, NOT_SENT = 0, 1, 2, 3, 4, 5
