"""The checks of one broker, inside its sandbox."""

import json
import traceback

from brokers import checks
from brokers.expected import NOT_OFFERED
from brokers.makes import MAKES
from brokers.partner import issue_certificates
from brokers.rig import TRANSPORTS, Rig
from support import device

# A result that is none of a failure's texts.
PASSED = ""


def cells():
    """(name of the result, door, check) of all cells of a column, in the table's order."""
    for name, check in checks.ENTRIES.items():
        yield name, check.door, check
    for transport in TRANSPORTS:
        for name, check in checks.FEATURES.items():
            yield f"{transport}/{name}", transport, check


def run(make, only, tell, trace):
    """Runs the checks whose names hold `only`; `tell` gets each result's name and its failure, empty for none."""
    partner = MAKES[make].partner(issue_certificates())
    try:
        for name, door, check in cells():
            if only in name and name.rpartition("/")[2] not in NOT_OFFERED[make]:
                tell(name, attempt(partner, door, check, trace))
    finally:
        partner.stop()


def attempt(partner, door, check, trace):
    rig = Rig(partner, door)
    try:
        check.run(rig, *check.arguments)
        findings = device.sanitizer_findings()
        assert not findings, findings
        return PASSED
    except Exception as error:  # whatever it is, it is the cell's content
        if trace:
            traceback.print_exc()
            print(json.dumps(device.traces(), indent=1))
        return str(error) or repr(error)
    finally:
        rig.close()
