"""The service's rolling log, read by its own rules: nine columns, the message in quotes with every quote doubled."""

import datetime
import pathlib
import re
from typing import NamedTuple

FILE = pathlib.Path("/tmp/cStdErr.csv")
OLDER_FILE = pathlib.Path("/tmp/cStdErr.1.csv")
LARGEST_FILE = 1572864

BYTE_ORDER_MARK = b"\xef\xbb\xbf"
HEADER = b"sep=;\nDate;Time;Severity;TID;Process;Function;File;Line;Message\n"

# A message may hold line feeds, so a row ends at the first line feed outside its quotes.
ROW = re.compile(
    r"(?P<date>\d{4}/\d\d/\d\d);(?P<time>\d\d:\d\d:\d\d\.\d{3});(?P<severity>[A-Z]+);(?P<thread>\d+);"
    r'(?P<process>[^;\n]*);(?P<function>[^;\n]*);(?P<file>[^;\n]*);(?P<line>\d+);"(?P<message>(?:[^"]|"")*)"\n'
)


class Row(NamedTuple):
    date: str
    time: str
    severity: str
    thread: int
    process: str
    function: str
    file: str
    line: int
    message: str

    @property
    def moment(self):
        """Seconds, by the service's clock and as the thread saw it that wrote the row."""
        return datetime.datetime.strptime(f"{self.date} {self.time}", "%Y/%m/%d %H:%M:%S.%f").timestamp()


def parse(data):
    """The rows of one log file. A last row that is still being written is left out; anything else odd is an error."""
    assert data.startswith(BYTE_ORDER_MARK + HEADER), data[:120]
    text = data[len(BYTE_ORDER_MARK + HEADER) :].decode("utf-8", errors="replace")
    rows, at = [], 0
    while at < len(text):
        match = ROW.match(text, at)
        if not match:
            assert text.count("\n", at) == 0 or text.find('";', at) < 0, f"no log row: {text[at:at + 300]!r}"
            break
        fields = match.groupdict()
        fields.update(thread=int(fields["thread"]), line=int(fields["line"]))
        fields["message"] = fields["message"].replace('""', '"')
        rows.append(Row(**fields))
        at = match.end()
    return rows


def rows():
    """All rows that are there, the older file's first."""
    found = []
    for file in (OLDER_FILE, FILE):
        if file.exists():
            found += parse(file.read_bytes())
    return found


def messages(severity=None):
    return [row.message for row in rows() if severity in (None, row.severity)]


def has_message(text, severity=None):
    """Whether a row's message holds `text`."""
    return any(text in message for message in messages(severity))
