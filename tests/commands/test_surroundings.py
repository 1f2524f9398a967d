"""The tool takes over nothing from a careless wrapper."""
import os
import resource
import signal

import pytest

import mailhost
from mailhost import (MAILNAMES, MAPS, PATH, auth_rows, described, done, mailvek, postmap, read, reset, run, start,
                      system_calls, tree, write)
from panel import panel_domain, panel_mailname
from spies import calls, spy

DOMAIN = "example.com"
AT = f"--domain-name={DOMAIN}"
NAMES = (AT, "--mailname=anna")
PLAIN = {"ORV_PASSWORD": "secret"}
RENAME = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
POSTMAP = "/usr/sbin/postmap"
LEFT = {"PATH": PATH}
KEPT = {"LANG": "de_DE.UTF-8", "LC_ALL": "C", "TERM": "xterm", "TZ": "Europe/Berlin"}
EVIL = "/tmp/evil"
POISON = {
    "PATH": f"{EVIL}:/usr/sbin:/usr/bin", "HOME": EVIL, "MAIL_CONFIG": EVIL, "TMPDIR": EVIL, "SQLITE_TMPDIR": EVIL,
    "OPENSSL_CONF": f"{EVIL}/openssl.cnf", "MYSQL_UNIX_PORT": f"{EVIL}/socket", "MYSQL_TCP_PORT": "1", "MYSQL_HOME": EVIL,
    "MARIADB_PLUGIN_DIR": EVIL, "LIBMYSQL_PLUGINS": "evil", "LIBMYSQL_PLUGIN_DIR": EVIL, "LOCPATH": EVIL, "TZDIR": EVIL,
    "TZ": "/etc/shadow", "LANG": "../evil", "LC_ALL": f"{EVIL}/de", "TERM": f"{EVIL}/x", "IFS": "/", "BASH_ENV": f"{EVIL}/x",
    "ENV": f"{EVIL}/x", "POSIXLY_CORRECT": "1", "LANGUAGE": "de", "RES_OPTIONS": "x", "HOSTALIASES": f"{EVIL}/x",
}


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_domain(DOMAIN)
    panel_mailname(f"anna@{DOMAIN}")


def changes():
    """Makes a mailbox, sets its password and renames it with the given runner. Returns what is on disk."""
    def result(through):
        through("--add-domain", AT)
        through("--add-mailname", *NAMES, "--disk-quota=100000")
        through("--add-mailbox", *NAMES)
        through("--add-redirect", *NAMES, "--redirect-email=b@example.org")
        through(*RENAME)
        names = {path: kind for path, kind in tree(MAILNAMES).items() if "maildirsize" not in path}
        return names, tree(MAPS), {name: postmap(name) for name in ("virtual", "vmailbox")}, auth_rows()
    return result


def honest():
    through = changes()(lambda *words: done(*words, env=PLAIN))
    reset()
    start("mariadb")
    panel_domain(DOMAIN)
    panel_mailname(f"anna@{DOMAIN}")
    return through


def ignore_signals():
    for number in range(1, 32):
        if number not in (signal.SIGKILL, signal.SIGSTOP):
            signal.signal(number, signal.SIG_IGN)


def block_signals():
    signal.pthread_sigmask(signal.SIG_SETMASK, range(1, 32))


def limit(which, value):
    # Only the soft limit: the host's root may not raise a hard limit again.
    return lambda: resource.setrlimit(which, (value, resource.getrlimit(which)[1]))


def close_streams():
    for descriptor in (0, 1, 2):
        os.close(descriptor)


CARELESS = {
    "ignored signals": ignore_signals,
    "blocked signals": block_signals,
    "files of ten bytes": limit(resource.RLIMIT_FSIZE, 10),
    "few descriptors": limit(resource.RLIMIT_NOFILE, 20),
    "open umask": lambda: os.umask(0),
    "closed umask": lambda: os.umask(0o777),
    "closed streams": close_streams,
    "closed input": lambda: os.close(0),
    "core files": limit(resource.RLIMIT_CORE, 4096),
}


@pytest.mark.parametrize("wrapper", CARELESS)
def test_a_careless_wrapper_changes_no_result(wrapper):
    expected = honest()

    def through(*words):
        ended = run(mailhost.TOOL, *words, env=PLAIN, preexec_fn=CARELESS[wrapper])
        assert (ended.status, ended.out, ended.err) == (0, "", ""), ended
    assert changes()(through) == expected


def test_a_poisoned_environment_changes_no_result():
    expected = honest()
    write(f"{EVIL}/main.cf", "queue_directory = /nowhere\n")
    write(f"{EVIL}/postmap", "#!/bin/sh\ntouch /tmp/evil/ran\nexit 1\n", 0o755)
    write(f"{EVIL}/.my.cnf", "[client]\nsocket=/tmp/evil/socket\n")
    write(f"{EVIL}/openssl.cnf", "openssl_conf = evil\n[evil]\nengines = no\n")
    assert changes()(lambda *words: done(*words, env=POISON | PLAIN)) == expected
    assert not os.path.exists(f"{EVIL}/ran")


def test_no_file_of_the_environment_is_looked_at():
    _, seen = system_calls("--features", calls="file", env=POISON)
    after = seen[next(i for i, line in enumerate(seen) if "execve" in line) + 1:]
    assert not [line for line in after if EVIL in line or "/etc/shadow" in line]


def test_children_get_a_clean_environment():
    spy(POSTMAP)
    for command, more in (("--add-domain", ()), ("--add-mailname", ("--mailname=anna",)), ("--add-mailbox", ("--mailname=anna",))):
        done(command, AT, *more, env=POISON | PLAIN | KEPT)
    assert calls(POSTMAP) and all(call.env == LEFT | KEPT for call in calls(POSTMAP))


def test_no_password_reaches_a_child_of_a_rename():
    for words in (("--add-domain", AT), ("--add-mailname", *NAMES), ("--add-mailbox", *NAMES)):
        done(*words, env=PLAIN)
    spy(POSTMAP)
    done(*RENAME, env=PLAIN | {"ORV_CRYPTED_PASSWORD": "$1$salt$hash"})
    assert calls(POSTMAP) and all(call.env == LEFT for call in calls(POSTMAP))


def test_children_get_ordinary_signals_umask_and_descriptors():
    spy(POSTMAP)

    def careless():
        ignore_signals()
        block_signals()
        os.umask(0)
        os.dup2(os.open("/etc/shadow", os.O_RDONLY), 150)
    ended = run(mailhost.TOOL, "--add-domain", AT, env={}, preexec_fn=careless, close_fds=False)
    assert ended.status == 0, ended
    for call in calls(POSTMAP):
        # A stage of a pipeline starts with SIGCHLD blocked.
        assert (call.ignored, call.blocked & ~(1 << (signal.SIGCHLD - 1)), call.umask) == (0, 0, 0o022)
        assert not [target for target in call.fds.values() if target == "/etc/shadow"]


def test_a_name_with_a_newline_writes_no_second_line():
    ended = mailvek("--add\nforged\x1b[2J")
    assert ended.err.startswith("Error: invalid command --add\\nforged\\x1b[2J\n"), ended
    ended = mailvek("--add-domain", AT, "--x\nforged")
    assert ended.status == 1 and "'--x\\nforged'" in ended.err and "\nforged" not in ended.err, ended


def test_a_mailbox_root_has_its_modes_whatever_the_umask():
    done("--add-domain", AT)
    ended = run(mailhost.TOOL, "--add-mailname", *NAMES, env={}, preexec_fn=lambda: os.umask(0))
    assert ended.status == 0 and described(f"{MAILNAMES}/{DOMAIN}/anna").split()[1] == "0700"
    assert "deliverquota" not in read(f"{MAILNAMES}/{DOMAIN}/anna/.qmail")
