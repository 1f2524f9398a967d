"""The attacks run in the host of the command tests, and each test starts in a reset host.

Most tests try many attacks. Each is an entry in the ledger: what was tried and what it reached.
open_attacks.txt names those that still get through: they are reported and fail no test.
"""
import os
import pathlib
import subprocess

import pytest

import ground
import mailhost


OPEN = {line for line in (pathlib.Path(__file__).parent / "open_attacks.txt").read_text().splitlines()
        if line and not line.startswith("#")}


@pytest.hookimpl(tryfirst=True)
def pytest_configure(config):
    if os.environ.get("MAILVEK_HOST") != "1":
        raise pytest.UsageError("these tests run in a throw-away mail host only; see ./dev attack")
    config.option.basetemp = config.option.basetemp or "/run/mailvek/pytest"
    config.addinivalue_line("markers", "quick: one of its class that ./dev test runs as well")


def pytest_collection_modifyitems(items):
    for item in items:
        if ascii(item.name)[1:-1] in OPEN:
            item.add_marker(pytest.mark.xfail(reason="an open attack", strict=False))


def clean():
    # rm can remove trees that are too deep for Python's rmtree.
    subprocess.run(["rm", "-rf", "--one-file-system", *ground.littered()], check=False)
    mailhost.reset()


@pytest.fixture(autouse=True)
def attacked_host():
    ground.lay()
    yield
    clean()


class Ledger:
    """The attacks of one test."""

    def __init__(self, record):
        self.record = record
        self.through = []

    def tried(self, name, found, how=None):
        """Enters an attack and what it reached, and restores the ground for the next one."""
        self.record("attack", (name, list(found)))
        if found and ascii(name)[1:-1] not in OPEN:
            self.through.append(f"{name}: {'; '.join(found[:4])}\n{how or ''}")
        if found:
            clean()
            ground.lay()
        else:
            ground.lay_again()

    def close(self):
        assert not self.through, "these got through:\n" + "\n".join(self.through)


@pytest.fixture
def ledger(record_property):
    return Ledger(record_property)


def pytest_terminal_summary(terminalreporter):
    """Prints each attack that got through, and how many were tried. A test without a ledger is one attack."""
    tried, through, known = 0, [], []
    for kind in ("passed", "failed", "xfailed", "xpassed"):
        for report in terminalreporter.stats.get(kind, []):
            entries = [value for name, value in report.user_properties if name == "attack"]
            failed = kind in ("failed", "xfailed")
            entries = entries or [(report.nodeid.split("::", 1)[-1], ["failed"] if failed else [])]
            tried += len(entries)
            for name, found in entries:
                if found:
                    shown = ascii(name)[1:-1]
                    (known if shown in OPEN else through).append(
                        f"{report.nodeid.split('::')[0]}: {shown}: {found[0][:200]}")
    for line in through:
        terminalreporter.write_line(f"got through: {line}")
    for line in known:
        terminalreporter.write_line(f"open: {line}")
    terminalreporter.write_line(f"attacks tried: {tried}")
    terminalreporter.write_line(f"attacks known to get through: {len(known)}")
    terminalreporter.write_line(f"attacks that got through: {len(through)}")
