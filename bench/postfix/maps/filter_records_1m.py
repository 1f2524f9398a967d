"""Renaming a domain in a `virtual` map of 1,000,000 records."""

from _maps import rename_row


def row(bench):
    return rename_row(bench, 1_000_000)
