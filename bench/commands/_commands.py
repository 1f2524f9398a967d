"""_commands - measures the panel's commands on maps of any size against shell scripts

Each side does its command for box1, box2 and so on: a shell starts the tool once for each, and starts
the script in the same way. The script makes the same files, runs postmap with the same input, and
queries the databases with their own clients.
"""

import os
import shutil
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path

from run import Bench, Row

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests" / "commands"))
import host_faults  # noqa: E402  (found by the line above, like the next ones)
import mailhost  # noqa: E402
import panel  # noqa: E402

SIZES = {"10": 10, "10k": 10_000, "1m": 1_000_000}
DOMAIN, ALIAS = "example.com", "alias.test"
BOXES = [f"box{number}" for number in range(1, 11)]
MAPS = ("virtual", "vmailbox", "virtual_domains")
KEPT = Path("/tmp/bench-maps")  # the maps of each size, made once

PRELUDE = r"""
set -e
box=$1 domain=example.com maps=/var/spool/postfix/orvek home=/var/qmail/mailnames/example.com/$1
ask() { mariadb --skip-column-names --batch orv -e "$1"; }
alias_domains() {
    ask "SELECT a.name FROM domainaliases a JOIN domains d ON a.dom_id = d.id WHERE d.name = '$domain'"
}
mail_aliases() {
    ask "SELECT alias FROM mail_aliases a JOIN mail m ON a.mn_id = m.id JOIN domains d ON m.dom_id = d.id
         WHERE d.name = '$domain' AND m.mail_name = '$box'"
}
accounts() { sqlite3 -cmd '.timeout 5000' $maps/passwd.db; }
set_account() { # NAME DOMAIN
    echo "INSERT OR IGNORE INTO domains (name) VALUES ('$2');
          INSERT OR REPLACE INTO users (dom_id, name, userPassword)
          SELECT id, '$1', '$ORV_PASSWORD' FROM domains WHERE name = '$2';"
}
add() { postmap -r -i hash:$maps/$1; } # MAP
"""


def make_maps(records: int) -> None:
    """Makes maps with that many records of other domains."""
    kept = KEPT / str(records)
    if not kept.exists():
        kept.mkdir(parents=True)
        addresses = [f"first.last{i}@customer{i // 100}.example.test" for i in range(records)]
        for name, text in (
            ("virtual", "".join(f"{address} {address}\n" for address in addresses)),
            ("vmailbox", "".join(f"{address} customer.example.test/x/Maildir/\n" for address in addresses)),
            ("virtual_domains", "".join(f"customer{i}.example.test x/\n" for i in range(records // 100))),
        ):
            (kept / name).write_text(text)
            subprocess.run(["/usr/sbin/postmap", f"hash:{kept / name}"], check=True)
            (kept / name).unlink()
    if not os.path.ismount(mailhost.MAPS):
        # In memory and not on the host's overlay: no server has its maps on an overlay.
        host_faults.cover(mailhost.MAPS, "size=4g")
    for name in MAPS:
        shutil.copyfile(kept / f"{name}.db", f"{mailhost.MAPS}/{name}.db")


def make_panel() -> None:
    mailhost.start("mariadb")
    tables = ("domains", "domainaliases", "mail", "mail_aliases")
    mailhost.panel_sql("".join(f"DELETE FROM {table};" for table in tables))
    panel.panel_domain(DOMAIN, aliases=[ALIAS])
    for box in BOXES:
        panel.panel_mailname(f"{box}@{DOMAIN}", aliases=[f"also-{box}"])


def only_the_domain() -> None:
    shutil.rmtree(mailhost.MAILNAMES)
    Path(mailhost.MAILNAMES, DOMAIN).mkdir(mode=0o750, parents=True)
    for path in (mailhost.MAILNAMES, f"{mailhost.MAILNAMES}/{DOMAIN}"):
        shutil.chown(path, "popuser", "popuser")
    mailhost.auth_sql("DELETE FROM domains")
    mailhost.auth_sql("DELETE FROM users")


def left() -> object:
    """Accounts, homes with their files, and the maps' records of the domain."""
    keys = [f"{name}@{domain}" for domain in (DOMAIN, ALIAS) for box in BOXES for name in (box, f"also-{box}")]
    keys += [f"{name}@new-{box}.test" for name in panel.STANDARD for box in BOXES]
    keys += [f"new-{box}.test" for box in BOXES]
    records = [mailhost.run("/usr/sbin/postmap", "-q", "-", mailhost.map_file(name),
                            stdin="".join(f"{key}\n" for key in keys)).out for name in MAPS]
    homes = mailhost.tree(mailhost.MAILNAMES)
    files = {path: mailhost.read(f"{mailhost.MAILNAMES}/{path}") for path, said in homes.items() if said[0] == "f"}
    return records, homes, files, mailhost.auth_rows(), mailhost.auth_domains()


def for_each_box(command: str, boxes: int) -> list:
    return ["/bin/sh", "-c", f"export ORV_PASSWORD=secret; for i in $(seq {boxes}); do {command} || exit; done"]


def command_row(bench: Bench, records: int, options: str, script: str,
                before: Callable[[Callable[[str], None]], None] = lambda tool: None,
                boxes: int = len(BOXES), goal: float = 1.10) -> Row:
    """options are the tool's, with $i for the box. before() gets a function that runs the tool with
    other options, to make what the command needs."""
    make_maps(records)
    make_panel()
    path = bench.directory / "script"
    path.write_text(PRELUDE + script)
    tool = bench.program("mailvek")

    def run_tool(more: str) -> None:
        subprocess.run(for_each_box(f"{tool} {more}", boxes), check=True)

    def start_state() -> None:
        only_the_domain()
        before(run_tool)

    return Row(
        ours=for_each_box(f"{tool} {options}", boxes),
        other=for_each_box(f"/bin/sh {path} box$i", boxes),
        goal=goal,
        before=start_state,
        left=left,
    )


ADD_MAILNAME = f"--add-mailname --domain-name={DOMAIN} --mailname=box$i --disk-quota=1000000"
ADD_MAILBOX = f"--add-mailbox --domain-name={DOMAIN} --mailname=box$i"


def with_mailnames(tool: Callable[[str], None]) -> None:
    tool(ADD_MAILNAME)


def with_mailboxes(tool: Callable[[str], None]) -> None:
    tool(ADD_MAILNAME)
    tool(ADD_MAILBOX)
