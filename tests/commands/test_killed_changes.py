"""Some of the kills of ./dev soak: the tool, a postmap or the whole group ends while maps change."""
import sys

import pytest

import mailhost

sys.path.insert(0, str(mailhost.CHECKOUT / "tests" / "soak"))

import kills  # noqa: E402

CALLS, MOMENTS = 2, 3
MOST_SEEDS = 200  # moments to try; at many of them nobody is there to be killed
SANITIZED_TOO = False


@pytest.fixture(scope="module")
def benches():
    kills.prepare(500)
    yield {name: kills.Bench(name) for name in kills.COMMANDS}
    mailhost.reset()


@pytest.fixture(autouse=True)
def pristine_host(benches):
    """The host is put back by each bench, and reset after the last one."""
    yield


@pytest.mark.parametrize("name", kills.COMMANDS)
@pytest.mark.parametrize("victim", kills.VICTIMS)
def test_a_kill_at_a_system_call_costs_no_map(benches, name, victim, record_property):
    tried, _, wrong = benches[name].at_system_calls(victim, most=CALLS)
    record_property("kills", tried)
    assert tried == CALLS and not wrong, "\n".join(wrong)


@pytest.mark.parametrize("name", kills.COMMANDS)
def test_a_kill_at_any_moment_costs_no_map(benches, name, record_property):
    wrong, kills_made, seeds = [], 0, iter(range(MOST_SEEDS))
    while kills_made < MOMENTS:
        killed, found = benches[name].at_a_moment(kills.VICTIMS[kills_made % 3], next(seeds))
        wrong += found
        kills_made += killed
    record_property("kills", kills_made)
    assert not wrong, "\n".join(wrong)
