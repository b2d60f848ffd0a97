# SPDX-License-Identifier: Apache-2.0
"""TLS, client certificates and users."""
from __future__ import annotations

import base64
import crypt
import ssl
import subprocess
from pathlib import Path

import pytest

from conftest import Host

HASH = {name: crypt.crypt(secret, crypt.mksalt(crypt.METHOD_BLOWFISH, rounds=2**cost))
        for name, secret, cost in (("ada", "first", 8), ("bob", "second", 8))}


def basic(user: str, password: str) -> str:
    return "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()


@pytest.fixture(scope="module")
def keys(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """An authority, a server and a client that it vouches for, and a client that vouches for itself."""
    folder = tmp_path_factory.mktemp("keys")

    def openssl(*words: str) -> None:
        subprocess.run(["openssl", *words], cwd=folder, check=True, capture_output=True)

    def own(name: str) -> None:
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
                "-subj", f"/CN={name}", "-keyout", f"{name}.key", "-out", f"{name}.crt")

    own("authority")
    own("stranger")
    (folder / "san").write_text("subjectAltName=DNS:localhost\n")
    for name in ("server", "client"):
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj", f"/CN={name}",
                "-keyout", f"{name}.key", "-out", f"{name}.csr")
        openssl("x509", "-req", "-in", f"{name}.csr", "-CA", "authority.crt", "-CAkey", "authority.key", "-days", "2",
                "-CAcreateserial", "-extfile", "san", "-out", f"{name}.crt")
    return folder


def context(keys: Path, client: str = "") -> ssl.SSLContext:
    made = ssl.create_default_context(cafile=str(keys / "authority.crt"))
    if client:
        made.load_cert_chain(keys / f"{client}.crt", keys / f"{client}.key")
    return made


def test_only_users_with_their_passwords_enter(host: Host, tmp_path: Path) -> None:
    (tmp_path / "web.yml").write_text(f"basic_auth_users:\n  ada: {HASH['ada']}\n  bob: '{HASH['bob']}'\n")
    exporter = host.export("--web-config", str(tmp_path / "web.yml"))
    for authorization, status in [
        (basic("ada", "first"), 200), (basic("bob", "second"), 200), (basic("ada", "first"), 200),
        (basic("ada", "second"), 401), (basic("ada", ""), 401), (basic("eve", "first"), 401), (basic("", ""), 401),
        (basic("ada", "first" + "x" * 100), 401), ("Basic !!!", 401), ("Basic", 401), ("Bearer ada", 401),
    ]:
        assert exporter.get(Authorization=authorization).status == status, authorization
    for method, path in [("GET", "/"), ("GET", "/metrics"), ("GET", "/healthz"), ("GET", "/none"), ("POST", "/")]:
        answer = exporter.get(path, method)
        assert answer.status == 401 and "vekgpu" not in f"{answer.headers}{answer.text}"
    assert exporter.get("/none", Authorization=basic("ada", "first")).status == 404
    times = [min(exporter.get(Authorization=basic(user, f"wrong{number}")).seconds for number in range(9))
             for user in ("ada", "eve")]
    assert 0.5 < times[0] / times[1] < 2, times
    times.append(min(exporter.get("/none", Authorization=basic("ada", "first")).seconds for _ in range(9)))
    assert times[2] < times[0] / 2, "one that has entered is not looked at as long again"


def test_readings_go_by_tls(host: Host, keys: Path) -> None:
    (keys / "web.yml").write_text("tls_server_config:\n  cert_file: server.crt\n  key_file: server.key\n"
                                  "  min_version: TLS13\n")
    exporter = host.export("--web-config", str(keys / "web.yml"))
    assert "vekgpu_up" in exporter.get(context=context(keys)).text
    old = context(keys)
    old.maximum_version = ssl.TLSVersion.TLSv1_2
    with pytest.raises(OSError):
        exporter.get(context=old)
    exporter.connect().sendall(b"GET /metrics HTTP/1.1\r\n\r\n")  # not even a greeting
    assert exporter.get(context=context(keys)).status == 200


@pytest.mark.parametrize("kind, without", [("RequireAndVerifyClientCert", 401), ("VerifyClientCertIfGiven", 200)])
def test_clients_show_certificates(host: Host, keys: Path, kind: str, without: int) -> None:
    (keys / f"{kind}.yml").write_text("tls_server_config: {cert_file: server.crt, key_file: server.key,\n"
                                      f"  client_ca_file: authority.crt, client_auth_type: {kind}}}\n")
    exporter = host.export("--web-config", str(keys / f"{kind}.yml"))
    assert exporter.get(context=context(keys, "client")).status == 200
    assert exporter.get(context=context(keys)).status == without
    assert exporter.get(context=context(keys, "stranger")).status == 401


@pytest.mark.parametrize("text, reason", [
    ("basic_auth_user:\n  a: b\n", 'line 1: unknown "basic_auth_user"'),
    ("basic_auth_users:\n  ada: secret\n", 'line 2: user "ada" needs a bcrypt hash of cost 4 to 15'),
    ("basic_auth_users:\n  ada: $2y$31$" + "a" * 53, "cost 4 to 15"),
    ("basic_auth_users: {}\n", "names nobody"),
    ("basic_auth_users: [a]\n", "key: value"),
    ("basic_auth_users: {ada: &x y, bob: *x}\n", "bcrypt"),
    ("basic_auth_users: {ada: '1', ada: '2'}\n", "duplicate"),
    ("tls_server_config: {cert_file: server.crt}\n", "needs cert_file and key_file"),
    ("tls_server_config: {cert_file: server.crt, key_file: client.key}\n", "is not that of the certificate"),
    ("tls_server_config: {cert_file: web.yml, key_file: server.key}\n", "cert_file and key_file: "),
    ("tls_server_config: {cert_file: none.crt, key_file: server.key}\n", "none.crt: No such file"),
    ("tls_server_config: {cert_file: server.crt, key_file: server.key, min_version: SSL3}\n", "TLS12 or TLS13"),
    ("tls_server_config: {cert_file: server.crt, key_file: server.key, client_ca_file: authority.crt}\n", "each other"),
    ("tls_server_config: {cert_file: server.crt, client_auth_type: Perhaps}\n", 'unknown "Perhaps"'),
    ("a: [\n", "line "),
    ("a: b: c\n", "line 1: "),
    ("# by\n%\udcff\n", "web.yml: line 2: it holds bytes that are no text"),
    ("tls_server_config: {cert_file: \"\\e[2J\", key_file: server.key}\n", "?[2J: No such file"),
    ("tls_server_config: {cert_file: /dev/zero, key_file: server.key}\n", "/dev/zero: it is larger than 1 MiB"),
])
def test_faulty_configuration_is_one_line_and_serves_nothing(host: Host, keys: Path, text: str, reason: str) -> None:
    (keys / "web.yml").write_text(text, errors="surrogateescape")
    result = host.run("--listen", "127.0.0.1:0", "--web-config", str(keys / "web.yml"))
    assert result.returncode == 1 and "listening" not in result.stderr
    assert result.stderr.startswith("vekgpu-exporter: ") and reason in result.stderr
    assert result.stderr.count("\n") == 1, result.stderr
