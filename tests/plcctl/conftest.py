"""Runs the built plcctl inside a controller of its own, one for each test. BUILD_DIR selects the build."""

import json
import os
import pathlib
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

from support import build  # noqa: E402

CONFIGURATION = pathlib.Path("VEL", "UserApps", "Config", "MQTT")

# wait_for polls: a script never sleeps and hopes.
PREAMBLE = """
PATH=$(dirname "$PLCCTL"):$PATH
wait_for() { for attempt in $(seq 500); do "$@" && return; sleep 0.02; done; echo "gave up: $*" >&2; exit 99; }
"""


class Result:
    def __init__(self, finished):
        self.status = finished.returncode
        self.text = finished.stdout.decode()
        self.lines = self.text.splitlines()
        self.errors = finished.stderr.decode(errors="replace")

    @property
    def objects(self):
        return [json.loads(line) for line in self.lines]


class Controller:
    def __init__(self, root):
        self.root = root
        self.configuration = root / CONFIGURATION
        self.configuration.mkdir(parents=True)
        (root / "etc" / "CA_Certificates").mkdir(parents=True)

    def write(self, name, text):
        (self.configuration / name).write_text(text, encoding="utf-8")

    def run(self, script, **variables):
        """Runs the shell script; all of one script's commands share one tag memory and one queue."""
        binds = []
        if not build.DIRECTORY.is_relative_to(build.REPOSITORY):
            binds = ["--ro-bind", str(build.DIRECTORY), str(build.DIRECTORY)]
        finished = subprocess.run(
            [build.SANDBOX, *binds, self.root, "--", "sh", "-c", PREAMBLE + script],
            env=os.environ | {"PLCCTL": str(build.DIRECTORY / "bin" / "plcctl"), "TZ": "UTC"} | variables,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            check=False,
        )
        result = Result(finished)
        for finding in build.SANITIZER_FINDINGS:
            assert finding not in result.errors, result.errors
        return result


@pytest.fixture
def controller(tmp_path):
    return Controller(tmp_path)


@pytest.fixture
def plant(controller):
    """A controller with configuration files whose records lie at known positions."""
    controller.write(
        "MQTTClientConf.xml",
        '<ClientConf Version="1.0"><General Addr="1024"/><Statistics Addr="1536"/></ClientConf>',
    )
    controller.write(
        "Brokers.xml",
        """<BrokersConf Version="1.0"><Brokers>
        <BrokerConf ID="1" Name="plant" IPOrURL="127.0.0.1" Port="1883" BrokerAddr="4096" LastWillAddr="-1"/>
        <BrokerConf ID="2" Name="cloud" IPOrURL="cloud.example" Port="8883" BrokerAddr="4100" LastWillAddr="-1"/>
        </Brokers></BrokersConf>""",
    )
    controller.write(
        "Publications.xml",
        """<PublicationsConf Version="1.0"><Publications>
        <PublicationConf ID="7" Name="level" DataAddr="3000" DataType="8" Ent="0" BrokerReceivedAddr="3100"/>
        </Publications></PublicationsConf>""",
    )
    controller.write(
        "Subscriptions.xml",
        """<SubscriptionsConf Version="1.0"><Subscriptions>
        <SubscriptionConf ID="3" Name="setpoint" DataAddr="8192" DataType="8" Ent="4" SubAddr="9000"/>
        </Subscriptions></SubscriptionsConf>""",
    )
    return controller
