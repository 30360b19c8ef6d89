"""Certificate authorities and certificates for one test, made by the openssl command."""

import pathlib
import subprocess
import tempfile
from typing import NamedTuple

from support import configuration


class Server(NamedTuple):
    certificate: pathlib.Path
    key: pathlib.Path
    authority: pathlib.Path


def _openssl(*arguments):
    subprocess.run(["openssl", *map(str, arguments)], check=True, capture_output=True)


def _new_key(kind):
    return {"ecdsa": ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256"], "rsa": ["-newkey", "rsa:2048"]}[kind]


class Authority:
    """A CA. Its files lie in the configuration directory, where the service looks for the ones that brokers name."""

    def __init__(self, name="ca", kind="ecdsa"):
        self.directory = configuration.DIRECTORY
        self.directory.mkdir(parents=True, exist_ok=True)
        self.certificate = self.directory / f"{name}.crt"
        self._key = self.directory / f"{name}.key"
        self._kind = kind
        _openssl("req", "-x509", *_new_key(kind), "-nodes", "-days", 30, "-subj", f"/CN=test authority {name}",
                 "-keyout", self._key, "-out", self.certificate)  # fmt: skip

    def issue(self, name, common_name=None, kind=None):
        """A key and a certificate that this authority has signed, for "127.0.0.1" unless told otherwise."""
        certificate, key = self.directory / f"{name}.crt", self.directory / f"{name}.key"
        _openssl("req", "-x509", *_new_key(kind or self._kind), "-nodes", "-days", 30,
                 "-subj", f"/CN={common_name or '127.0.0.1'}", "-addext", "basicConstraints=critical,CA:false",
                 "-CA", self.certificate, "-CAkey", self._key, "-keyout", key, "-out", certificate)  # fmt: skip
        return Server(certificate, key, self.certificate)

    def issue_expired(self, name):
        """The same with a certificate that was good until yesterday."""
        server = self.issue(name)
        request = self._request(server)
        _openssl("x509", "-req", "-in", request, "-CA", self.certificate, "-CAkey", self._key, "-days", -1,
                 "-out", server.certificate)  # fmt: skip
        return server

    def issue_for_later(self, name):
        """The same with a certificate that will be good in 2049: what a clock that is behind makes of any."""
        server = self.issue(name)
        request = self._request(server)
        with tempfile.TemporaryDirectory() as directory:
            database, policy = pathlib.Path(directory, "database"), pathlib.Path(directory, "policy")
            database.touch()
            policy.write_text(f"[ca]\ndatabase={database}\nnew_certs_dir={directory}\npolicy=any\n"
                              "default_md=sha256\nrand_serial=yes\n[any]\ncommonName=supplied\n")  # fmt: skip
            _openssl("ca", "-batch", "-notext", "-config", policy, "-name", "ca", "-in", request,
                     "-cert", self.certificate, "-keyfile", self._key, "-out", server.certificate,
                     "-startdate", "20490101000000Z", "-enddate", "20491231235959Z")  # fmt: skip
        return server

    @staticmethod
    def _request(server):
        request = server.key.with_suffix(".csr")
        _openssl("req", "-new", "-key", server.key, "-subj", "/CN=127.0.0.1", "-out", request)
        return request


def encrypt(key, traditional=False):
    """Puts a pass phrase on the key in this file, which PEM has two forms for."""
    plain = key.rename(key.with_suffix(".plain"))
    form = ["-traditional"] if traditional else []
    _openssl("pkey", "-in", plain, *form, "-aes128", "-passout", "pass:secret", "-out", key)


def diffie_hellman_parameters():
    """A well-known group: finding one of our own would take a minute."""
    file = pathlib.Path("/tmp/dh.pem")
    _openssl("genpkey", "-genparam", "-algorithm", "DH", "-pkeyopt", "group:ffdhe2048", "-out", file)
    return file
