"""Whoever starts the tool through a careless wrapper chooses its surroundings and nothing else."""
import ctypes
import os
import pathlib
import resource
import signal
import stat
import time

import pytest

import ground
from ground import HOME, LOCKS, PLAIN
from surroundings import BESIDE, COMMANDS, TREES, done, honest, state, unlike


# --------------------------------------------------------------------- descriptors and limits


def closing(*descriptors):
    def prepare():
        for descriptor in descriptors:
            os.close(descriptor)
    return prepare


def limited(which, value):
    # The hard limit stays, because this host's root may not raise it again.
    return lambda: resource.setrlimit(which, (value, resource.getrlimit(which)[1]))


def ignoring(*signals):
    def prepare():
        for number in signals:
            signal.signal(number, signal.SIG_IGN)
    return prepare


def masked():
    signal.pthread_sigmask(signal.SIG_BLOCK, range(1, 65))


def in_a_directory_that_is_gone():
    os.mkdir("/tmp/gone")
    os.chdir("/tmp/gone")
    os.rmdir("/tmp/gone")


def with_an_alarm():
    signal.setitimer(signal.ITIMER_REAL, 0.03)


def with_many_descriptors():
    for _ in range(200):
        os.set_inheritable(os.open("/dev/null", os.O_RDONLY), True)


def no_extras():
    for which in (resource.RLIMIT_MEMLOCK, resource.RLIMIT_SIGPENDING, resource.RLIMIT_MSGQUEUE, resource.RLIMIT_RTTIME):
        resource.setrlimit(which, (0, resource.getrlimit(which)[1]))


def late_timers():
    PR_SET_TIMERSLACK = 29
    assert ctypes.CDLL(None).prctl(PR_SET_TIMERSLACK, ctypes.c_ulong(3600 * 10 ** 9), 0, 0, 0) == 0


def old_personality():
    """The kernel calls itself 2.6, memory is executable, at fixed addresses, and times have whole seconds."""
    assert ctypes.CDLL(None).personality(ctypes.c_ulong(0x0020000 | 0x0400000 | 0x0040000 | 0x2000000 | 0x4000000)) != -1


def in_the_idle_class():
    os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))


def with_children():
    """exec keeps children: these end while the tool runs, and are none of its own."""
    for number in range(8):
        if os.fork() == 0:
            time.sleep(0.01 * number)
            os._exit(number)


def only_names():
    """Descriptors of O_PATH, which can be neither read nor written."""
    named = os.open("/", os.O_PATH)
    for descriptor in (0, 1, 2):
        os.dup2(named, descriptor)


def in_a_directory_of_settings():
    os.makedirs("/tmp/settings", exist_ok=True)
    os.chdir("/tmp/settings")
    pathlib.Path("DB_CONFIG").write_text("set_data_dir /tmp/elsewhere\nset_lg_dir /tmp/elsewhere\nset_cachesize 8 0 1\n")
    for name in ("my.cnf", ".my.cnf", "main.cf", "openssl.cnf", "postmap", "postconf", "sh"):
        pathlib.Path(name).write_text("[client]\nsocket=/tmp/settings/none\n")
        os.chmod(name, 0o755)


PREPARED = {
    "no standard input": (closing(0), ("add-redirect", "rename-mailname", "add-attachment")),
    "no standard output": (closing(1), ("add-redirect", "rename-mailname", "add-attachment", "add-mailname")),
    "no standard error": (closing(2), ("add-redirect", "rename-mailname", "set-domain-key", "add-mailname",
                                       "domain-quota")),
    "no standard descriptors": (closing(0, 1, 2), ("add-redirect", "rename-mailname", "add-mailname", "set-password",
                                                   "add-attachment", "add-domain-alias", "domain-quota")),
    "files of no size": (limited(resource.RLIMIT_FSIZE, 0), ("add-redirect", "rename-mailname", "set-password",
                                                             "add-attachment", "set-domain-key", "set-max-letter-size",
                                                             "start-submission")),
    "files of 4096 bytes": (limited(resource.RLIMIT_FSIZE, 4096), ("rename-mailname", "set-password", "add-alias")),
    "eight descriptors": (limited(resource.RLIMIT_NOFILE, 8), ("add-redirect", "rename-mailname", "add-domain-alias",
                                                               "add-mailname")),
    "no processor time": (limited(resource.RLIMIT_CPU, 0), ("rename-mailname", "add-domain-alias")),
    "SIGCHLD ignored": (ignoring(signal.SIGCHLD), ("rename-mailname", "add-alias", "add-handler", "stop-smtps")),
    "SIGPIPE ignored": (ignoring(signal.SIGPIPE), ("rename-mailname", "add-alias")),
    "all signals ignored": (ignoring(signal.SIGCHLD, signal.SIGPIPE, signal.SIGALRM, signal.SIGTERM, signal.SIGHUP),
                            ("rename-mailname", "set-bounce")),
    "all signals blocked": (masked, ("rename-mailname", "add-alias", "start-submission")),
    "umask 0": (lambda: os.umask(0), tuple(COMMANDS)),
    "umask 0777": (lambda: os.umask(0o777), tuple(COMMANDS)),
    "a working directory that is gone": (in_a_directory_that_is_gone, ("add-redirect", "add-mailname", "rename-mailname",
                                                                       "domain-quota", "set-mail-params")),
    "an alarm": (with_an_alarm, ("rename-mailname", "add-domain-alias", "start-submission")),
    "two hundred descriptors": (with_many_descriptors, ("rename-mailname", "add-handler")),
    "a small stack": (limited(resource.RLIMIT_STACK, 24 << 10), ("rename-mailname", "add-domain-alias", "set-mail-params",
                                                                 "stop-smtps")),
    "no processes": (limited(resource.RLIMIT_NPROC, 0), ("rename-mailname", "add-alias")),
    "no locked memory and no pending signals": (no_extras, ("rename-mailname", "set-password")),
    "timers that may be an hour late": (late_timers, ("rename-mailname", "set-password", "stop-smtps")),
    "an old personality": (old_personality, ("rename-mailname", "set-password", "add-attachment")),
    "the idle class": (in_the_idle_class, ("rename-mailname",)),
    "children that end meanwhile": (with_children, ("rename-mailname", "add-alias", "stop-smtps", "add-handler")),
    "descriptors that only name": (only_names, ("rename-mailname", "add-redirect")),
    "a directory of evil settings": (in_a_directory_of_settings, ("rename-mailname", "set-password", "set-mail-params")),
}
QUICK = {("no standard descriptors", "add-redirect"), ("files of no size", "rename-mailname"),
         ("SIGCHLD ignored", "add-alias"), ("umask 0", "update-spf"), ("all signals blocked", "add-alias")}


def attack(ledger, surroundings, command):
    prepare, _ = PREPARED[surroundings]
    honest(command)
    before = state()
    how, left = done(command, before=prepare, close_fds=prepare is not with_many_descriptors)
    # A timer may run out before the tool has begun, which is harmless.
    rang = how.status in (-signal.SIGALRM, -signal.SIGXCPU) and left == before
    ledger.tried(f"{surroundings}: {command}", [] if rang else unlike(command, how, left), how)


@pytest.mark.parametrize("surroundings", PREPARED)
def test_surroundings_change_no_result(ledger, surroundings):
    for command in PREPARED[surroundings][1]:
        attack(ledger, surroundings, command)
    ledger.close()


@pytest.mark.quick
def test_the_worst_surroundings_change_no_result(ledger):
    for surroundings, command in sorted(QUICK):
        attack(ledger, surroundings, command)
    ledger.close()


@pytest.mark.parametrize("command", ["add-redirect", "rename-mailname", "set-password"])
@pytest.mark.parametrize("missing", [(1,), (2,), (1, 2), (0, 1, 2)], ids=str)
def test_a_report_is_written_into_no_file(command, missing):
    """A failing command's report must not go to a file that has got the stream's descriptor number."""
    words = list(COMMANDS[command])
    words[1] = "--domain-name=no-such.test" if command != "add-redirect" else words[1]
    if command == "add-redirect":
        os.unlink(f"{HOME}/.qmail")
        os.mkdir(f"{HOME}/.qmail")
    before = state()
    ground.mailvek(*words, env=PLAIN, before=closing(*missing))
    after = state()
    for path, (_, content) in after[0].items():
        assert content == before[0].get(path, ("", content))[1], path
    assert "damaged" not in " ".join(after[1])


def full_pipe():
    """A full pipe that nobody reads."""
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    try:
        while True:
            os.write(writing, bytes(4096))
    except BlockingIOError:
        pass
    os.set_blocking(writing, True)
    return reading, writing


@pytest.mark.parametrize("command", ["add-redirect", "rename-mailname", "add-attachment"])
def test_a_caller_who_reads_no_report_holds_nobody_else_up(command):
    if command == "add-redirect":
        os.unlink(f"{HOME}/.qmail")
        os.mkdir(f"{HOME}/.qmail")
    words = [word.replace("/srv/uploads/letter", "/srv/uploads/none") for word in COMMANDS[command]]
    reading, writing = full_pipe()
    stuck = ground.start(*words, stdout=writing, stderr=writing)
    try:
        time.sleep(1)
        for honest_one in (words, COMMANDS["add-alias"]):
            how = ground.mailvek(*honest_one, seconds=3 * ground.SECONDS)  # longer than the tool waits for a reader
            assert how.status is not None, how
    finally:
        stuck.kill()
        stuck.wait()
        os.close(reading)
        os.close(writing)


# ------------------------------------------------------------------------- what stays private


def writable(path):
    """The bits that nobody but the owner may have. The group of the accounts' readers takes locks beside them."""
    return 0o002 if str(path).endswith(BESIDE) else 0o022


@pytest.mark.quick
@pytest.mark.parametrize("mask", [0, 0o777], ids=oct)
def test_what_is_made_has_its_mode_whatever_the_umask(mask):
    ground.run("rm", "-rf", "/etc/orv-spf")
    os.makedirs("/etc/orv-spf")
    for command in ("update-spf", "set-domain-key", "add-handler", "add-mailname", "add-attachment"):
        pathlib.Path("/srv/uploads/key").write_text("a key\n")
        how = ground.mailvek(*COMMANDS[command], env=PLAIN, before=lambda: os.umask(mask))
        assert how.status == 0, how
    open_to_all = [path for tree in TREES for path in pathlib.Path(tree).rglob("*")
                   if not path.is_symlink() and stat.S_IMODE(path.lstat().st_mode) & writable(path)]
    assert [str(path) for path in open_to_all if str(path) not in ("/run/lock", "/run/lock/files")] == []


def test_a_lock_of_the_tool_is_nobodys_to_hold():
    ground.mailvek(*COMMANDS["add-redirect"], before=lambda: os.umask(0))
    for name in os.listdir(LOCKS):
        assert not stat.S_IMODE(os.lstat(f"{LOCKS}/{name}").st_mode) & 0o066 or \
            not stat.S_IMODE(os.lstat(LOCKS).st_mode) & 0o077
