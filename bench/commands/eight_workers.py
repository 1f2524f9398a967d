"""Eight workers at once on maps of 100,000 records, each with ten additions and a rename, which rewrites
both maps; against the same commands one after the other. What a lock for each map leaves to the second
processor."""

import subprocess

import mailhost
from _commands import DOMAIN, make_maps, make_panel, only_the_domain
from run import Row

RECORDS, WORKERS, ALIASES = 100_000, 8, 9
MAPS = ("virtual", "vmailbox")


def work(tool: str) -> str:
    """What worker $w does."""
    at = f"--domain-name={DOMAIN}"
    return (f"{tool} --add-mailname {at} --mailname=box$w --disk-quota=1000000"
            f" && for i in $(seq {ALIASES}); do {tool} --add-alias {at} --mailname=box$w --alias=a$w-$i || exit; done"
            f" && {tool} --rename-mailname {at} --old-mailname=box$w --new-mailname=new$w")


def left() -> object:
    sums = [subprocess.run(f"/usr/sbin/postmap -s {mailhost.map_file(name)} | LC_ALL=C sort | md5sum",
                           shell=True, check=True, capture_output=True).stdout for name in MAPS]
    return sums, mailhost.tree(mailhost.MAILNAMES), mailhost.auth_rows()


def row(bench):
    make_panel()
    each = f"for w in $(seq {WORKERS}); do"
    script = work(bench.program("mailvek"))
    # The status of a worker that fails is a file, since wait without a number tells none.
    failed = bench.directory / "failed"

    def start_state() -> None:
        make_maps(RECORDS)
        only_the_domain()

    return Row(
        ours=["/bin/sh", "-c", f"{each} ( {script} || touch {failed} ) & done; wait; [ ! -e {failed} ]"],
        other=["/bin/sh", "-c", f"{each} ( {script} ) || exit; done"],
        goal=1.00,
        before=start_state,
        left=left,
    )
