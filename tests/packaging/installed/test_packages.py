"""Upgrade, removal and purge: what becomes of the service, and what stays."""

from machine import CONFIGURATION, DEFAULTS, UNIT


def install(machine, packages):
    for package in packages:
        (machine.root / "packages" / package.name).write_bytes(package.read_bytes())
    machine.run("dpkg -i --force-downgrade " + " ".join(f"/packages/{package.name}" for package in packages))


def upgrade(machine):
    """To the version that is tested; an earlier one is installed."""
    machine.run("dpkg -i /packages/mqttclientmanager*_0.1.0_*.deb")


def edit_configuration(machine):
    machine.run(f"echo '<!-- mine -->' >>{CONFIGURATION}/Brokers.xml && echo '# mine' >>{DEFAULTS}")


def assert_configuration_is_mine(machine):
    for file in (f"{CONFIGURATION}/Brokers.xml", DEFAULTS):
        assert "mine" in machine.read(file).splitlines()[-1]


def test_only_packages_of_the_distribution_are_needed(bare_machine):
    assert bare_machine.run("dpkg --audit").text == ""
    foreign = "apt list --installed 2>/dev/null | grep 'installed,local' | cut -d/ -f1 | sort"
    assert bare_machine.run(foreign).text.split() == ["mqttclientmanager", "mqttclientmanager-platform"]


def test_upgrade_keeps_the_configuration_and_exchanges_the_running_service(machine, earlier_packages):
    install(machine, earlier_packages)
    edit_configuration(machine)
    machine.start_service()
    before = machine.unit("MainPID")
    upgrade(machine)
    assert machine.unit("ActiveState") == "active"
    assert machine.unit("MainPID") != before
    assert_configuration_is_mine(machine)


def test_upgrade_leaves_a_stopped_service_stopped(machine, earlier_packages):
    install(machine, earlier_packages)
    upgrade(machine)
    assert machine.unit("ActiveState") == "inactive"


def test_upgrade_leaves_a_disabled_unit_disabled(machine, earlier_packages):
    install(machine, earlier_packages)
    machine.run(f"systemctl disable {UNIT}")
    upgrade(machine)
    assert machine.unit("UnitFileState") == "disabled"


def test_removal_stops_the_service_and_leaves_the_configuration(running):
    edit_configuration(running)
    running.run("apt-get remove -y mqttclientmanager mqttclientmanager-platform")
    assert not running.succeeds("pgrep MQTTClientManag || test -e /usr/bin/plcctl")
    assert_configuration_is_mine(running)


def test_purge_leaves_what_is_not_the_packages(machine):
    machine.make_verbose()
    machine.start_service()
    machine.run(f"echo '<!-- mine -->' >>{CONFIGURATION}/Brokers.xml")
    machine.run("apt-get purge -y mqttclientmanager mqttclientmanager-platform")
    assert "mine" in machine.read(f"{CONFIGURATION}/Brokers.xml")
    machine.run("test -s /tmp/cStdErr.csv")
    assert not machine.succeeds(f"test -e {DEFAULTS} || test -e /etc/systemd/system/*/{UNIT}.service")


def test_controllers_own_package_can_provide_the_libraries(machine):
    machine.write("/tmp/own/DEBIAN/control", "Package: controller-libraries\nVersion: 1\nArchitecture: all\n"
                  "Maintainer: nobody <nobody@localhost>\nDescription: libraries\n"
                  "Provides: mqttclientmanager-platform-libraries\nConflicts: mqttclientmanager-platform-libraries\n"
                  "Replaces: mqttclientmanager-platform-libraries")  # fmt: skip
    machine.run("mkdir -p /tmp/own/usr/lib/mqttclientmanager/lib && "
                "cp /usr/lib/mqttclientmanager/lib/*.so /tmp/own/usr/lib/mqttclientmanager/lib && "
                "dpkg-deb -b /tmp/own /tmp/own.deb && apt-get install -y /tmp/own.deb")  # fmt: skip
    assert not machine.succeeds("dpkg -s mqttclientmanager-platform | grep -q 'ok installed'")
    assert machine.succeeds("dpkg -s mqttclientmanager | grep -q 'ok installed'")
    machine.start_service()


def test_manual_pages_can_be_shown(bare_machine):
    pages = bare_machine.run("dpkg -L mqttclientmanager | grep '/man/man.*gz$'").text.split()
    assert len(pages) >= 2
    for page in pages:
        name, section = page.rsplit("/", 1)[1].removesuffix(".gz").rsplit(".", 1)
        assert name in bare_machine.run(f"man {section} {name}").text
