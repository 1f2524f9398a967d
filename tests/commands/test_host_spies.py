"""Spies note each call of the program that they replace, and serve it by their rules."""
import os
import signal
import subprocess
import time

import pytest

from mailhost import HANGS, MAPS, postmap, reset, run, runs, text, wait_until
from spies import Rule, calls, spy

SANITIZED_TOO = False  # these tests are not about the tool

POSTMAP = "/usr/sbin/postmap"


def test_a_spy_notes_the_call_and_runs_the_real_program():
    spy(POSTMAP)
    with open("/dev/null") as null:
        ended = run(POSTMAP, "-i", f"hash:{MAPS}/virtual", stdin="a 1\nb 2\n",
                    env={"LANG": "C", "ODD": b"a=\xff"}, cwd=MAPS, pass_fds=[null.fileno()])
        assert ended.status == 0, ended
        assert postmap("virtual") == {"a": "1", "b": "2"}
        [call] = calls()
        assert call.program == POSTMAP
        assert call.argv == [POSTMAP, "-i", f"hash:{MAPS}/virtual"]
        assert call.env == {"LANG": "C", "ODD": text(b"a=\xff")}
        assert call.cwd == MAPS
        assert call.stdin == "a 1\nb 2\n"
        assert sorted(call.fds) == [0, 1, 2, null.fileno()]
        assert call.fds[null.fileno()] == "/dev/null"
        assert (call.uid, call.gid) == (0, 0)


def test_spies_note_the_order_among_programs():
    spy(POSTMAP)
    spy("/usr/sbin/postconf")
    for command in ((POSTMAP, "-q", "x", f"hash:{MAPS}/virtual"), ("/usr/sbin/postconf", "-h", "mynetworks"),
                    (POSTMAP, "-d", "x", f"hash:{MAPS}/virtual")):
        run(*command)
    assert [(call.program, call.argv[1]) for call in calls()] == [
        (POSTMAP, "-q"), ("/usr/sbin/postconf", "-h"), (POSTMAP, "-d")]
    assert [call.argv[1] for call in calls(POSTMAP)] == ["-q", "-d"]


def test_a_spy_exits_dies_and_speaks_as_told():
    spy("/bin/ps", Rule(exit=7, out="to out\n", err="to err\n", times=1), Rule(signal=signal.SIGKILL, times=1),
        Rule(signal=signal.SIGSEGV, times=1))
    ended = run("/bin/ps", "ax")
    assert (ended.status, ended.out, ended.err) == (7, "to out\n", "to err\n")
    assert run("/bin/ps").status == -signal.SIGKILL
    assert run("/bin/ps").status == -signal.SIGSEGV
    assert "PID" in run("/bin/ps").out  # the rule is used up, so this is the real program


def test_a_spy_picks_calls_by_argument():
    spy(POSTMAP, Rule(exit=3, having="-s"))
    assert run(POSTMAP, "-s", f"hash:{MAPS}/virtual").status == 3
    assert run(POSTMAP, "-q", "x", f"hash:{MAPS}/virtual").status == 1
    assert len(calls()) == 2


def test_a_spy_spews_on_both_streams():
    spy("/bin/ps", Rule(exit=0, spew=300000))
    ended = run("/bin/ps")
    assert (len(ended.out), len(ended.err)) == (300000, 300000)


def test_a_spy_that_leaves_its_input_breaks_the_pipe():
    for how in ("ignore", "close"):
        spy("/usr/bin/deliverquota", Rule(exit=0, input=how))
        child = subprocess.Popen(["/usr/bin/deliverquota", "Maildir"], stdin=subprocess.PIPE)
        with pytest.raises(BrokenPipeError):
            for _ in range(100):
                child.stdin.write(bytes(65536))
        assert child.wait(timeout=HANGS) == 0
        child.stdin = None
        assert calls()[-1].stdin is None


def test_a_spy_waits_as_told():
    spy("/bin/ps", Rule(exit=0, delay=0.3))
    started = time.monotonic()
    run("/bin/ps")
    assert time.monotonic() - started >= 0.3


def test_a_spy_stands_in_for_a_missing_program():
    spy("/usr/lib64/orvek-9.0/handlers-tmpfs", Rule(exit=0))
    assert run("/usr/lib64/orvek-9.0/handlers-tmpfs", "refresh").status == 0
    assert calls()[0].argv[1:] == ["refresh"]
    reset()
    assert not os.path.exists("/usr/lib64/orvek-9.0/handlers-tmpfs")


def test_a_spy_in_an_init_scripts_place_runs_it():
    spy("/etc/init.d/postfix")
    assert run("/etc/init.d/postfix", "start", env={"LANG": "C"}).status == 0
    wait_until(lambda: runs("postfix"))
    assert calls()[0].env == {"LANG": "C"}
