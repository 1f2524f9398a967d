"""The environment from a careless wrapper reaches no child, loads no code and leads to no file."""
import os
import pathlib
import subprocess

import pytest

import ground
import mailhost
from ground import CANARY, DOMAIN, PLAIN
from surroundings import COMMANDS, done, honest, unlike


# ----------------------------------------------------------------------------- what is passed on

SPY = """#!/bin/sh
exec 9>>/run/mailvek/pytest/seen
{ echo "== $0 $*"; tr '\\0' '\\n' </proc/$$/environ; ls -l /proc/$$/fd; umask; grep -E 'Sig(Ign|Blk)' /proc/$$/status; } >&9 2>/dev/null
exec 9>&-
exec REAL "$@"
"""
CHILDREN = ("/usr/sbin/postmap", "/usr/sbin/postconf", "/etc/init.d/postfix")


def watched():
    """Replaces the programs that the tool starts by scripts that note what they get."""
    seen = pathlib.Path("/run/mailvek/pytest/seen")
    seen.write_text("")
    for number, program in enumerate(CHILDREN):
        place = os.path.realpath(program)
        real = f"/run/mailvek/pytest/real-{number}"
        mailhost.run("cp", "-a", place, real)
        script = pathlib.Path(f"/run/mailvek/pytest/spy-{number}")
        script.write_text(SPY.replace("REAL", real if program.startswith("/etc") else f"-a {place} {real}")
                          .replace("exec -a", "exec /bin/bash -c 'exec -a \"$0\" \"$@\"'"))
        script.chmod(0o755)
        subprocess.run(["mount", "--bind", script, place], check=True)
    return seen


EVIL_ENVIRONMENT = {
    "LD_LIBRARY_PATH": "/tmp/evil", "MAIL_CONFIG": "/etc/postfix", "MAIL_DEBUG": "1", "MAIL_LOGTAG": "evil",
    "PYTHONPATH": "/tmp/evil", "IFS": "/", "BASH_ENV": "/tmp/evil/rc", "ENV": "/tmp/evil/rc", "TMPDIR": "/tmp/evil",
    "HOME": "/tmp/evil", "MYSQL_HOME": "/tmp/evil", "SQLITE_TMPDIR": "/tmp/evil", "LOCPATH": "/tmp/evil",
    "NLSPATH": "/tmp/evil/%N", "GCONV_PATH": "/tmp/evil", "OPENSSL_CONF": "/tmp/evil/openssl.cnf",
    "LIBMYSQL_PLUGIN_DIR": "/tmp/evil", "MALLOC_TRACE": "/tmp/evil/trace", "PERL5LIB": "/tmp/evil",
    "LOCALDOMAIN": "evil.test", "HOSTALIASES": "/tmp/evil/hosts", "RES_OPTIONS": "debug",
}
PASSED_ON = ("add-alias", "rename-mailname", "set-max-letter-size", "start-submission", "set-mail-params")


@pytest.mark.parametrize("command", [
    pytest.param(name, marks=[pytest.mark.quick] if name == "rename-mailname" else []) for name in PASSED_ON])
def test_a_child_gets_no_password_and_nothing_of_callers(command):
    seen = watched()
    secret = os.open(CANARY, os.O_RDWR)
    os.set_inheritable(secret, True)
    try:
        how = ground.mailvek(*COMMANDS[command], env={**EVIL_ENVIRONMENT, "ORV_PASSWORD": "password-of-anna"},
                             pass_fds=[secret])
    finally:
        os.close(secret)
    noted = seen.read_text()
    assert "== " in noted, how
    assert "password-of-anna" not in noted, noted
    assert "evil" not in noted, noted
    assert CANARY not in noted, noted


@pytest.mark.quick
@pytest.mark.parametrize("variable", ["ORV_PASSWORD", "ORV_CRYPTED_PASSWORD"])
@pytest.mark.parametrize("command", ["rename-mailname", "add-alias", "add-domain-alias"])
def test_a_password_is_in_no_childs_environment(command, variable):
    seen = watched()
    ground.mailvek(*COMMANDS[command], env={variable: "password-of-anna"})
    assert "== " in seen.read_text() and "password-of-anna" not in seen.read_text()


# ----------------------------------------------------------------- code and files of the caller's

EVIL_LIBRARY = """#include <fcntl.h>
#include <unistd.h>
__attribute__((constructor)) static void run(void) { close(open("/etc/planted", O_WRONLY | O_CREAT, 0644)); }
int gconv(void) { return 0; }
int gconv_init(void *x) { return 3; }
int OSSL_provider_init(void) { return 0; }
int bind_engine(void) { return 0; }
"""
OPENSSL_CNF = """openssl_conf = init
[init]
providers = providers
engines = engines
[providers]
evil = evil
[evil]
module = /tmp/evil/evil.so
activate = 1
[engines]
evil = engine
[engine]
engine_id = evil
dynamic_path = /tmp/evil/evil.so
init = 1
"""
LOADED = {
    "OPENSSL_CONF": {"OPENSSL_CONF": "/tmp/evil/openssl.cnf"},
    "OPENSSL_MODULES": {"OPENSSL_CONF": "/tmp/evil/modules.cnf", "OPENSSL_MODULES": "/tmp/evil"},
    "GCONV_PATH and CHARSET": {"GCONV_PATH": "/tmp/evil", "CHARSET": "EVIL"},
    "GCONV_PATH and LANG": {"GCONV_PATH": "/tmp/evil", "LANG": "xx_XX.EVIL", "LC_ALL": "xx_XX.EVIL", "LOCPATH": "/tmp/evil"},
    "LIBMYSQL_PLUGINS": {"LIBMYSQL_PLUGINS": "evil", "LIBMYSQL_PLUGIN_DIR": "/tmp/evil"},
    "MARIADB_PLUGIN_DIR": {"LIBMYSQL_PLUGINS": "evil", "MARIADB_PLUGIN_DIR": "/tmp/evil"},
    "HOME with .my.cnf": {"HOME": "/tmp/evil", "MYSQL_HOME": "/tmp/evil", "MARIADB_HOME": "/tmp/evil"},
}


def evil_directory():
    os.makedirs("/tmp/evil")
    pathlib.Path("/tmp/evil/evil.c").write_text(EVIL_LIBRARY)
    subprocess.run(["gcc", "-shared", "-fPIC", "-o", "/tmp/evil/evil.so", "/tmp/evil/evil.c"], check=True)
    pathlib.Path("/tmp/evil/openssl.cnf").write_text(OPENSSL_CNF)
    pathlib.Path("/tmp/evil/modules.cnf").write_text(OPENSSL_CNF.replace("module = /tmp/evil/evil.so", ""))
    pathlib.Path("/tmp/evil/gconv-modules").write_text(
        "module EVIL// INTERNAL /tmp/evil/evil 1\nmodule INTERNAL EVIL// /tmp/evil/evil 1\n")
    pathlib.Path("/tmp/evil/.my.cnf").write_text(
        "[client]\nplugin-dir=/tmp/evil\nsocket=/tmp/evil/socket\ninit-command=x\n[mysql]\nsocket=/tmp/evil/socket\n")
    pathlib.Path("/tmp/evil/my.cnf").write_text("[client]\nsocket=/tmp/evil/socket\nplugin-dir=/tmp/evil\n")


@pytest.mark.parametrize("loaded", LOADED)
def test_no_code_of_the_callers_is_loaded(loaded):
    honest("add-alias")
    evil_directory()
    for command in ("--add-alias",), ("--set-password",):
        how = ground.mailvek(*command, f"--domain-name=bücher.{DOMAIN}", "--mailname=anna", "--alias=annie",
                             env={**PLAIN, **LOADED[loaded]})
        assert not os.path.exists("/etc/planted"), how
    ground.lay_again()
    how, left = done("add-alias", env=LOADED[loaded])
    assert not os.path.exists("/etc/planted"), how
    assert not unlike("add-alias", how, left), how


ELSEWHERE = {
    "MAIL_CONFIG": {"MAIL_CONFIG": "/tmp/evil"},
    "MYSQL_UNIX_PORT": {"MYSQL_UNIX_PORT": "/tmp/evil/socket"},
    "MYSQL_TCP_PORT and MYSQL_HOST": {"MYSQL_TCP_PORT": "1", "MYSQL_HOST": "127.0.0.9"},
    "PATH": {"PATH": "/tmp/evil"},
    "no PATH": {"PATH": ""},
    "TMPDIR": {"TMPDIR": "/tmp/evil", "SQLITE_TMPDIR": "/tmp/evil", "TMP": "/tmp/evil"},
    "IFS": {"IFS": "/p", "ENV": "/tmp/evil/rc", "BASH_ENV": "/tmp/evil/rc"},
    "TZ as a FIFO": {"TZ": ":/tmp/evil/fifo"},
    "TZ as a FIFO without a colon": {"TZ": "/tmp/evil/fifo"},
    "TZDIR": {"TZDIR": "/tmp/evil", "TZ": ":fifo"},
    "LOCPATH": {"LOCPATH": "/tmp/evil", "LANG": "fifo", "LC_ALL": "fifo"},
    "HOSTALIASES": {"HOSTALIASES": "/tmp/evil/fifo", "RESOLV_HOST_CONF": "/tmp/evil/fifo", "LOCALDOMAIN": "evil"},
    "MALLOC_ and GLIBC_TUNABLES": {"GLIBC_TUNABLES": "glibc.malloc.check=3", "MALLOC_CHECK_": "3"},
    "ORVEK_INSTALLER_DEBUG": {"ORVEK_INSTALLER_DEBUG": "/tmp/evil/fifo"},
}


def evil_programs():
    os.makedirs("/tmp/evil")
    os.mkfifo("/tmp/evil/fifo")
    pathlib.Path("/tmp/evil/main.cf").write_text("import_environment = evil\ndefault_database_type = btree\n")
    for name in ("postmap", "postconf", "sh", "rc"):
        pathlib.Path(f"/tmp/evil/{name}").write_text("#!/bin/sh\ntouch /etc/planted\n")
        os.chmod(f"/tmp/evil/{name}", 0o755)
    return pathlib.Path("/tmp/evil/main.cf").read_bytes()


@pytest.mark.parametrize("command", ["add-alias", "rename-mailname", "set-max-letter-size", "set-password"])
def test_the_environment_leads_nowhere_else(ledger, command):
    for name, variables in ELSEWHERE.items():
        honest(command)
        ground.run("rm", "-rf", "/tmp/evil")
        text = evil_programs()
        how, left = done(command, env=variables)
        found = unlike(command, how, left)
        if pathlib.Path("/tmp/evil/main.cf").read_bytes() != text:
            found.append("the caller's main.cf was changed")
        if os.path.exists("/etc/planted"):
            found.append("the caller's program ran")
        ledger.tried(f"{name}: {command}", found, how)
    ledger.close()


@pytest.mark.parametrize("command", ["set-password", "rename-mailname"])
def test_a_password_is_on_no_command_line(command):
    seen = watched()
    how = ground.mailvek(*COMMANDS[command], env={"ORV_PASSWORD": "password-of-anna"})
    assert "password-of-anna" not in how.out + how.err
    assert not [line for line in seen.read_text().splitlines() if line.startswith("==") and "password-of-anna" in line]
    assert not [line for line in mailhost.system_log() if "password-of-anna" in line]

