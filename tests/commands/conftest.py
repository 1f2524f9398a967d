"""Each test starts in a pristine host: the file's host is fresh, and every test leaves it reset."""
import os

import pytest

import mailhost


def pytest_configure(config):
    if os.environ.get("MAILVEK_HOST") != "1":
        raise pytest.UsageError("these tests run in a throw-away mail host only; see ./dev test")


@pytest.fixture(autouse=True)
def pristine_host():
    yield
    mailhost.reset()
