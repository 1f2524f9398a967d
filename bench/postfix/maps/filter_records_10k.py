"""Renaming a domain in a `virtual` map of 10,000 records."""

from _maps import rename_row


def row(bench):
    return rename_row(bench, 10_000)
