"""What a command costs on a full host, in numbers that do not depend on the machine. Unless asked otherwise that is
10 alias domains, 1,000 mailnames, 5 mail aliases of the mailname that is changed, 1,000 handlers. Init scripts are
stand-ins.
"""
import ast
import collections
import json
import os
import re
import shutil

import host_faults
import mailhost
from mailhost import MAPS, add_records, auth_sql, done, panel_sql
from panel import panel_domain, panel_mailname
from spies import Rule, spy

DOMAIN = "example.com"
MAIL_ALIASES = [f"anna{number}" for number in range(5)]
NEW = "new.test"
STORE = "/usr/local/orv/handlers"
UPLOAD, KEY = "/tmp/upload", "/tmp/key"
LOG = "/run/mailvek/system-calls"
TRACED = "execve,fsync,fdatasync,openat,openat2,open,pwrite64"


def full_host(mailnames=1000, alias_domains=10, handlers=1000, homes=True):
    """Makes the host. The tool makes what is changed; the rest is put beside it by hand. Without homes the
    mailnames put there have no files, and commands that look at the files of all mailnames fail."""
    mailhost.start("mariadb", "postfix")
    for directory in (STORE, MAPS):  # a directory of an overlay is read slowly
        host_faults.cover(directory, "size=4g")
    for script in ("/etc/init.d/postfix", "/etc/init.d/courier-imap"):
        spy(script, Rule(exit=0))
    mailhost.set_postconf(mynetworks="127.0.0.0/8, 192.0.2.0/24")
    os.makedirs("/etc/orv-spf", exist_ok=True)
    mailhost.write(UPLOAD, "a letter's attachment\n")
    mailhost.write(KEY, "a key\n")
    aliases = [f"alias{number}.test" for number in range(alias_domains)]
    panel_domain(NEW)
    panel_domain(DOMAIN, aliases=aliases)
    anna()
    names = [f"user{number}" for number in range(mailnames - 1)]
    more_mailnames(len(names), aliases)
    if homes:
        more_homes(names)
    if handlers:
        more_handlers(names[:handlers - 1])


def anna():
    """Makes the mailname that commands change. It has everything that a mailname can have."""
    panel_mailname(f"anna@{DOMAIN}", aliases=MAIL_ALIASES)
    done("--add-domain", f"--domain-name={DOMAIN}")
    options = (f"--domain-name={DOMAIN}", "--mailname=anna")
    done("--add-mailname", *options, "--disk-quota=100000")
    done("--add-mailbox", *options, env={"ORV_PASSWORD": "secret"})
    for alias in MAIL_ALIASES:
        done("--add-alias", *options, f"--alias={alias}")
    done("--set-password", *options, env={"ORV_PASSWORD": "secret"})


def more_mailnames(count, aliases):
    """Adds user0, user1 and so on to the panel, the maps and the accounts of the domain and its alias domains."""
    last = count - 1
    panel_sql(f"INSERT INTO mail (mail_name, dom_id, mbox_quota) SELECT CONCAT('user', seq), domains.id, -1 "
              f"FROM seq_0_to_{last}, domains WHERE domains.name = '{DOMAIN}'")
    names = [f"user{number}" for number in range(count)]
    add_records("virtual", {f"{name}@{domain}": f"{name}@{DOMAIN}" for domain in (DOMAIN, *aliases) for name in names})
    add_records("vmailbox", {f"{name}@{DOMAIN}": f"{DOMAIN}/{name}/Maildir/" for name in names})
    for domain in aliases:
        auth_sql("INSERT OR IGNORE INTO domains (name) VALUES (?)", domain)
    auth_sql(f"WITH RECURSIVE number(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM number WHERE n < {last}) "
             "INSERT INTO users (dom_id, name, userPassword) "
             "SELECT domains.id, 'user' || n, 'secret' FROM number, domains")


def more_homes(names):
    home = f"{mailhost.MAILNAMES}/{DOMAIN}"
    for name in names:
        shutil.copytree(f"{home}/anna", f"{home}/{name}", symlinks=True)
    owned = mailhost.run("chown", "-R", "popuser:popuser", home)
    assert owned.status == 0, owned


def more_handlers(names):
    """Copies a handler that the tool has made. Each has another address of the domain."""
    done("--add-handler", "--handler-name=model", "--handler-type=recipient", f"--handler-type-name=anna@{DOMAIN}",
         "--executable=/bin/true", "--context=test", "--hook=before-local", "--priority=10")
    model, = os.listdir(f"{STORE}/info")
    active = f"{STORE}/before-local/recipient"
    for name in names:
        copy = f"10-model-{name.rjust(6, '0')[-6:]}"
        shutil.copytree(f"{STORE}/info/{model}", f"{STORE}/info/{copy}", symlinks=True)
        mailhost.write(f"{STORE}/info/{copy}/recipient", f"{name}@{DOMAIN}\n")
        os.mkdir(f"{active}/{name}@{DOMAIN}")
        shutil.copy2(f"{active}/anna@{DOMAIN}/{model}", f"{active}/{name}@{DOMAIN}/{copy}")


def cost(*arguments, env=None, status=0):
    """What a run of the tool cost: how often each of PATTERNS, commits of the account database, connections and
    queries to the panel. Nothing that is 0."""
    panel_sql("SET GLOBAL log_output = 'TABLE'; SET GLOBAL general_log = ON; TRUNCATE mysql.general_log")
    ended = mailhost.run(
        "strace", "-f", "--seccomp-bpf", "-y", "-qq", "-s", "4096", "-e", f"trace={TRACED}", "-o", LOG,
        mailhost.TOOL, *arguments, env=mailhost.tool_environment(env, leaks=False))
    assert ended.status == status, ended
    panel_sql("SET GLOBAL general_log = OFF")
    spent = panel_cost()
    for line in mailhost.read(LOG).splitlines():
        for what, pattern in PATTERNS.items():
            spent[what] += bool(pattern.search(line))
        spent["commits of accounts"] += ends_commit(line)
    spent["children"] -= 1  # the tool itself
    return {what: count for what, count in sorted(spent.items()) if count}


def statements(*arguments, env=None, status=0):
    """The calls of STATEMENTS that a run of the tool makes. Nothing that is 0."""
    task, result = "/run/mailvek/gdb-task", "/run/mailvek/gdb-result"
    mailhost.write(task, json.dumps({"functions": list(STATEMENTS), "result": result}))
    ended = mailhost.run(
        "gdb", "-nx", "-batch", "-return-child-result", "-x", mailhost.CHECKOUT / "tests/commands/gdb_counts.py",
        "--args", mailhost.TOOL, *arguments, env=mailhost.tool_environment(env) | {"GDB_COUNTS": task})
    assert ended.status == status, ended
    counts = json.loads(mailhost.read(result))
    return {what: counts[function] for function, what in STATEMENTS.items() if counts[function]}


def panel_cost():
    """The connections and queries since the log was emptied, without those of panel_sql()."""
    rows = panel_sql("SELECT thread_id, command_type FROM mysql.general_log "
                     "WHERE argument NOT LIKE '%general_log%'")
    ours = {thread for thread, kind in panel_sql(
        "SELECT thread_id, command_type FROM mysql.general_log WHERE argument LIKE '%general_log%'")}
    kinds = collections.Counter(kind for thread, kind in rows if thread not in ours)
    return collections.Counter({"panel connections": kinds["Connect"], "panel queries": kinds["Query"]})


def ends_commit(line):
    """Whether a system call writes the last frame of a commit into the write-ahead log of the accounts. The
    frame's header then holds the number of pages, where other frames hold 0."""
    header = WAL_HEADER.search(line)
    return header is not None and any(ast.literal_eval(f"b{header[1]}")[4:8])


# SQLite's functions. A step starts a statement or fetches another of its rows.
STATEMENTS = {"sqlite3_prepare_v2": "statements", "sqlite3_step": "steps"}
WAL_HEADER = re.compile(rf' pwrite64\(\d+<{MAPS}/passwd\.db-wal>, (".*"), 24, \d+\) = 24$')
MAP = rf"hash:{MAPS}/\w+"
PATTERNS = {
    "children": re.compile(r" execve\(.* = 0$"),
    "runs of postmap": re.compile(r' execve\("/usr/sbin/postmap".* = 0$'),
    "rewrites": re.compile(r' execve\("/usr/sbin/postmap", \["[^"]*", "[^-"][^"]*"\].* = 0$'),
    "connections to accounts": re.compile(rf' openat\(.*"/proc/self/fd/\d+", .* = \d+<{MAPS}/passwd\.db>$'),
    "fsyncs of accounts": re.compile(rf" f(data)?sync\(\d+<{MAPS}/passwd\.db[^>]*>\) += 0"),
    "fsyncs of maps": re.compile(rf" f(data)?sync\(\d+<{MAPS}/(?!passwd\.db)[^>]*>\) += 0"),
    "other fsyncs": re.compile(rf" f(data)?sync\(\d+<(?!{MAPS}/)[^>]*>\) += 0"),
    "handler files read": re.compile(rf" open(at2?)?\(.* = \d+<{STORE}/info/[^/>]+/[^/>]+>$"),
}
