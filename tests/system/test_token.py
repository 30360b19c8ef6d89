"""The signed token of encryption level 5: what a broker gets as password, and what the log tells."""

import base64
import json
import os
import pathlib
import re
import subprocess
import time

import pytest

from support import certs, configuration, csvlog
from support.configuration import broker
from support.device import VERBOSE
from support.mosquitto import TLS_PORT
from support.records import BrokerStatus
from support.scriptedbroker import tls_context
from support.waiting import holds_for, wait_until

KEY = configuration.DIRECTORY / "device.key"
CONNECTED = BrokerStatus(1, 0, 0)
KEY_OPTIONS = {
    "RS256": ["-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048"],
    "ES256": ["-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256"],
}


def openssl(*arguments):
    return subprocess.run(["openssl", *map(str, arguments)], capture_output=True)


def make_key(algorithm):
    """A private key at KEY; its public one is /tmp/public.pem."""
    KEY.parent.mkdir(parents=True, exist_ok=True)
    assert openssl("genpkey", *KEY_OPTIONS[algorithm], "-out", KEY).returncode == 0
    assert openssl("pkey", "-in", KEY, "-pubout", "-out", "/tmp/public.pem").returncode == 0


def decode(part):
    return base64.urlsafe_b64decode(part + "=" * (-len(part) % 4))


def header(token):
    return json.loads(decode(token.split(".")[0]))


def claims(token):
    return json.loads(decode(token.split(".")[1]))


def asn1(tag, content):
    return bytes([tag, len(content)]) + content


def asn1_signature(raw):
    """An elliptic signature in the form that openssl takes: two numbers, without leading zeros and not negative."""
    numbers = (int.from_bytes(half, "big") for half in (raw[:32], raw[32:]))
    return asn1(0x30, b"".join(asn1(2, number.to_bytes(number.bit_length() // 8 + 1, "big")) for number in numbers))


def is_signed(token, algorithm):
    text, _, signature = token.rpartition(".")
    raw = decode(signature)
    pathlib.Path("/tmp/signed").write_text(text)
    pathlib.Path("/tmp/signature").write_bytes(raw if algorithm == "RS256" else asn1_signature(raw))
    verify = ["dgst", "-sha256", "-verify", "/tmp/public.pem", "-signature", "/tmp/signature", "/tmp/signed"]
    return openssl(*verify).returncode == 0


def token_broker(algorithm="RS256", **attributes):
    own = {
        "EncryptionType": 5,
        "Port": TLS_PORT,
        "CAFileName": "ca.crt",
        "ClientKeyFileName": KEY.name,
        "GoogleCloudProjectID": "plant-7",
        "JWTAlgorithm": algorithm,
        "UserName": "anna",
        "Password": "secret",
    }
    return broker(**(own | attributes))


@pytest.fixture
def partner(device, scripted):
    """A TLS broker whose certificate is right, and which takes any password."""
    return scripted(TLS_PORT, tls=tls_context(certs.Authority("ca").issue("server")))


def password_of(device, partner, *arguments, **attributes):
    """Starts the service and returns the password that the broker got; the connection is made whatever it is."""
    device.configure(brokers=[token_broker(**attributes)])
    device.run(*arguments)
    assert device.broker() == CONNECTED
    assert [connect.user for connect in partner.connects] == ["unused"]
    return partner.connects[0].password


def tokens_in_log():
    return re.findall(r"JWT: \[(\S+)\]", "\n".join(csvlog.messages("INFO")))


def errors_of_token():
    return [row.message for row in csvlog.rows() if row.severity == "ERROR" and row.function.endswith("CreateJwt")]


@pytest.mark.parametrize("algorithm", KEY_OPTIONS)
def test_password_is_a_token_that_another_tool_verifies(device, partner, algorithm):
    make_key(algorithm)
    before = int(time.time())
    token = password_of(device, partner, algorithm=algorithm)
    assert header(token) == {"alg": algorithm, "typ": "JWT"}
    assert is_signed(token, algorithm)
    assert not is_signed(token.replace(".", ".A", 1), algorithm)
    content = claims(token)
    issued = int(content["iat"])
    assert before <= issued <= time.time()
    assert content == {"iat": str(issued), "exp": str(issued + 3600), "aud": "plant-7"}


def test_log_shows_each_step_and_the_token(device, partner):
    make_key("RS256")
    token = password_of(device, partner, *VERBOSE)
    issued = claims(token)["iat"]
    rows = csvlog.rows()
    first = next(n for n, row in enumerate(rows) if row.message == "Encryption level is 'SSL CA AND PRIVATE_KEY'")
    steps = [(row.severity, row.message) for row in rows[first + 1 : first + 6]]
    severity, dump = steps.pop(3)
    assert severity == "DEBUG"
    assert dump.startswith("jwt object: ") and '"aud": "plant-7"' in dump
    assert steps == [
        ("DEBUG", "FIRED"),
        ("DEBUG", f"IAT: {issued}, EXP: {int(issued) + 3600}"),
        ("DEBUG", "RS256"),
        ("INFO", f"JWT: [{token}]"),
    ]


def test_log_shows_the_token_also_without_verbose(device, partner):
    make_key("RS256")
    token = password_of(device, partner)
    assert csvlog.messages("INFO").count(f"JWT: [{token}]") == 1


def make_nothing():
    pass


def make_unreadable():
    make_key("RS256")
    KEY.chmod(0)
    with pytest.raises(PermissionError):
        KEY.open("rb")


def make_pipe():
    os.mkfifo(KEY)


def make_directory():
    KEY.mkdir()


def make_endless():
    KEY.symlink_to("/dev/zero")


def make_huge():
    with KEY.open("wb") as file:
        file.truncate(1 << 40)


UNREADABLE = [make_nothing, make_unreadable, make_pipe, make_directory, make_endless, make_huge]


@pytest.mark.parametrize("make", UNREADABLE, ids=lambda make: make.__name__)
def test_key_file_that_cannot_be_read_leaves_an_empty_password(device, partner, make):
    make()
    assert password_of(device, partner) == ""
    assert errors_of_token() == [f"Could not open file: {KEY}"]
    assert not csvlog.has_message("JWT: [")


@pytest.mark.parametrize("algorithm, other", [("RS256", "ES256"), ("ES256", "RS256")])
def test_key_of_the_wrong_kind_leaves_no_password(device, partner, algorithm, other):
    make_key(other)
    assert password_of(device, partner, algorithm=algorithm) is None
    assert errors_of_token() == ["Error during token creation: Invalid argument"]
    assert "JWT: [(null)]" in csvlog.messages("INFO")


def test_key_with_a_passphrase_leaves_no_password(device, partner):
    make_key("RS256")
    plain = KEY.rename(KEY.with_name("plain.key"))
    assert openssl("pkey", "-in", plain, "-aes128", "-passout", "pass:secret", "-out", KEY).returncode == 0
    assert password_of(device, partner) is None
    assert errors_of_token() == ["Error during token creation: Required key not available"]


@pytest.mark.parametrize("algorithm", ["rs256", "HS256", ""])
def test_unknown_algorithm_leaves_an_unsigned_token(device, partner, algorithm):
    make_key("RS256")
    token = password_of(device, partner, algorithm=algorithm)
    assert header(token)["alg"] == "none"
    assert claims(token)["aud"] == "plant-7"
    assert token.endswith(".")
    assert csvlog.has_message("Error during set alg: 22", "ERROR")


def test_audience_that_is_longer_than_any_password_is_left_out(device, partner):
    make_key("RS256")
    token = password_of(device, partner, GoogleCloudProjectID="x" * 1_000_000)
    assert is_signed(token, "RS256")
    assert set(claims(token)) == {"iat", "exp"}


def test_audience_may_be_any_text(device, partner):
    make_key("ES256")
    token = password_of(device, partner, algorithm="ES256", GoogleCloudProjectID='Größe "L" & 🙂 %1')
    assert is_signed(token, "ES256")
    assert claims(token)["aud"] == 'Größe "L" & 🙂 %1'


def test_token_is_made_also_without_a_link(device, partner):
    make_key("RS256")
    device.tags.set_link(False, False)
    device.configure(brokers=[token_broker()])
    device.run()
    assert device.broker() == BrokerStatus(0, 0, -11)
    assert csvlog.has_message("JWT: [ey", "INFO")
    assert partner.connections == 0


def test_refused_token_is_followed_by_a_new_one(device, partner):
    make_key("ES256")
    partner.refuse = 5
    device.configure(brokers=[token_broker("ES256")])
    device.run()
    assert device.broker() == BrokerStatus(0, 0, 5)
    partner.refuse = 0
    device.wait_connected()
    tokens = list(dict.fromkeys(connect.password for connect in partner.connects))
    assert len(tokens) >= 2
    assert all(is_signed(token, "ES256") for token in tokens)


def test_connection_that_the_broker_ends_comes_back_with_a_new_token(device, mosquitto):
    """Brokers end connections like this when their token expires."""
    make_key("ES256")
    partner = mosquitto(TLS_PORT, tls=certs.Authority("ca").issue("server"))
    device.configure(brokers=[token_broker("ES256")])
    device.run()
    assert device.broker() == CONNECTED
    first = tokens_in_log()
    partner.stop()
    wait_until(lambda: device.broker().connected == 0, "the loss")
    partner.start()
    device.wait_connected()
    assert len(re.findall(r"as plc-1 \(p2, c1, k60, u'unused'\)", partner.log())) == 2
    tokens = tokens_in_log()
    assert tokens[:1] == first and len(tokens) > 1
    assert len(set(tokens)) == len(tokens)
    assert all(is_signed(token, "ES256") for token in tokens)


def test_connection_that_the_broker_ends_stays_away_without_an_interval(device, mosquitto):
    make_key("ES256")
    partner = mosquitto(TLS_PORT, tls=certs.Authority("ca").issue("server"))
    device.configure(brokers=[token_broker("ES256", ConnectionInterval=0)])
    device.run()
    assert device.broker() == CONNECTED
    partner.stop()
    device.wait_code(-13)
    partner.start()
    holds_for(lambda: device.broker() == BrokerStatus(0, 0, -13), "the loss", seconds=3)
    assert len(tokens_in_log()) == 1
