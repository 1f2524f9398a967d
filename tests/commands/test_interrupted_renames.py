"""--rename-mailname and --rename-domain-alias that were killed, and new names that somebody has."""
import collections
import concurrent.futures
import hashlib
import os
import pathlib
import re

import pytest

from host_faults import map_held
from mailhost import (
    ACCOUNTS, MAILNAMES, MAPS, TOOL, add_records, auth_rows, auth_sql, changed_since, disk, done, failed, mailvek,
    postmap, run, tool_environment, wait_until, write,
)
from mailnames import (
    ALIAS, ANNA, DOMAIN, NAMES, OTHER, PLAIN, addresses, domain_without_mailnames, mailname_with_a_mailbox,
)
from panel import add_hook, hooks, panel_domain_alias, panel_mailname

TAKES_LONG = True

AT = f"--domain-name={DOMAIN}"
LOG = "/run/mailvek/killed-calls"
# What makes something or gives it a name, and the end of each child.
STEPS = "ftruncate,mkdirat,rename,renameat,renameat2,symlink,wait4"


@pytest.fixture(autouse=True)
def panel():
    domain_without_mailnames()


def rename(old, new):
    return ("--rename-mailname", AT, f"--old-mailname={old}", f"--new-mailname={new}")


def rename_alias(old, new):
    return ("--rename-domain-alias", AT, f"--old-domain-alias-name={old}", f"--new-domain-alias-name={new}",
            "--set-reject")


# ------------------------------------------------------------------------ names that are taken


def refused(command, new, old, env=None):
    """Nothing is changed, neither by the steps nor by taking them back. A look at a map leaves the time of its
    directory, and one at the accounts SQLite's index of the readers. Locks leave their files."""
    before = disk()
    failed(*command, env=env, report="Fatal error: orvek::mail::postfix::PostfixDatabaseError("
                                     f"{new} exists already, {old} is not renamed)\n")
    changed = {path for path in changed_since(before) if not path.startswith("/run/lock/files")}
    assert changed <= {MAPS, f"{ACCOUNTS}-shm"}


def test_a_mailname_is_not_renamed_to_another():
    mailname_with_a_mailbox()
    panel_mailname(f"anita@{DOMAIN}")
    done("--add-mailname", AT, "--mailname=anita", "--disk-quota=50000")
    refused(rename("anna", "anita"), f"anita@{DOMAIN}", ANNA, env=PLAIN)


def test_a_mailname_is_not_renamed_to_a_mail_alias():
    mailname_with_a_mailbox()
    refused(rename("anna", "ann"), f"ann@{DOMAIN}", ANNA, env=PLAIN)


def test_a_mailname_takes_no_address_under_an_alias_domain():
    mailname_with_a_mailbox()
    add_records("virtual", {f"anita@{ALIAS}": f"zoe@{DOMAIN}"})
    refused(rename("anna", "anita"), f"anita@{ALIAS}", ANNA, env=PLAIN)
    done(*rename("anna", "anita"))
    assert addresses()[f"anita@{ALIAS}"] == f"zoe@{DOMAIN}"


def test_a_mailname_is_not_renamed_to_a_home():
    mailname_with_a_mailbox()
    os.mkdir(f"{MAILNAMES}/{DOMAIN}/anita")
    refused(rename("anna", "anita"), f"anita@{DOMAIN}", ANNA, env=PLAIN)


def test_a_mailname_is_not_renamed_to_itself():
    mailname_with_a_mailbox()
    add_hook(ANNA)
    refused(rename("anna", "anna"), ANNA, ANNA, env=PLAIN)


def test_a_missing_mailname_does_not_pass_for_renamed():
    mailname_with_a_mailbox()
    refused(rename("nobody", "anna"), ANNA, f"nobody@{DOMAIN}", env=PLAIN)


def test_an_alias_domain_is_not_renamed_to_another():
    panel_domain_alias(DOMAIN, OTHER)
    for name in (ALIAS, OTHER):
        done("--add-domain-alias", AT, f"--domain-alias-name={name}", "--set-reject")
    refused(rename_alias(ALIAS, OTHER), OTHER, ALIAS)


@pytest.mark.parametrize("state", ["on", "off"])
def test_an_alias_domain_is_not_renamed_to_a_domain(state):
    done("--add-domain-alias", AT, f"--domain-alias-name={ALIAS}", "--set-reject")
    done("--add-domain", "--domain-name=real.test")
    done(f"--turn-{state}-domain", "--domain-name=real.test")
    refused(rename_alias(ALIAS, "real.test"), "real.test", ALIAS)


def test_a_missing_alias_domain_does_not_take_over_anothers():
    mailname_with_a_mailbox()
    done("--add-domain", "--domain-name=real.test")
    panel_mailname(f"bertha@{DOMAIN}")
    done("--add-domain-alias", AT, "--domain-alias-name=web.test", "--set-reject")
    refused(("--rename-domain-alias", "--domain-name=real.test", "--old-domain-alias-name=nobodys.test",
             "--new-domain-alias-name=web.test", "--set-reject"), "web.test", "nobodys.test")


# ------------------------------------------------------------------- two who want one name


def at_once(*commands):
    """Runs the commands together: the first one stands in the middle of its steps when the others begin."""
    with concurrent.futures.ThreadPoolExecutor() as pool:
        with map_held("virtual") as awaited:
            running = [pool.submit(mailvek, *commands[0])]
            wait_until(awaited)
            running += [pool.submit(mailvek, *command) for command in commands[1:]]
            wait_until(lambda: waiting_for_a_claim(len(commands) - 1))
        return [ended.result() for ended in running]


def waiting_for_a_claim(count):
    digest = hashlib.md5(f"name jim@{DOMAIN}".encode()).hexdigest()
    inode = os.stat(f"/var/lock/files/{digest}").st_ino
    return len(re.findall(rf"-> FLOCK .*:{inode} ", pathlib.Path("/proc/locks").read_text())) >= count


def test_two_mailnames_do_not_get_one_name():
    for name in ("ann", "joe"):
        done("--add-mailname", AT, f"--mailname={name}", "--disk-quota=-1")
    first, second = at_once(rename("ann", "jim"), rename("joe", "jim"))
    assert first.status == 0, first
    assert second.status == 1 and f"jim@{DOMAIN} exists already, joe@{DOMAIN} is not renamed" in second.err, second
    assert postmap("vmailbox") == {f"jim@{DOMAIN}": f"{DOMAIN}/ann/Maildir/", f"joe@{DOMAIN}": f"{DOMAIN}/joe/Maildir/"}
    assert addresses().keys() >= {f"jim@{DOMAIN}", f"joe@{DOMAIN}"}
    assert sorted(os.listdir(f"{MAILNAMES}/{DOMAIN}")) == ["jim", "joe"]


def test_a_mailname_is_made_after_the_rename_to_its_name():
    done("--add-mailname", AT, "--mailname=ann", "--disk-quota=-1")
    first, second = at_once(
        rename("ann", "jim"), ("--add-mailname", AT, "--mailname=jim", "--disk-quota=-1"))
    assert (first.status, second.status) == (0, 0), (first, second)
    assert postmap("vmailbox") == {f"jim@{DOMAIN}": f"{DOMAIN}/jim/Maildir/"}
    assert os.listdir(f"{MAILNAMES}/{DOMAIN}") == ["jim"]


def test_an_account_without_a_mailname_gives_nobody_anothers_name():
    done("--add-mailname", AT, "--mailname=stranger", "--disk-quota=-1")
    mailname_with_a_mailbox()
    auth_sql("UPDATE users SET name = 'left' WHERE name = 'anna'")
    refused(rename("left", "stranger"), f"stranger@{DOMAIN}", f"left@{DOMAIN}", env=PLAIN)


# ------------------------------------------------------------------- renames without a mailbox


def test_a_mailname_that_only_forwards_is_renamed():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-redirect", *NAMES, "--redirect-email=b@example.org")
    done("--remove-mailbox", *NAMES)
    done(*rename("anna", "anita"))
    assert "&b@example.org" in pathlib.Path(f"{MAILNAMES}/{DOMAIN}/anita/.qmail").read_text()
    assert f"anita@{DOMAIN}" in addresses() and ANNA not in addresses()


# ------------------------------------------------------------------------------ after a kill


def steps_of(command, env):
    """Does a good run. Returns its calls as (name, number)."""
    ended = run("strace", "-qq", "-e", f"trace={STEPS}", "-e", "signal=none", "-o", LOG, TOOL, *command,
                env=tool_environment(env, leaks=False))
    assert ended.status == 0, ended
    counts = collections.Counter(re.findall(r"^(\w+)\(", pathlib.Path(LOG).read_text(), re.M))
    return [(name, number) for name, count in counts.items() for number in range(1, count + 1)]


def killed(command, env, step):
    """Kills a run as it comes to the call, whose work is not done. A call that it does not come to is no kill."""
    name, number = step
    ended = run("strace", "-qq", "-o", "/dev/null", "-e", f"trace={name}",
                "-e", f"inject={name}:signal=KILL:when={number}", TOOL, *command, env=tool_environment(env, leaks=False))
    assert ended.status in (0, -9), ended


def every_kill(command, back, env, view):
    """Kills the command at each of its steps and repeats it; then the same for the way back. The view must be that
    of a run that nothing disturbed."""
    before = view()
    steps = steps_of(command, env)
    after = view()
    done(*back, env=env)
    assert view() == before and len(steps) > 10
    for step in steps:
        killed(command, env, step)
        again(command, env, step, view, after)
        killed(back, env, step)
        again(back, env, step, view, before)


def again(command, env, step, view, goal):
    ended = mailvek(*command, env=env)
    assert ended.status == 0 and view() == goal, (step, ended)


def all_of_a_mailname():
    return postmap("vmailbox"), addresses(), sorted(auth_rows()), os.listdir(f"{MAILNAMES}/{DOMAIN}"), hooks()


def test_a_killed_rename_with_password_is_completed_by_repetition():
    mailname_with_a_mailbox()
    add_hook(ANNA)
    every_kill(rename("anna", "anita"), rename("anita", "anna"), PLAIN, all_of_a_mailname)


def test_a_killed_rename_without_accounts_is_completed_by_repetition():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    add_hook(ANNA)
    every_kill(rename("anna", "anita"), rename("anita", "anna"), {}, all_of_a_mailname)


def test_a_killed_rename_of_an_alias_domain_is_completed():
    mailname_with_a_mailbox()
    done("--add-domain-alias", AT, f"--domain-alias-name={ALIAS}", "--set-reject")
    add_hook(f"anna@{ALIAS}")
    write(f"/etc/domainkeys/{ALIAS}/default", "the key\n")

    def view():
        named = {name: address for name, address in addresses().items() if name != ANNA}
        return named, sorted(auth_rows()), hooks(), sorted(os.listdir("/etc/domainkeys"))

    every_kill(rename_alias(ALIAS, "new.test"), rename_alias("new.test", ALIAS), None, view)
