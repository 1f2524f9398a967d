"""The attackers: code that runs as another user, once or over and over, at the same time as the tool."""
import contextlib
import fcntl
import grp
import os
import pathlib
import pwd
import signal
import sys
import time
import traceback


def become(user):
    """Drops all rights except the user's. Call this only in a child."""
    entry = pwd.getpwnam(user)
    groups = [entry.pw_gid, *(group.gr_gid for group in grp.getgrall() if user in group.gr_mem)]
    os.setgroups(groups)
    os.setresgid(entry.pw_gid, entry.pw_gid, entry.pw_gid)
    os.setresuid(entry.pw_uid, entry.pw_uid, entry.pw_uid)
    os.environ.clear()
    os.umask(0o022)


def _forked(user, work):
    sys.stdout.flush()
    child = os.fork()
    if child:
        return child
    status = 1
    try:
        if user != "root":
            become(user)
        work()
        status = 0
    except BaseException:  # the child must not go on with the test
        traceback.print_exc()
    finally:
        sys.stderr.flush()
        os._exit(status)


def by(user, work):
    """Runs work() as the user. It must succeed."""
    _, status = os.waitpid(_forked(user, work), 0)
    assert status == 0, f"{user} could not prepare the attack"


@contextlib.contextmanager
def beside(user, work):
    """Runs work() as the user while the block runs, and kills it at the block's end."""
    child = _forked(user, work)
    try:
        yield child
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)


def over_and_over(step):
    """Repeats step() without end. A step that fails because the tool was quicker is tried again."""
    def work():
        while True:
            with contextlib.suppress(OSError):
                step()
    return work


def held(action):
    """Does action() and keeps what it holds until it is killed. The caller waits for the file at ready,
    which appears once the action is done."""
    def work():
        kept = action()  # noqa: F841
        while True:
            time.sleep(60)
    return work


def leased(path):
    """For held(): takes a lease on a file of his own, which the kernel ends only after 45 s."""
    def take():
        descriptor = os.open(path, os.O_RDONLY)
        signal.signal(signal.SIGIO, signal.SIG_IGN)  # the kernel asks him to release the lease; he does not
        fcntl.fcntl(descriptor, fcntl.F_SETLEASE, fcntl.F_RDLCK)
        pathlib.Path("/tmp/held").touch()
        return descriptor
    return take
