"""Adding 100,000 records to a map with one call of addRecords."""

from _maps import add_row


def row(bench):
    return add_row(bench, 100_000)
