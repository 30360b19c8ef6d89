"""Checking a configuration: what is printed, the exit status, hostile files, and the files that brokers name."""

import json
import re
import shutil
import subprocess

import pytest
from exitstatus import DONE, FAILED, NOTHING_TO_READ, USAGE
from support import build

CONFIGURATION = "/VEL/UserApps/Config/MQTT"
NOTHING = '<{0}Conf Version="1.0"><{0}></{0}></{0}Conf>\n'

BROKER = {
    "ID": 1, "Name": "plant", "BrokerAddr": 1088, "AutoConnect": 1, "ConnectionInterval": 5, "IPOrURL": "127.0.0.1",
    "Port": 1883, "EncryptionType": 0, "UserName": "", "Password": "", "ClientID": "line", "CleanSession": 1,
    "KeepAlive": 30, "LastWillTopic": "", "LastWillAddr": -1, "DataType": 0,
}  # fmt: skip


def brokers_xml(*brokers):
    elements = "\n".join(
        "<BrokerConf " + " ".join(f'{name}="{value}"' for name, value in broker.items()) + "/>" for broker in brokers
    )
    return f'<BrokersConf Version="1.0">\n<Brokers>\n{elements}\n</Brokers>\n</BrokersConf>\n'


@pytest.fixture
def device(controller):
    """A configuration without a finding, outside a whole device's tree."""
    controller.write(
        "MQTTClientConf.xml",
        '<ClientConf Version="1.0">\n<General Addr="1024"/>\n<Statistics Addr="1040"/>\n</ClientConf>\n',
    )
    controller.write("Brokers.xml", brokers_xml(BROKER))
    controller.write("Subscriptions.xml", NOTHING.format("Subscriptions"))
    controller.write("Publications.xml", NOTHING.format("Publications"))
    return controller


def check(device, *arguments):
    return device.run(f"plcctl check {' '.join(arguments)}")


def rules(device, *arguments):
    """(file, line, column, severity, rule) of each finding."""
    (result,) = check(device, "--json", *arguments).objects
    return [
        (one["file"].rpartition("/")[2], one["line"], one["column"], one["severity"], one["rule"])
        for one in result["findings"]
    ]


def test_configuration_without_findings_prints_none(device):
    result = check(device)
    assert (result.status, result.text) == (DONE, "")
    assert result.errors == f"plcctl: 0 errors, 0 warnings in {CONFIGURATION}\n"


def test_findings_are_printed_in_order_with_file_line_and_column(device):
    device.write("Brokers.xml", brokers_xml(BROKER | {"Port": "x", "KeepAlive": 0}))
    device.write("MQTTClientConf.xml", '<ClientConf Version="1.0">\n<General Addr="1024"/>\n</ClientConf>\n')
    result = check(device)
    assert result.status == FAILED
    starts = [line.split(": ")[:2] for line in result.lines]
    line = brokers_xml(BROKER | {"Port": "x", "KeepAlive": 0}).splitlines()[2]
    assert starts == [
        [f"{CONFIGURATION}/MQTTClientConf.xml:1:1", "error"],
        [f"{CONFIGURATION}/Brokers.xml:3:{line.index('Port=') + 1}", "error"],
        [f"{CONFIGURATION}/Brokers.xml:3:{line.index('KeepAlive=') + 1}", "warning"],
    ]
    assert result.lines[1].endswith("the service takes 0; write a number from 1 to 65535 [no-number]")
    assert result.errors == f"plcctl: 2 errors, 1 warning in {CONFIGURATION}\n"


def test_warnings_alone_fail_in_strict_mode_only(device):
    device.write("Brokers.xml", brokers_xml(BROKER | {"KeepAlive": 0}))
    assert check(device).status == DONE
    assert check(device, "--strict").status == FAILED
    assert check(device, "--strict", "--ignore", "no-keep-alive").status == DONE


def test_json_has_the_findings_and_their_numbers(device):
    device.write("Brokers.xml", brokers_xml(BROKER | {"Port": 0}))
    result = check(device, "--json")
    assert result.status == FAILED
    (report,) = result.objects
    (finding,) = report["findings"]
    assert (report["directory"], report["errors"], report["warnings"]) == (CONFIGURATION, 1, 0)
    assert finding["file"] == f"{CONFIGURATION}/Brokers.xml"
    assert (finding["line"], finding["severity"], finding["rule"]) == (3, "error", "out-of-range")


def test_time_that_is_none_is_a_usage_error(device):
    assert check(device, "--at", "tomorrow").status == USAGE


@pytest.mark.parametrize("directory", ["/nowhere", "/tmp"])
def test_without_any_file_there_is_nothing_to_read(device, directory):
    assert check(device, directory).status == NOTHING_TO_READ


@pytest.mark.parametrize("name", ["MQTTClientConf.xml", "Brokers.xml", "Subscriptions.xml", "Publications.xml"])
def test_missing_file_is_an_error(device, name):
    (device.configuration / name).unlink()
    assert (name, 1, 1, "error", "missing-file") in rules(device)


def test_directory_without_brokers_is_an_error(device):
    device.write("Brokers.xml", NOTHING.format("Brokers"))
    assert rules(device) == [("Brokers.xml", 1, 1, "error", "no-broker")]


def test_broken_file_has_the_services_words_and_the_findings_ahead_of_the_break(device):
    device.write(
        "Brokers.xml", brokers_xml(BROKER | {"Port": "x"}, BROKER | {"ID": 2}).replace("</Brokers>", "</Broker>")
    )
    result = check(device)
    assert "invalid content due to tag mismatch" in result.text
    assert [one[4] for one in rules(device)][:2] == ["no-number", "duplicate-name"]


def test_file_without_write_permission_is_an_error(device):
    (device.configuration / "Brokers.xml").chmod(0o444)
    assert rules(device) == [("Brokers.xml", 1, 1, "error", "not-writable")]


HOSTILE = {
    "pipe": "mkfifo Brokers.xml",
    "directory": "mkdir Brokers.xml",
    "device": "ln -s /dev/zero Brokers.xml",
    "huge": "truncate -s 64M Brokers.xml",
    "deep": "/usr/bin/python3 -c 'print(\"<a>\" * 100000)' > Brokers.xml",
    "entities": "echo '<!DOCTYPE a [<!ENTITY b \"bb\"><!ENTITY c \"&b;&b;\">]><a>&c;</a>' > Brokers.xml",
    "binary": "head -c 100000 /dev/urandom > Brokers.xml",
    "empty": ": > Brokers.xml",
}


@pytest.mark.parametrize("make", HOSTILE.values(), ids=HOSTILE.keys())
def test_hostile_file_is_one_error_and_no_more(device, make):
    result = device.run(f"cd {CONFIGURATION} && rm Brokers.xml && {make}; timeout 20 plcctl check")
    assert result.status == FAILED, result.errors
    assert len(result.lines) == 1
    assert f"{CONFIGURATION}/Brokers.xml:" in result.lines[0]


def test_names_from_files_do_not_command_the_terminal(device):
    device.write("Brokers.xml", brokers_xml(BROKER | {"Po\u009brt": 1, "Name": "a&#27;[2Jb", "IPOrURL": "x&#27;[2J/"}))
    result = check(device)
    assert result.status == FAILED
    assert "\x1b" not in result.text
    assert "\u009b" not in result.text


@pytest.mark.parametrize("tree", ["Platform/DeviceRoot", "Platform/SelfTest"])
def test_samples_have_no_error(tree):
    finished = subprocess.run(
        [build.DIRECTORY / "bin" / "plcctl", "check", "--json", build.REPOSITORY / tree],
        capture_output=True,
        check=False,
    )
    assert finished.returncode == DONE
    # The sample shows a filter with "#", which means a little less here than by the standard.
    assert {one["rule"] for one in json.loads(finished.stdout)["findings"]} <= {"filter-differs"}


@pytest.fixture
def tree(tmp_path_factory):
    """A copy of the sample device, to spoil, and a function that checks it from outside a sandbox."""
    root = tmp_path_factory.mktemp("tree") / "device"
    shutil.copytree(build.REPOSITORY / "Platform" / "DeviceRoot", root)

    def findings():
        finished = subprocess.run(
            [build.DIRECTORY / "bin" / "plcctl", "check", "--json", "--ignore", "filter-differs", root],
            capture_output=True,
            check=False,
        )
        return [(one["file"].rpartition("/")[2], one["rule"]) for one in json.loads(finished.stdout)["findings"]]

    return root, findings


def set_format(root, number):
    file = root / CONFIGURATION[1:] / "Publications.xml"
    file.write_text(file.read_text().replace('PayloadFormat="0"', f'PayloadFormat="{number}"', 1))


def test_missing_script_of_a_format_is_an_error(tree):
    root, findings = tree
    set_format(root, 3)
    (root / CONFIGURATION[1:] / "Protobuf" / "HandleMQTTTriggeredOp.sh").unlink()
    assert ("Publications.xml", "script") in findings()


def test_script_with_line_ends_of_windows_is_an_error(tree):
    root, findings = tree
    set_format(root, 2)
    (root / CONFIGURATION[1:] / "Protobuf" / "CreateProtobufBuffer.py").write_bytes(b"#!/usr/bin/python3\r\n")
    assert ("Publications.xml", "script") in findings()


@pytest.mark.parametrize(
    "script, file",
    [
        ("PYGetPLCSerial.py", "Publications.xml"),
        ("ValidateSystemTimeIsSet.sh", "MQTTClientConf.xml"),
    ],
)
def test_missing_script_of_the_device_is_a_warning(tree, script, file):
    root, findings = tree
    (root / "VEL" / "System" / "Config" / "Scripts" / script).unlink()
    assert findings() == [(file, "script")]


@pytest.mark.parametrize("settings", ["", "{}", '{"plcName": ""}', '{"plcName": "a/b"}', '{"plcName": "x{PLC.SN}"}'])
def test_name_of_the_device_that_is_missing_or_no_part_of_a_topic_is_told_once(tree, settings):
    root, findings = tree
    file = root / "VEL/System/Config/RetainedConfig/SystemRegistry/PlcSettings.json"
    file.write_text(settings)
    assert findings() == [("Brokers.xml", "plc-name")]


LEVELS = {
    2: {"CAFileName": "ca.pem"},
    4: {"CAFileName": "ca.pem", "ClientCertificateFileName": "own.pem", "ClientKeyFileName": "own.key"},
    5: {"CAFileName": "ca.pem", "ClientKeyFileName": "own.key", "GoogleCloudProjectID": "p", "JWTAlgorithm": "RS256"},
}
RSA = "-newkey rsa:2048"
EC = "-newkey ec -pkeyopt ec_paramgen_curve:{}"
# Files in the configuration directory as shell commands make them.
AUTHORITY = f"openssl req -x509 {EC.format('P-256')} -nodes -days 400 -subj /CN=ca -keyout ca.key -out ca.pem"
OWN = f"openssl req -x509 {RSA} -nodes -days 400 -subj /CN=own -keyout own.key -out own.pem; chmod 600 own.key"
NONE = []

FILES = {
    # level, further commands, arguments of the check, findings as (attribute, severity, rule)
    "authority": (2, "", "", NONE),
    "authority-missing": (2, "rm ca.pem", "", [("CAFileName", "error", "file")]),
    "authority-is-a-pipe": (2, "rm ca.pem; mkfifo ca.pem", "", [("CAFileName", "error", "file")]),
    "authority-is-no-pem": (2, "echo x > ca.pem", "", [("CAFileName", "error", "certificate")]),
    "authority-expired": (2, "", "--at 2100-01-01", [("CAFileName", "error", "certificate-dates")]),
    "authority-not-yet": (2, "", "--at 2001-01-01", [("CAFileName", "error", "certificate-dates")]),
    "authority-ends-soon": (
        2, "", "--at $(date -u -d '+380 days' +%Y-%m-%d)", [("CAFileName", "warning", "certificate-dates")],
    ),
    "no-authority": (
        2,
        f"openssl req -x509 {RSA} -nodes -days 400 -subj /CN=x -addext basicConstraints=critical,CA:false "
        "-keyout x.key -out ca.pem", "", [("CAFileName", "warning", "no-authority")],
    ),
    "client-certificate": (4, "", "", NONE),
    "client-key-of-another": (4, "cp ca.key own.key", "", [("ClientKeyFileName", "error", "key-mismatch")]),
    "client-key-with-passphrase": (
        4, "openssl pkey -in own.key -aes128 -passout pass:x -out n.key; cp n.key own.key", "",
        [("ClientKeyFileName", "error", "key-passphrase")],
    ),
    "client-key-is-a-certificate": (4, "cp own.pem own.key", "", [("ClientKeyFileName", "error", "key")]),
    "client-key-for-everybody": (4, "chmod 644 own.key", "", [("ClientKeyFileName", "warning", "key-readable")]),
    "client-key-too-large": (
        4, "head -c 70000 /dev/zero >> own.key", "", [("ClientKeyFileName", "error", "file")],
    ),
    "client-certificate-for-servers": (
        4,
        f"openssl req -x509 {RSA} -nodes -days 400 -subj /CN=own -addext extendedKeyUsage=serverAuth "
        "-keyout own.key -out own.pem", "", [("ClientCertificateFileName", "warning", "certificate-purpose")],
    ),
    "short-rsa-key": (
        4, "openssl req -x509 -newkey rsa:1024 -nodes -days 400 -subj /CN=own -keyout own.key -out own.pem", "",
        [("ClientKeyFileName", "warning", "key-length")],
    ),
    "token": (5, "", "", NONE),
    "token-of-the-wrong-kind": (5, "cp ca.key own.key", "", [("ClientKeyFileName", "error", "key-type")]),
    "token-of-the-right-curve": (5, "cp ca.key own.key; sed -i s/RS256/ES256/ Brokers.xml", "", NONE),
    "token-of-another-curve": (
        5,
        f"openssl req -x509 {EC.format('P-384')} -nodes -subj /CN=x -keyout own.key -out x.pem; "
        "sed -i s/RS256/ES256/ Brokers.xml", "", [("ClientKeyFileName", "error", "key-type")],
    ),
}  # fmt: skip


@pytest.mark.parametrize("level, commands, arguments, expected", FILES.values(), ids=FILES.keys())
def test_files_that_brokers_name(device, level, commands, arguments, expected):
    broker = BROKER | {"EncryptionType": level, "Port": 8883} | LEVELS[level]
    device.write("Brokers.xml", brokers_xml(broker))
    make = f"({AUTHORITY}; {OWN}; {commands or 'true'}) >/dev/null 2>&1"
    if "chmod 644" not in commands:
        make += "; chmod 600 own.key"
    result = device.run(f"cd {CONFIGURATION}; {make}; plcctl check --json {arguments}")
    line = (device.configuration / "Brokers.xml").read_text().splitlines()[2]
    (report,) = result.objects
    found = [(one["line"], one["column"], one["severity"], one["rule"]) for one in report["findings"]]
    assert found == [
        (3, line.index(f" {attribute}=") + 2, severity, rule) for attribute, severity, rule in expected
    ], report


def test_candidates_of_level_4_are_looked_at(tree):
    root, findings = tree
    file = root / CONFIGURATION[1:] / "Brokers.xml"
    file.write_text(file.read_text().replace('EncryptionType="2"', 'EncryptionType="4"'))
    assert ("Brokers.xml", "candidates") in findings()
    shutil.copy(root / CONFIGURATION[1:] / "headquarters-ca.pem", root / "etc" / "CA_Certificates" / "next.pem")
    assert ("Brokers.xml", "candidates") not in findings()
    (root / "etc" / "CA_Certificates" / "other.crt").write_text("no certificate")
    assert ("Brokers.xml", "candidates") in findings()


def test_every_rule_is_documented_and_every_documented_rule_exists():
    page = (build.REPOSITORY / "docs" / "checking.md").read_text(encoding="utf-8")
    rows = [line.split("|")[1] for line in page.partition("## Rules")[2].splitlines() if line.startswith("| `")]
    documented = {rule for row in rows for rule in re.findall(r"`([a-z0-9-]+)`", row)}
    sources = "".join(file.read_text() for file in (build.REPOSITORY / "Tools" / "plcctl" / "check").glob("*.cpp"))
    texts = set(re.findall(r'"([a-z0-9-]+)"', sources))
    # What isn't documented is no rule, but for words that stand in other texts.
    assert documented <= texts
    hyphenated = {text for text in texts if re.fullmatch(r"[a-z]+(-[a-z0-9]+)+", text)}
    assert hyphenated <= documented
