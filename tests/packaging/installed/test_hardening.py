"""The service at work under the unit's restrictions, and what they keep it from."""

import pytest
from machine import CONFIGURATION, UNIT

TRIGGER = f"{CONFIGURATION}/Protobuf/HandleMQTTTriggeredOp.sh"
# Publication 9 makes a message by a script, 10 runs one; both by request.
SCRIPTED = """    <PublicationConf ID="9" Name="protobuf" CBrokerID="1" Topic="made/by/script" PeriodicInterval="-1" QOS="0"
        RetainFlag="0" BrokerReceivedAddr="-1" DataAddr="12000" DataType="11_63" Ent="0" PayloadFormat="2"/>
    <PublicationConf ID="10" Name="operation" CBrokerID="1" Topic="unused" PeriodicInterval="-1" QOS="0"
        RetainFlag="0" BrokerReceivedAddr="-1" DataAddr="12100" DataType="11_63" Ent="0" PayloadFormat="3"/>"""


@pytest.fixture
def with_scripts(machine):
    # The script belongs to somebody else, as the engineering tool may have left it, and can't be run yet.
    machine.run(f"useradd engineer && chown -R engineer /VEL && chmod 600 {TRIGGER}")
    file = f"{CONFIGURATION}/Publications.xml"
    machine.write(file, machine.read(file).replace("  </Publications>", f"{SCRIPTED}\n  </Publications>"))
    return machine


def test_request_changes_a_configuration_file(running):
    running.run("plcctl request pause && plcctl config set publication shift QoS=1 && plcctl request start")
    assert "QOS=\"1\"" in running.run(f"grep -A1 'Name=\"shift\"' {CONFIGURATION}/Publications.xml").text


def test_script_makes_a_message(with_scripts):
    with_scripts.start_service()
    with_scripts.run("plcctl tag set 12000 STR8 Batch.json --length 63")
    with_scripts.run("mosquitto_sub -t made/by/script -C 1 -W 60 >/tmp/heard & "
                     "sleep 1; plcctl request send protobuf; wait; test -s /tmp/heard")  # fmt: skip


def test_script_of_another_user_is_made_executable_and_run(with_scripts):
    with_scripts.start_service()
    with_scripts.run("plcctl tag set 12100 STR8 'url export.csv' --length 63 && plcctl request send operation")
    assert with_scripts.run("plcctl tag get 12100 STR8 --length 63").text.count("http://controller/export/export.csv")
    assert with_scripts.run(f"stat -c %a {TRIGGER}").text == "777\n"


# What a script tries, run as publication 10; it prints 1, "done", if that fails as it should.
REFUSED = {
    "write to the system": "touch /etc/planted",
    "write beside the programs": "touch /usr/lib/mqttclientmanager/lib/planted",
    "see home directories": "cat /home/engineer/secret",
    "change the kernel's settings": "sh -c 'echo 1 >/proc/sys/net/ipv4/ip_forward'",
    "mount": "mount -t tmpfs tmpfs /mnt",
    "make namespaces": "unshare --user true",
    "make a device": "mknod /tmp/null c 1 3",
    "gain powers by a set-user-ID bit": "chmod u+s /tmp/HandleMQTTTriggeredOp_URL.txt",
    "open a packet socket": "python3 -c 'import socket; socket.socket(socket.AF_PACKET)'",
    "set the clock": "date -s 2030-01-01",
}


@pytest.mark.parametrize("attempt", REFUSED.values(), ids=REFUSED.keys())
def test_script_is_kept_from(with_scripts, attempt):
    with_scripts.write("/home/engineer/secret", "secret")
    with_scripts.write(TRIGGER, f"#!/bin/sh\ntouch /tmp/HandleMQTTTriggeredOp_URL.txt\n"
                                f"if {attempt} >/tmp/attempt 2>&1; then echo failed; else echo 1; fi")  # fmt: skip
    with_scripts.start_service()
    with_scripts.run("plcctl tag set 12100 STR8 x --length 63 && plcctl request send operation")


def test_tags_queue_and_log_are_shared(machine):
    """A private /tmp, /dev/shm or queue would show here: all of this is seen from outside the unit."""
    machine.make_verbose()
    machine.start_service()
    assert machine.succeeds("test -s /tmp/cStdErr.csv")
    machine.run("plcctl tag set 2308 UINT16 7")
    assert machine.run("mosquitto_sub -t plant/bottling-1/shift -F %X -C 1 -W 30").text == "0700\n"
    machine.run("plcctl request subscribe 7")


def test_files_of_the_service_are_for_its_user_alone(machine):
    machine.make_verbose()
    machine.start_service()
    assert machine.run("stat -c %a /tmp/cStdErr.csv").text == "600\n"
    assert machine.run("stat -c %a /tmp/MQTT_PERSISTENCE").text == "700\n"


def test_another_ca_file_is_found(machine):
    """Level 4 with the wrong authority: the script finds that out, and the file is exchanged for a candidate."""
    machine.run(f"""
        cd {CONFIGURATION}
        for name in right wrong clients; do
            openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj "/CN=$name" \\
                -keyout $name.key -out $name.crt
        done
        sign() {{ openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj /CN=127.0.0.1 \\
            -addext basicConstraints=critical,CA:false -CA $1.crt -CAkey $1.key -keyout $2.key -out $2.crt; }}
        sign right server && sign clients client
        cp right.crt /etc/CA_Certificates/right.crt
        cp wrong.crt ca.crt
        mkdir /run/tls && cp server.* clients.crt /run/tls && chown -R mosquitto /run/tls
        printf 'listener 8883\\nallow_anonymous true\\nrequire_certificate true\\ncafile /run/tls/clients.crt\\n' >/run/tls/conf
        printf 'certfile /run/tls/server.crt\\nkeyfile /run/tls/server.key\\n' >>/run/tls/conf
        sed -i 's/Port="1883" EncryptionType="0"/Port="8883" EncryptionType="4" CAFileName="ca.crt" ClientCertificateFileName="client.crt" ClientKeyFileName="client.key"/' Brokers.xml
        systemd-run --unit=tls-broker mosquitto -c /run/tls/conf
    """)
    machine.run(f"systemctl start {UNIT}")
    machine.wait_until(f"cmp {CONFIGURATION}/ca.crt /etc/CA_Certificates/right.crt", seconds=90)
    machine.wait_until("plcctl status | grep plant | grep -qw connected", seconds=60)
    machine.run(f"cmp {CONFIGURATION}/wrong.crt /etc/CA_Certificates/ca.crt")
