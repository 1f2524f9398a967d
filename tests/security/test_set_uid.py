"""A set-uid wrapper that hands everything on: its starter stays the real user and may do nothing with that."""
import fcntl
import os
import pathlib
import signal
import subprocess
import time

import pytest

import attackers
import ground
import mailhost
from ground import ANNA, AT, CANARY, HOME, LOCKS, PLAIN, TOOL
from surroundings import COMMANDS, done, honest, state, unlike

WRAPPER = "/srv/wrapper/wrapper"
SOURCE = """#include <unistd.h>
extern char **environ;
int main(int argc, char **argv) { return execve("%s", argv, environ); }
"""


@pytest.fixture(autouse=True)
def wrapper():
    os.makedirs(os.path.dirname(WRAPPER), exist_ok=True)
    pathlib.Path(f"{WRAPPER}.c").write_text(SOURCE % TOOL)
    subprocess.run(["gcc", "-o", WRAPPER, f"{WRAPPER}.c"], check=True)
    os.chmod(WRAPPER, 0o4755)



def by_wrapper(*arguments, name="wrapper", **more):
    """The tool as www-data starts it through the wrapper, under a name of his choice."""
    return subprocess.Popen([name, *arguments] if name is not None else [], executable=WRAPPER, preexec_fn=attackers_user,
                            env=PLAIN, cwd="/", stdin=subprocess.DEVNULL, start_new_session=True,
                            **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **more})


def attackers_user():
    attackers.become("www-data")


WRAPPED = ("add-redirect", "add-mailname", "rename-mailname", "add-alias", "set-password", "add-handler", "update-spf",
           "set-mail-params", "stop-smtps", "add-domain-alias", "set-bounce", "domain-quota")


@pytest.mark.parametrize("command", WRAPPED)
def test_a_set_uid_wrapper_changes_no_result(command):
    honest(command)
    how = ground.ended(by_wrapper(*COMMANDS[command]), ground.SECONDS)
    found = unlike(command, how, state())
    assert not found, f"{how}\n" + "\n".join(found)


def waiting_tool(command):
    """A tool that waits for a lock, which root holds meanwhile, and the held descriptors."""
    names = set(os.listdir(LOCKS)) if os.path.isdir(LOCKS) else set()
    done(command)
    names |= set(os.listdir(LOCKS))
    ground.lay_again()
    held = [os.open(f"{LOCKS}/{name}", os.O_RDWR) for name in names]
    for descriptor in held:
        fcntl.flock(descriptor, fcntl.LOCK_EX)
    tool = by_wrapper(*COMMANDS[command])
    mailhost.wait_until(lambda: tool.poll() is not None or "flock" in pathlib.Path(f"/proc/{tool.pid}/syscall").read_text()
                        or pathlib.Path(f"/proc/{tool.pid}/syscall").read_text().startswith("73 "))
    return tool, held


@pytest.mark.quick
@pytest.mark.parametrize("number", [signal.SIGSTOP, signal.SIGKILL, signal.SIGTSTP, signal.SIGTERM, signal.SIGUSR1])
def test_the_starter_stops_no_tool_that_may_hold_a_lock(number):
    tool, held = waiting_tool("add-redirect")
    refused = pathlib.Path("/tmp/refused")

    def send():
        try:
            os.kill(tool.pid, number)
        except PermissionError:
            refused.touch()
    attackers.by("www-data", send)
    for descriptor in held:
        os.close(descriptor)
    how = ground.ended(tool, ground.SECONDS)
    assert refused.exists() and how.status == 0, how


@pytest.mark.parametrize("command", ["add-attachment", "set-domain-key"])
@pytest.mark.parametrize("file", [CANARY, "/etc/shadow", "/etc/orv/.orv.shadow"])
def test_a_file_that_is_not_the_starters_is_no_upload(command, file):
    words = [word if not word.startswith("--file-name=") else f"--file-name={file}" for word in COMMANDS[command]]
    before = ground.look()
    how = ground.ended(by_wrapper(*words), ground.SECONDS)
    found = ground.breaches(before, how)
    assert how.status != 0 and how.err and not found, f"{how}\n{found}"
    assert os.path.exists(file) and not os.path.exists(f"{HOME}/@attachments/b.txt")


@pytest.mark.parametrize("name", ["", "\n", "x" * 100_000, "%s%s%s%n", "../../etc/planted", "\x1b]0;x\x07"])
def test_a_name_of_the_program_harms_nothing(name):
    before = ground.look(his=(ground.MAILNAMES, ground.MAPS, "/etc"))
    for words in (COMMANDS["add-redirect"], COMMANDS["rename-mailname"], ("--help",), ("--no-such",), ()):
        how = ground.ended(by_wrapper(*words, name=name), ground.SECONDS)
        assert how.status is not None and how.status >= 0, how
        assert "\x1b" not in how.out + how.err
    assert not ground.breaches(before, how, allowed=(ground.STORE,))


def test_a_tool_without_any_argument_or_name_harms_nothing():
    how = ground.ended(by_wrapper(name=None), ground.SECONDS)
    assert how.status is not None and how.status >= 0, how


def test_a_stop_key_holds_nobody_else_up():
    """The starter's terminal stops the tool in the middle, and never lets it go on."""
    held = None
    for wait in range(40):
        ours, theirs = os.openpty()
        tool = subprocess.Popen(["wrapper", *COMMANDS["rename-mailname"]], executable=WRAPPER, env=PLAIN, stdin=theirs,
                                stdout=theirs, stderr=theirs, start_new_session=True,
                                preexec_fn=lambda: (fcntl.ioctl(0, 0x540E, 0), attackers_user()))
        time.sleep(0.002 * wait)
        os.write(ours, b"\x1a")
        time.sleep(0.3)
        stopped = pathlib.Path(f"/proc/{tool.pid}/stat").read_text().rpartition(")")[2].split()[0] == "T"
        if stopped and ground.held_locks():
            held = ground.mailvek(*COMMANDS["add-alias"], seconds=10)
        tool.kill()
        tool.wait()
        os.close(ours)
        os.close(theirs)
        if held is not None:
            break
        ground.lay_again()
    assert held is None or held.status is not None, held
