"""The exit statuses that scripts rely on."""

DONE, FAILED, USAGE, NOTHING_TO_READ = 0, 1, 2, 3
