"""What the packages hold, before anything is installed."""

import re
import stat
import subprocess

import pytest
from support import build

HOUSE = "usr/lib/mqttclientmanager"
SERVICE = [
    f"{HOUSE}/bin/MQTTClientManager",
    f"{HOUSE}/bin/plcctl",
    f"{HOUSE}/libexec/plcctl/plcctl-servicecode",
    f"{HOUSE}/before-start",
    "usr/bin/MQTTClientManager",
    "usr/bin/plcctl",
    "lib/systemd/system/mqttclientmanager.service",
    "etc/default/mqttclientmanager",
    "usr/share/man/man1/plcctl.1.gz",
    "usr/share/man/man8/MQTTClientManager.8.gz",
    "usr/share/mqttclientmanager/samples/DeviceRoot/VEL/UserApps/Config/MQTT/Brokers.xml",
    "usr/share/doc/mqttclientmanager/examples",
    "usr/share/doc/mqttclientmanager/operation.md",
    "usr/share/doc/mqttclientmanager/copyright",
    "usr/share/doc/mqttclientmanager/changelog.gz",
]
# [text](page.md#part), in the text the page; links into the web lead elsewhere.
DOCUMENT_LINK = re.compile(r"\]\((?!https?:)([^)#]+)(?:#[^)]*)?\)")

PLATFORM = [f"{HOUSE}/lib/libTagMemory.so", f"{HOUSE}/lib/libProofRunner.so"]


def files_of(packages, name):
    (package,) = packages.glob(f"{name}_*.deb")
    listed = subprocess.run(["dpkg-deb", "-c", package], check=True, capture_output=True, text=True).stdout
    return [line.split(maxsplit=5)[5].split(" -> ")[0].removeprefix("./") for line in listed.splitlines()]


def field(packages, name, key):
    (package,) = packages.glob(f"{name}_*.deb")
    return subprocess.run(["dpkg-deb", "-f", package, key], check=True, capture_output=True, text=True).stdout.strip()


@pytest.mark.parametrize("file", SERVICE)
def test_service_package_holds(packages, file):
    assert file in files_of(packages, "mqttclientmanager")


def test_stand_in_libraries_are_a_package_of_their_own(packages):
    assert set(PLATFORM) <= set(files_of(packages, "mqttclientmanager-platform"))
    assert not [file for file in files_of(packages, "mqttclientmanager") if "/lib/lib" in file]


def test_pages_of_the_files_and_schemas_are_in_the_package(packages):
    files = files_of(packages, "mqttclientmanager")
    pages = [f"usr/share/man/man5/{path.name}.gz" for path in build.REPOSITORY.glob("packaging/man/*.5")]
    schemas = [f"usr/share/mqttclientmanager/schemas/{path.name}" for path in build.REPOSITORY.glob("schemas/*.xsd")]
    assert set(pages + schemas) <= set(files)


def test_links_of_the_installed_documents_lead_to_installed_documents(tree):
    directory = tree / "usr/share/doc/mqttclientmanager"
    links = {(page.name, link) for page in directory.glob("*.md") for link in DOCUMENT_LINK.findall(page.read_text())}
    assert ("first-steps.md", "subscriptions.md") in links
    assert not [(page, link) for page, link in links if not (directory / link).exists()]


def test_no_package_owns_a_file_of_the_device(packages):
    for name in ("mqttclientmanager", "mqttclientmanager-platform"):
        assert not [file for file in files_of(packages, name) if file.startswith(("VEL", "etc/CA_", "tmp", "var"))]


def test_only_the_defaults_file_is_configuration(tmp_path, packages):
    (package,) = packages.glob("mqttclientmanager_*.deb")
    subprocess.run(["dpkg-deb", "-e", package, tmp_path / "control"], check=True)
    assert (tmp_path / "control" / "conffiles").read_text().split() == ["/etc/default/mqttclientmanager"]


def test_needed_libraries_are_dependencies(packages):
    depends = field(packages, "mqttclientmanager", "Depends")
    for package in ("mqttclientmanager-platform |", "libqt5core5a (>=", "libqt5xml5 (>=", "libpaho-mqtt1.3 (>=",
                    "libjwt0 (>=", "libc6 (>="):  # fmt: skip
        assert package in depends


def test_packages_have_the_version_of_the_changelog(packages):
    changelog = (build.REPOSITORY / "packaging/debian/changelog").read_text()
    assert field(packages, "mqttclientmanager", "Version") == re.search(r"\((.*?)\)", changelog).group(1)


def test_programs_find_their_libraries_through_the_links(tree):
    shown = subprocess.run([tree / "usr/bin/plcctl", "--version"], check=True, capture_output=True, text=True).stdout
    assert shown.startswith("plcctl ")
    # Unlike the loader, ldd doesn't follow links.
    program = (tree / "usr/bin/MQTTClientManager").resolve()
    needed = subprocess.run(["ldd", program], check=True, capture_output=True, text=True)
    for library in ("libTagMemory.so", "libProofRunner.so"):
        assert f"{HOUSE}/bin/../lib/{library}" in needed.stdout


def test_controllers_libraries_come_first(tree, tmp_path):
    for library in PLATFORM:
        (tmp_path / library.rsplit("/", 1)[1]).write_bytes((tree / library).read_bytes())
    needed = subprocess.run(["ldd", tree / "usr/bin/MQTTClientManager"], check=True, capture_output=True, text=True,
                            env={"LD_LIBRARY_PATH": str(tmp_path)})  # fmt: skip
    assert f"{tmp_path}/libTagMemory.so" in needed.stdout
    assert f"{tmp_path}/libProofRunner.so" in needed.stdout


def test_nothing_packaged_names_the_machine_that_built_it(tree):
    """Paths of the sources would tell, and make the same sources give different packages."""
    files = [path for path in tree.rglob("*") if path.is_file() and not path.is_symlink()]
    assert len(files) > 20
    for path in files:
        assert str(build.REPOSITORY).encode() not in path.read_bytes(), path


def test_nobody_but_root_can_write_what_is_packaged(tree):
    for path in tree.rglob("*"):
        assert path.is_symlink() or not path.stat().st_mode & (stat.S_IWGRP | stat.S_IWOTH), path
