"""plcctl diagnose against real and scripted brokers: where it stops, and what it says to do."""

import json
import ssl
import subprocess

import pytest

from support import build, certs, configuration
from support.configuration import broker, will
from support.mosquitto import TLS_PORT
from support.scriptedbroker import CONNECT, DISCONNECT, tls12_context, tls_context
from support.tags import TagMemory
from support.waiting import wait_until

PLCCTL = build.DIRECTORY / "bin" / "plcctl"
FILES = {"CAFileName": "ca.crt", "ClientCertificateFileName": "client.crt", "ClientKeyFileName": "client.key"}
MODERN_CIPHERS = "ECDHE+AESGCM:DHE+AESGCM"

DONE, FAILED = 0, 1


class Diagnosis:
    """`patience` is in seconds, for each step."""

    def __init__(self, *arguments, patience=10):
        finished = subprocess.run(
            [str(PLCCTL), "diagnose", "1", "--timeout", str(patience), "--json", *arguments],
            capture_output=True, check=False, timeout=60 * build.time_factor(), text=True,
        )  # fmt: skip
        assert finished.stderr == "", finished.stderr
        self.status = finished.returncode
        self.steps = {step["step"]: step for step in json.loads(finished.stdout)["steps"]}

    @property
    def failed(self):
        return [name for name, step in self.steps.items() if step["outcome"] == "failed"]

    def advice(self, step):
        return " ".join(self.steps[step]["advice"])

    def text(self, step):
        return " ".join([self.steps[step]["seen"], *self.steps[step]["details"]])


def diagnose(*arguments, patience=10, **attributes):
    configuration.write([broker(**attributes)])
    return Diagnosis(*arguments, patience=patience)


def diagnose_tls(level=2, **attributes):
    return diagnose(EncryptionType=level, Port=TLS_PORT, **(FILES | attributes))


def diagnose_late_verdict(level, **attributes):
    """With TLS 1.3, brokers judge a client's certificate behind the handshake, and plcctl waits a moment for that. One
    that is held up for longer is met in the next step, and asked again here."""
    for _ in range(5):
        found = diagnose_tls(level, **attributes)
        if "tls" in found.failed:
            break
    return found


def assert_stops(diagnosis, step, seen, advice):
    """Stops at this step, says what it saw and what to do, and tries nothing behind it."""
    assert diagnosis.status == FAILED
    assert diagnosis.failed == [step], diagnosis.steps
    assert seen in diagnosis.text(step), diagnosis.steps[step]
    assert advice in diagnosis.advice(step), diagnosis.steps[step]
    assert step == "mqtt" or diagnosis.steps["mqtt"]["outcome"] == "skipped"


# What works.


def test_a_broker_that_takes_the_connection_is_ok_in_every_step(mosquitto):
    partner = mosquitto()
    found = diagnose()
    assert (found.status, found.failed) == (DONE, [])
    assert "accepted as 'plc-1-diagnose', MQTT 3.1.1, without a stored session" in found.text("mqtt")
    wait_until(lambda: partner.logged("Client plc-1-diagnose disconnected"), "the goodbye")


@pytest.mark.parametrize("level", [1, 2, 4])
def test_tls_is_told_with_version_suite_and_chain(mosquitto, level):
    authority = certs.Authority("ca")
    authority.issue("client")
    mosquitto(TLS_PORT, tls=authority.issue("server"), client_authority=authority.certificate if level == 4 else None)
    found = diagnose_tls(level)
    assert (found.status, found.failed) == (DONE, [])
    assert "TLSv1.3, TLS_" in found.text("tls")
    assert "CN = 127.0.0.1, issued by CN = test authority ca, good from 20" in found.text("tls")


def test_a_token_is_checked_and_goes_out_as_password(mosquitto):
    authority = certs.Authority("ca", "rsa")
    authority.issue("client")
    partner = mosquitto(TLS_PORT, tls=authority.issue("server"))
    found = diagnose_tls(5, JWTAlgorithm="RS256", GoogleCloudProjectID="plant")
    assert (found.status, found.failed) == (DONE, [])
    assert "signed with RS256" in found.text("token")
    assert partner.logged("u'unused'")


# It leaves no trace: nothing is published, no will, no tag memory, and no session.


def test_nothing_is_published_and_the_will_is_not_sent(mosquitto, listen):
    partner = mosquitto()
    listener = listen(partner)
    found = diagnose(CleanSession=0, **will(4))
    assert found.status == DONE
    assert "the will is accepted, topic 'plc/state'" in found.text("mqtt")
    wait_until(lambda: partner.logged("Client plc-1-diagnose disconnected"), "the goodbye")
    assert partner.logged(r"plc-1-diagnose \(p2, c1")
    assert listener.received == []


def test_no_tag_memory_is_made_and_an_existing_one_stays_as_it_is(mosquitto):
    mosquitto()
    configuration.write([broker(**will(4))])
    Diagnosis()
    names = subprocess.run(["ls", "-A", "/dev/shm"], capture_output=True, check=True).stdout
    assert names == b""
    tags = TagMemory()
    tags.set_link()
    before = len(tags.journal())
    assert Diagnosis().status == DONE
    assert len(tags.journal()) == before


def test_a_running_service_keeps_its_connection(device, mosquitto):
    partner = mosquitto()
    device.configure()
    device.run()
    device.wait_connected()
    assert Diagnosis().status == DONE
    assert device.broker().connected == 1
    assert not partner.logged("already connected")


def test_the_first_packet_is_the_services_own(device, scripted):
    """All that a broker sees of the settings, with --as-service."""
    partner = scripted()
    device.tags.write(configuration.WILLS_AT, b"down\0")
    attributes = {"UserName": "anna", "Password": "öl", "KeepAlive": 33, "CleanSession": 0, "ConnectionInterval": 0}
    device.configure(brokers=[broker(**attributes, **will(4))])
    device.run()
    device.wait_connected()
    assert Diagnosis("--as-service").status == DONE
    service, diagnosis = partner.connects
    assert diagnosis._replace(time=0) == service._replace(time=0)
    wait_until(lambda: DISCONNECT in partner.packets, "the goodbye")
    assert partner.packets.count(CONNECT) == 2
    assert partner.publishes == []


# Where it stops.


def test_a_name_without_address_stops_at_the_name():
    assert_stops(diagnose(IPOrURL="nowhere.invalid"), "name", "'nowhere.invalid' has no address", "IPOrURL")


def test_a_closed_port_stops_at_tcp():
    assert_stops(diagnose(), "tcp", "Connection refused", "nothing listens on that port")


def test_a_device_without_link_is_told_and_the_rest_is_tried(device, mosquitto):
    mosquitto()
    device.tags.set_link(False, False)
    found = diagnose()
    assert (found.status, found.failed) == (FAILED, ["link"])
    assert "-11" in found.text("link")
    assert found.steps["mqtt"]["outcome"] == "ok"


def test_another_authority_stops_at_tls(mosquitto):
    certs.Authority("ca")
    mosquitto(TLS_PORT, tls=certs.Authority("other").issue("server"))
    found = diagnose_tls()
    assert_stops(found, "tls", "verification error 19", "CAFileName")
    assert "issued by CN = test authority other" in found.text("tls")


def test_an_expired_certificate_stops_at_tls(mosquitto):
    mosquitto(TLS_PORT, tls=certs.Authority("ca").issue_expired("server"))
    found = diagnose_tls()
    assert_stops(found, "tls", "certificate has expired", "clock")
    assert "EXPIRED" in found.text("tls")


def test_a_certificate_of_the_future_stops_at_tls_with_the_clock_as_cause(mosquitto):
    mosquitto(TLS_PORT, tls=certs.Authority("ca").issue_for_later("server"))
    found = diagnose_tls()
    assert_stops(found, "tls", "certificate is not yet valid", "this device's clock")
    assert "good from 2049-01-01 00:00:00 UTC to 2049-12-31 23:59:59 UTC, NOT VALID YET" in found.text("tls")


def test_a_client_certificate_of_the_future_is_told_with_the_clock_as_cause(mosquitto):
    authority = certs.Authority("ca")
    authority.issue_for_later("client")
    mosquitto(TLS_PORT, tls=authority.issue("server"), client_authority=authority.certificate)
    found = diagnose_late_verdict(4)
    assert (found.status, found.failed) == (FAILED, ["files", "tls"])
    assert "ClientCertificateFileName: the certificate is not valid yet" in found.text("files")
    assert "good from 2049-01-01 00:00:00 UTC" in found.text("files")
    assert "this device's clock" in found.advice("files")
    assert "isn't valid yet" in found.advice("tls")
    assert found.steps["mqtt"]["outcome"] == "skipped"


@pytest.mark.parametrize("file", ["CAFileName", "ClientCertificateFileName", "ClientKeyFileName"])
def test_a_missing_file_is_named(mosquitto, file):
    authority = certs.Authority("ca")
    authority.issue("client")
    mosquitto(TLS_PORT, tls=authority.issue("server"))
    found = diagnose_tls(4, **{file: "absent"})
    assert found.status == FAILED
    assert f"{file}: /VEL/UserApps/Config/MQTT/absent: No such file" in found.text("files")
    assert found.steps["mqtt"]["outcome"] == "skipped"


def test_a_key_of_another_certificate_is_told(mosquitto):
    authority = certs.Authority("ca")
    authority.issue("client")
    authority.issue("stranger")
    mosquitto(TLS_PORT, tls=authority.issue("server"), client_authority=authority.certificate)
    found = diagnose_tls(4, ClientKeyFileName="stranger.key")
    assert "files" in found.failed
    assert "the key doesn't fit" in found.text("files")


@pytest.mark.parametrize("traditional", [False, True], ids=["PKCS 8", "traditional"])
def test_a_key_with_a_passphrase_is_told_and_nobody_is_asked(mosquitto, traditional):
    authority = certs.Authority("ca")
    certs.encrypt(authority.issue("client").key, traditional)
    mosquitto(TLS_PORT, tls=authority.issue("server"), client_authority=authority.certificate)
    found = diagnose_late_verdict(4)
    assert (found.status, found.failed) == (FAILED, ["files", "tls"])
    assert "ClientKeyFileName: the key has a passphrase, and nobody is there to be asked" in found.text("files")
    assert "openssl pkey -in FILE" in found.advice("files")
    assert "mend first what the step 'files' tells" in found.advice("tls")
    assert found.steps["mqtt"]["outcome"] == "skipped"


def test_a_key_with_a_passphrase_is_told_as_no_token(mosquitto):
    authority = certs.Authority("ca")
    certs.encrypt(authority.issue("client").key)
    mosquitto(TLS_PORT, tls=authority.issue("server"))
    found = diagnose_tls(5, JWTAlgorithm="ES256")
    assert (found.status, found.failed) == (FAILED, ["token"])
    assert "ClientKeyFileName: the key has a passphrase" in found.text("token")
    assert "openssl pkey -in FILE" in found.advice("token")


def test_a_missing_client_certificate_stops_at_tls(mosquitto):
    authority = certs.Authority("ca")
    mosquitto(TLS_PORT, tls=authority.issue("server"), client_authority=authority.certificate)
    assert_stops(diagnose_late_verdict(2), "tls", "certificate required", "EncryptionType 4")


def test_a_plain_port_spoken_to_in_tls_stops_at_tls(mosquitto):
    certs.Authority("ca")
    mosquitto(TLS_PORT)
    assert_stops(diagnose_tls(2), "tls", "without TLS an MQTT broker answers", "this port speaks plain MQTT")


def test_suites_that_the_service_lacks_stop_at_tls(scripted):
    server = certs.Authority("ca", "rsa").issue("server")
    scripted(TLS_PORT, tls=tls12_context(server, MODERN_CIPHERS))
    assert_stops(diagnose_tls(2), "tls", "with other suites the handshake succeeds: TLSv1.2", "give it TLS 1.3")


def test_an_outdated_version_stops_at_tls(scripted):
    server = certs.Authority("ca", "rsa").issue("server")
    context = tls_context(server)
    context.set_ciphers("ECDHE+AES:@SECLEVEL=0")
    context.minimum_version = context.maximum_version = ssl.TLSVersion.TLSv1
    scripted(TLS_PORT, tls=context)
    assert_stops(diagnose_tls(2), "tls", "TLSv1,", "nothing newer than TLS 1.1")


@pytest.mark.parametrize("user, password", [("anna", "wrong"), ("", "")])
def test_wrong_credentials_stop_at_mqtt_with_the_brokers_code(mosquitto, user, password):
    mosquitto(users={"anna": "secret"})
    found = diagnose(UserName=user, Password=password)
    assert_stops(found, "mqtt", "5, refused by the broker: not authorised", "user")


def assert_will_is_refused(found, seen):
    assert_stops(found, "mqtt", seen, "the broker refuses the will: check LastWillTopic")
    assert "without the will the broker accepts" in found.text("mqtt")
    assert len(found.steps["mqtt"]["advice"]) == 1


def test_a_will_that_the_broker_answers_with_a_code_stops_at_mqtt(scripted):
    partner = scripted()
    partner.refuse_wills = 5
    assert_will_is_refused(diagnose(**will(4)), "5, refused by the broker: not authorised")
    assert (partner.connects[-1].will, partner.publishes) == (None, [])
    wait_until(lambda: DISCONNECT in partner.packets, "the goodbye")


def test_a_will_that_the_broker_closes_the_connection_for_stops_at_mqtt(scripted):
    partner = scripted()
    partner.hang_up_on_wills = True
    assert_will_is_refused(diagnose(**will(4)), "the connection failed (-1)")
    assert all(connect.client_id == "plc-1-diagnose" for connect in partner.connects)


def test_a_will_on_a_filter_stops_at_mqtt(mosquitto):
    partner = mosquitto()
    assert_will_is_refused(diagnose(**will(4, topic="plc/+")), "the connection failed (-1)")
    wait_until(lambda: partner.logged("Client plc-1-diagnose disconnected"), "the goodbye")


def test_a_refusal_that_is_not_for_the_will_is_not_put_on_it(scripted):
    scripted().refuse = 5
    found = diagnose(**will(4))
    assert_stops(found, "mqtt", "5, refused by the broker: not authorised", "user")
    assert "will" not in found.text("mqtt") + found.advice("mqtt")


def test_a_key_of_the_wrong_kind_is_told_as_no_token(mosquitto):
    authority = certs.Authority("ca")
    authority.issue("client")
    mosquitto(TLS_PORT, tls=authority.issue("server"))
    found = diagnose_tls(5, JWTAlgorithm="RS256")
    assert found.failed == ["token"]
    assert "no token can be made" in found.text("token")


def test_a_silent_broker_stops_at_mqtt(scripted):
    scripted().silent = True
    assert_stops(diagnose(patience=6), "mqtt", "accepts the connection and says nothing", "hangs")


def test_a_broker_that_hangs_up_stops_at_mqtt(scripted):
    scripted().hang_up = True
    assert_stops(diagnose(), "mqtt", "closes the connection without an answer", "look into its log")


def test_something_that_is_no_broker_stops_at_mqtt_with_what_it_said(scripted):
    partner = scripted()
    partner.greeting = b"SSH-2.0-OpenSSH_9.2\r\n"
    assert_stops(diagnose(), "mqtt", "SSH-2.0-OpenSSH_9.2", "something else than an MQTT broker")


def test_a_tls_port_spoken_to_in_plain_stops_at_mqtt(scripted):
    scripted(tls=tls_context(certs.Authority("ca").issue("server")))
    found = diagnose(patience=6)
    assert found.failed == ["mqtt"]
    assert "TLS" in found.advice("mqtt")
