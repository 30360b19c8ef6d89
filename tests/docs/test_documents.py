"""The documents against the tree and the tool: links lead somewhere, and commands are ones that plcctl has."""

import functools
import os
import pathlib
import re
import shlex
import subprocess

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
PLCCTL = REPOSITORY / os.environ.get("BUILD_DIR", "build/release") / "bin" / "plcctl"

LISTED = subprocess.run(["git", "ls-files", "*.md"], cwd=REPOSITORY, capture_output=True, text=True, check=True)
DOCUMENTS = sorted(LISTED.stdout.split())

LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")
FENCED_BLOCK = re.compile(r"^```.*?^```", re.MULTILINE | re.DOTALL)
# Within a list, what is indented is text.
INDENTED_BLOCK = re.compile(r"(?<=\n\n)(?: {4}.*\n|\n(?= {4}))+")
IN_LINE_CODE = re.compile(r"`([^`]+)`")
HEADING = re.compile(r"^#+ +(.*?) *$", re.MULTILINE)
# What ends a command within a line of shell.
COMMAND_ENDS = {"|", "||", "&&", "&", ";", ">", ">>", "<", "2>"}


@functools.cache
def text_of(document):
    return (REPOSITORY / document).read_text(encoding="utf-8")


def blocks_of(text):
    return [match.group(0) for kind in (FENCED_BLOCK, INDENTED_BLOCK) for match in kind.finditer(text)]


def prose_of(text):
    return INDENTED_BLOCK.sub("\n", FENCED_BLOCK.sub("\n", text))


@functools.cache
def anchors(document):
    """The names that a reader's program gives to the headings."""
    return {anchor_of(heading) for heading in HEADING.findall(prose_of(text_of(document)))}


def anchor_of(heading):
    return re.sub(r"[^\w\- ]", "", re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).lower()).replace(" ", "-")


def broken_links(document):
    for link in LINK.findall(prose_of(text_of(document))):
        if re.match(r"[a-z]+:", link):
            continue
        path, _, anchor = link.partition("#")
        target = (REPOSITORY / document).parent / path if path else REPOSITORY / document
        if not target.exists():
            yield f"{link}: no such file"
        elif anchor and anchor not in anchors(os.path.relpath(target, REPOSITORY)):
            yield f"{link}: no such heading"


@pytest.mark.parametrize("document", DOCUMENTS)
def test_links_between_documents_lead_somewhere(document):
    assert list(broken_links(document)) == []


def command_lines(document):
    """The words of each plcctl command that a document shows, in blocks and within sentences."""
    text = text_of(document)
    lines = [line for block in blocks_of(text) for line in block.splitlines()] + IN_LINE_CODE.findall(prose_of(text))
    for line in lines:
        found = re.search(r"(?:^|[\s/(])plcctl +([a-z-].*)", line)
        if found and not line.lstrip().startswith("#"):
            yield words_of(found.group(1))


def words_of(command):
    lexer = shlex.shlex(command, posix=True, punctuation_chars=True)
    lexer.commenters = "#"
    words = []
    try:
        for word in lexer:
            if word in COMMAND_ENDS:
                break
            words.append(word)
    except ValueError:  # an apostrophe of prose
        pass
    return tuple(words)


@functools.cache
def help_of(*commands):
    return subprocess.run([PLCCTL, *commands, "--help"], capture_output=True, text=True, check=False).stdout


def has_command(parent, name):
    return re.search(rf"^ +{re.escape(name)}(?:\s|$)", help_of(*parent), re.MULTILINE) is not None


def has_option(commands, option):
    """Options of the commands above count too."""
    levels = [commands[:count] for count in range(len(commands) + 1)]
    return any(re.search(rf"(?<![\w-]){re.escape(option)}(?![\w-])", help_of(*level)) for level in levels)


def unknown_words(words):
    """What of a command line plcctl doesn't have: the command, or options."""
    commands = []
    for word in words:
        if not re.fullmatch(r"[a-z]+(-[a-z]+)*", word) or not has_command(commands, word):
            break
        commands.append(word)
    if not commands and not words[0].startswith("--"):
        yield f"plcctl {words[0]}"
    for word in words[len(commands) :]:
        option = word.partition("=")[0]
        if re.fullmatch(r"--[a-z][a-z-]*", option) and not has_option(tuple(commands), option):
            yield f"plcctl {' '.join(commands)} {option}"


def test_plcctl_has_the_commands_and_options_that_documents_show():
    shown = {words: document for document in DOCUMENTS for words in command_lines(document)}
    assert len(shown) > 40
    unknown = [f"{document}: {word}" for words, document in shown.items() for word in unknown_words(words)]
    assert unknown == []


def test_links_are_looked_at_in_all_of_a_document():
    text = "[a](a.md)\n\n    [b](b.md)\n\n[c](c.md)\n```\n[d](d.md)\n```\n[e](e.md)\n"
    assert LINK.findall(prose_of(text)) == ["a.md", "c.md", "e.md"]


@pytest.mark.parametrize("words", [("nonsense",), ("--nonsense",), ("tag", "get", "--nonsense")], ids=" ".join)
def test_command_that_plcctl_does_not_have_is_found(words):
    assert list(unknown_words(words)) != []


NAMED_CODE = re.compile(r"^ {4}((?:SC_AC|PS|CB|PSC|SSC)_\w+) = (-?\d+)", re.MULTILINE)
CODES = NAMED_CODE.findall((REPOSITORY / "MQTTClientManager" / "Records" / "statuscodes.h").read_text(encoding="utf-8"))


def test_every_code_has_its_row():
    rows = text_of("docs/operation.md") + text_of("docs/requests.md")
    assert len(CODES) > 25
    missing = [
        (name, number)
        for name, number in CODES
        if not re.search(rf"^\| (?:.* )?{re.escape(number)} \| `{name}` \|", rows, re.MULTILINE)
    ]
    assert missing == []
