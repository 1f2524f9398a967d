"""Some of the faults of ./dev faults: commands whose system calls fail, one at a time."""
import sys

import pytest

import mailhost

sys.path.insert(0, str(mailhost.CHECKOUT / "tests" / "faults"))

import run  # noqa: E402
import state  # noqa: E402
from commands import COMMANDS  # noqa: E402

TAKES_LONG = True

# A prime, so that each command's share has calls and errors of every kind.
EVERY = 19


@pytest.fixture(scope="module")
def first_picture():
    """Prepares the host for all commands. Each of them leaves it as it was."""
    run.prepare()
    yield state.picture()
    mailhost.reset()


@pytest.fixture(autouse=True)
def pristine_host(first_picture):
    yield
    state.put_back(first_picture, state.picture())


@pytest.mark.parametrize("name", COMMANDS)
def test_what_is_promised_holds_whatever_fails(name, record_property):
    _, tried, broken = run.try_command(name, EVERY)
    record_property("faults tried", tried)
    assert tried > 0 and not broken, "\n".join(run.told(name, *row) for row in broken)
