"""The recipes of the documents, run as they stand there: what a reader types has to work."""

import os
import pathlib
import re
import shutil
import subprocess
import textwrap

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
BUILD = REPOSITORY / os.environ.get("BUILD_DIR", "build/release")

# What the text says in words: start the service and look. The reader's controller has links and a queue.
LOOK = """
BIN={bin}
$BIN/plcctl link up >/dev/null
$BIN/plcctl queue create >/dev/null
$BIN/MQTTClientManager >/dev/null 2>&1 &
for i in $(seq 300); do
    $BIN/plcctl status --json > status
    grep -q '"connected": *\\(1\\|true\\)' status && break
    sleep 0.1
done
echo STATUS
cat status
"""


def commands(page):
    """The indented blocks of the recipe, one after the other, with this build's programs."""
    text = (REPOSITORY / "docs" / page).read_text(encoding="utf-8")
    recipe = re.search(r"<!-- begin recipe -->(.*)<!-- end recipe -->", text, re.DOTALL)
    blocks = re.findall(r"(?:^ {4}.*\n|^\n(?= {4}))+", recipe.group(1), re.MULTILINE)
    return "".join(map(textwrap.dedent, blocks)).replace("$PWD/build/release", str(BUILD))


def run_in_controller(tmp_path, script):
    """Runs a script in a controller of its own, with the sample plant; gives all that it printed."""
    controller = tmp_path / "controller"
    shutil.copytree(REPOSITORY / "Platform" / "DeviceRoot", controller)
    outside = [] if BUILD.is_relative_to(REPOSITORY) else ["--ro-bind", str(BUILD), str(BUILD)]
    sandbox = [str(REPOSITORY / "scripts" / "sandbox"), *outside, str(controller), "--"]
    finished = subprocess.run(
        [*sandbox, "bash", "-ec", script],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=240, check=False,
    )  # fmt: skip
    assert finished.returncode == 0, finished.stdout
    return finished.stdout


def test_tls_recipe_ends_in_a_connection(tmp_path):
    script = f"mkdir /tmp/work && cd /tmp/work\n{commands('operation.md')}{LOOK.format(bin=BUILD / 'bin')}"
    output = run_in_controller(tmp_path, script)
    # The broker takes the name from the certificate, so it is the certificate that has let the service in.
    assert re.search(r"New client connected from \S+ as bottling-line-1 .*u'press-1'", output), output
    assert re.search(r'"connected": *(1|true)', output.partition("STATUS")[2]), output


def test_first_steps_pass_messages_and_change_the_configuration(tmp_path):
    output = run_in_controller(tmp_path, f"cd {REPOSITORY}\n{commands('first-steps.md')}")
    assert re.search(r'^\{"number":\d+,.*\}$', output, re.MULTILINE), output
    assert re.search(r"^plant/bottling-1/speed 0000C742$", output, re.MULTILINE), output
    assert "Hello, line" in output.splitlines(), output
    assert "plant/line-1/speed with QoS 1" in output, output
