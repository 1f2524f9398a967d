"""Who attacks: code that runs as another user, once or over and over beside the tool."""
import contextlib
import grp
import os
import pwd
import signal
import sys
import time
import traceback


def become(user):
    """Drops all rights but the user's; in a child of its own only."""
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
    """Runs work() as the user, who must be able to do it."""
    _, status = os.waitpid(_forked(user, work), 0)
    assert status == 0, f"{user} could not prepare the attack"


@contextlib.contextmanager
def beside(user, work):
    """work() runs as the user for as long as the block does, and is killed at its end."""
    child = _forked(user, work)
    try:
        yield child
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)


def over_and_over(step):
    """step() without end; what fails because the tool was quicker is tried again."""
    def work():
        while True:
            with contextlib.suppress(OSError):
                step()
    return work


def held(action):
    """Does something, then keeps what it holds until it is killed. The result is awaited: the
    file at ready appears once the action is done."""
    def work():
        kept = action()  # noqa: F841
        while True:
            time.sleep(60)
    return work
