"""Each test starts in a pristine host: each file has a fresh host, and a reset follows every test."""
import os

import pytest

import mailhost


@pytest.hookimpl(tryfirst=True)
def pytest_configure(config):
    if os.environ.get("MAILVEK_HOST") != "1":
        raise pytest.UsageError("these tests run in a throw-away mail host only; see ./dev test")
    # Not in /tmp, which a reset empties.
    config.option.basetemp = config.option.basetemp or "/run/mailvek/pytest"


@pytest.fixture(autouse=True)
def pristine_host():
    yield
    mailhost.reset()


def pytest_terminal_summary(terminalreporter):
    """Prints what tests have counted with record_property: a line with the sum for each name."""
    reports = [report for kind in ("passed", "failed") for report in terminalreporter.stats.get(kind, [])]
    sums = {}
    for name, value in (counted for report in reports for counted in report.user_properties):
        sums[name] = sums.get(name, 0) + value
    for name, value in sums.items():
        terminalreporter.write_line(f"{name}: {value}")
