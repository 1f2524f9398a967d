"""_commands - measures the panel's commands on maps of any size against shell scripts

Each side does its command for box1, box2 and so on: a shell starts the tool once for each, and starts
the script in the same way. The script makes the same files, runs postmap with the same input, and
queries the databases with their own clients.
"""

import os
import shutil
import subprocess
import sys
import tempfile
from collections.abc import Callable
from pathlib import Path

from run import Bench, Row

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests" / "commands"))
import mailhost  # noqa: E402  (found by the line above, like the next one)
import panel  # noqa: E402

SIZES = {"10": 10, "10k": 10_000, "1m": 1_000_000}
DISK_SIZES = {"10k": 10_000}
DOMAIN, ALIAS = "example.com", "alias.test"
BOXES = [f"box{number}" for number in range(1, 11)]
MAPS = ("virtual", "vmailbox", "virtual_domains")
KEPT = Path("/tmp/bench-maps")  # the maps of each size, made once
STORE = "/usr/local/orv/handlers"
CHANGED = (mailhost.MAPS, mailhost.MAILNAMES, STORE)  # where commands change files
OTHERS = 100  # other domains on the host, with as many mailnames each
HANDLERS = 1000  # of other domains

# Each script asks the panel at most once, changes the accounts once and runs postmap once for each map that changes.
PRELUDE = r"""
set -e
box=$1 domain=example.com maps=/var/spool/postfix/orvek home=/var/qmail/mailnames/example.com/$1
info=/usr/local/orv/handlers/info
ask_panel() { # sets the alias domains and the mail aliases
    others= aliases=
    found=$(mariadb --skip-column-names --batch orv -e "
        SELECT 'domain', a.name FROM domainaliases a JOIN domains d ON a.dom_id = d.id WHERE d.name = '$domain' UNION
        SELECT 'alias', alias FROM mail_aliases a JOIN mail m ON a.mn_id = m.id JOIN domains d ON m.dom_id = d.id
        WHERE d.name = '$domain' AND m.mail_name = '$box'")
    while read -r kind name; do
        case $kind in domain) others="$others $name" ;; alias) aliases="$aliases $name" ;; esac
    done <<END
$found
END
}
accounts() { sqlite3 -cmd '.timeout 5000' $maps/passwd.db; }
add() { postmap -r -i hash:$maps/$1; } # MAP
quoted() { # WORD...: in SQL
    printf "'%s'" "$1"
    shift
    [ $# = 0 ] || printf ",'%s'" "$@"
}
set_accounts() { # NAME...: in the domain and its alias domains
    for place in $domain $others; do
        echo "INSERT OR IGNORE INTO domains (name) VALUES ('$place');"
        for name; do
            echo "INSERT OR REPLACE INTO users (dom_id, name, userPassword)
                  SELECT id, '$name', '$ORV_PASSWORD' FROM domains WHERE name = '$place';"
        done
    done
}
"""


def make_maps(records: int, disk: Path | None = None) -> None:
    """Makes maps with that many records of other domains, in memory or below a directory of a real disk."""
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
    for directory in CHANGED:
        put_on(directory, disk)
    make_others()
    for name in MAPS:
        shutil.copyfile(kept / f"{name}.db", f"{mailhost.MAPS}/{name}.db")


places: dict[str, Path] = {}  # where the files of CHANGED lie


def put_on(directory: str, disk: Path | None) -> None:
    """Puts what a directory had at first into memory or onto the disk, and not on the host's overlay: no server has
    its files on an overlay."""
    if directory in places:
        subprocess.run(["umount", "--lazy", directory], check=True)
        shutil.rmtree(places[directory])
    place = places[directory] = Path(tempfile.mkdtemp(dir=disk or "/tmp"))
    subprocess.run(["cp", "-a", "--no-target-directory", directory, place], check=True)
    subprocess.run(["mount", "--bind", place, directory], check=True)


def make_others() -> None:
    """Makes the accounts and the handlers of other domains."""
    mailhost.auth_sql("DELETE FROM domains")
    mailhost.auth_sql("DELETE FROM users")
    numbers = f"WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < {OTHERS - 1}) "
    mailhost.auth_sql(numbers + "INSERT INTO domains (name) SELECT 'customer' || i || '.example.test' FROM n")
    mailhost.auth_sql(numbers + "INSERT INTO users (dom_id, name, userPassword) "
                                "SELECT domains.id, 'first.last' || i, 'secret' FROM n, domains")
    for number in range(HANDLERS):
        place = Path(STORE, "info", f"10-check-{number:06}")
        place.mkdir(parents=True)
        for name, value in (("hook", "before-local"), ("handler-type", "recipient"), ("context", "test"),
                            ("recipient", f"first.last{number}@customer{number // 100}.example.test")):
            (place / name).write_text(f"{value}\n")
        (place / "executable").symlink_to("/bin/true")


def make_panel() -> None:
    mailhost.start("mariadb")
    tables = ("domains", "domainaliases", "mail", "mail_aliases")
    mailhost.panel_sql("".join(f"DELETE FROM {table};" for table in tables))
    panel.panel_domain(DOMAIN, aliases=[ALIAS])
    for box in BOXES:
        panel.panel_mailname(f"{box}@{DOMAIN}", aliases=[f"also-{box}"])
    mailhost.panel_sql(
        "INSERT INTO domains (id, name) "
        f"SELECT 1000 + seq, CONCAT('customer', seq, '.example.test') FROM seq_1_to_{OTHERS};"
        "INSERT INTO mail (mail_name, dom_id, mbox_quota) "
        f"SELECT CONCAT('first.last', seq), id, -1 FROM seq_1_to_{OTHERS}, domains WHERE id > 1000")


def only_the_domain() -> None:
    shutil.rmtree(Path(mailhost.MAILNAMES, DOMAIN), ignore_errors=True)
    for box in BOXES:
        shutil.rmtree(Path(mailhost.MAILNAMES, f"new-{box}.test"), ignore_errors=True)
    place = Path(mailhost.MAILNAMES, DOMAIN)
    place.mkdir(mode=0o750)
    shutil.chown(place, "popuser", "popuser")
    ours = f"name IN ('{DOMAIN}', '{ALIAS}')"
    mailhost.auth_sql(f"DELETE FROM users WHERE dom_id IN (SELECT id FROM domains WHERE {ours})")
    mailhost.auth_sql(f"DELETE FROM domains WHERE {ours}")


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
    make_maps(records, bench.disk)
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
