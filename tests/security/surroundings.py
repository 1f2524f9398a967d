"""The result of a command in good surroundings, to compare with its result in bad ones."""
import pathlib

import ground
import mailhost
from ground import ANNA, AT, DOMAIN, LOCKS, MAILNAMES, MAPS, NEW, PLAIN, STORE

COMMANDS = {
    "add-redirect": ("--add-redirect", *ANNA, "--redirect-email=b@example.org"),
    "add-mailname": ("--add-mailname", AT, "--mailname=carl", "--disk-quota=1"),
    "rename-mailname": ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita"),
    "add-alias": ("--add-alias", *ANNA, "--alias=annie"),
    "set-password": ("--set-password", *ANNA),
    "add-attachment": ("--add-attachment", *ANNA, "--file-name=/srv/uploads/letter", "--attachment-file-name=b.txt"),
    "set-domain-key": ("--set-domain-key", AT, "--file-name=/srv/uploads/key"),
    "add-handler": ("--add-handler", "--handler-name=spam", "--handler-type=recipient",
                    f"--handler-type-name=ben@{DOMAIN}", "--hook=before-local", "--executable=/bin/true",
                    "--context=test", "--priority=20"),
    "update-spf": ("--update-spf", "--spf-behavior=2", "--spf-rules=v=spf1", "--spf-exp=why"),
    "set-mail-params": ("--set-mail-params", "--relayclient", "--smtpauth"),
    "stop-smtps": ("--stop-service", "--mail-component=smtps"),
    "start-submission": ("--start-service", "--mail-component=submission"),
    "add-domain-alias": ("--add-domain-alias", AT, f"--domain-alias-name={NEW}", "--set-reject"),
    "set-bounce": ("--set-bounce", AT, "--phrase=No such user"),
    "set-max-letter-size": ("--set-max-letter-size", "--size=1234567"),
    "domain-quota": ("--set-domain-disk-quota", AT, "--disk-quota=1"),
}
TREES = (MAILNAMES, STORE, MAPS, "/etc/domainkeys", "/etc/orv-spf", "/etc/postfix", "/etc/courier", "/run/lock")
MAP_FILES = (".db",)
BESIDE = ("-wal", "-shm")  # of the account database, which is compared by its records


def state():
    """The state of the disk: kinds, modes, owners, contents; maps and accounts by their records."""
    found = {}
    for tree in TREES:
        for path, said in mailhost.tree(tree).items():
            full = f"{tree}/{path}"
            name = full if f"{STORE}/" not in full else "/".join(
                part[:-6] if part.count("-") >= 2 else part for part in full.split("/"))
            content = ""
            if said.startswith("f ") and not full.endswith(MAP_FILES) and not full.startswith(LOCKS):
                content = pathlib.Path(full).read_bytes()
            if not full.startswith(LOCKS) and not full.endswith(BESIDE):
                found[name] = (said, content)
    return found, ground.records_of_others(())


def done(command, env=None, **more):
    how = ground.mailvek(*COMMANDS[command], env={**PLAIN, **(env or {})}, **more)
    return how, state()


_honest = {}


def honest(command):
    """The state after the command in good surroundings. Restores the ground afterwards."""
    if command not in _honest:
        how, left = done(command)
        assert how.status == 0, how
        _honest[command] = left
        ground.lay_again()
    return _honest[command]


def unlike(command, how, left):
    """How the result differs from the one in good surroundings."""
    found = []
    if how.status != 0:
        found.append("held up" if how.status is None else f"status {how.status}")
    for one, other in zip(_honest[command], left):
        found += [f"{name}: {one.get(name)} -> {other.get(name)}"
                  for name in sorted(one.keys() | other.keys()) if one.get(name) != other.get(name)]
    return found + ground.left_programs() + ground.held_locks()
