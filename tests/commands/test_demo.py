"""The demo runs to its end, and says when a step does not hold."""
import re

from mailhost import HOST, PATH, run
from spies import Rule, spy

TAKES_LONG = True

LAST_LINE = re.compile(r"^(\d+) of (\d+) steps held$")


def demo():
    ended = run("/usr/bin/python3", HOST / "demo.py", timeout=1200,
                env={"PATH": PATH, "HOME": "/root", "MAILVEK_HOST": "1"})
    assert ended.err == "", ended
    return ended, ended.out.splitlines()


def broken(lines):
    return [line for line in lines if line.startswith("DOES NOT HOLD")]


def held(lines):
    """How many steps held, and of how many."""
    return tuple(int(number) for number in LAST_LINE.match(lines[-1]).groups())


def test_every_step_of_the_demo_holds():
    ended, lines = demo()
    good, steps = held(lines)
    assert ended.status == 0 and broken(lines) == [], ended
    assert good == steps == sum(line.startswith(" holds  ") for line in lines) > 50


def test_failing_steps_are_told_and_counted_and_others_go_on():
    spy("/usr/sbin/authtest", Rule(exit=0))  # accepts every login
    ended, lines = demo()
    good, steps = held(lines)
    assert ended.status == 1, ended
    assert len(broken(lines)) == steps - good == 3 and all("login of" in line for line in broken(lines)), ended
    assert steps > 50


def test_a_part_that_breaks_off_is_a_failing_step():
    spy("/usr/sbin/postmap", Rule(exit=1, err="postmap: fatal: no\n"))
    ended, lines = demo()
    good, steps = held(lines)
    assert ended.status == 1 and 0 < good < steps, ended
    assert len(broken(lines)) == steps - good
    assert broken(lines)[0].startswith("DOES NOT HOLD  mailvek --add-domain")
    assert broken(lines)[-1] == "DOES NOT HOLD  what comes after it in whole_sequence"
    assert any(line.startswith(" holds  mailvek --features") for line in lines)
