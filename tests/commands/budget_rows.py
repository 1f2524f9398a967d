"""What each command may cost on the full host of budgets.py, in an order in which each finds what it needs."""
import dataclasses

import budgets
from services import components

AT = f"--domain-name={budgets.DOMAIN}"
ANNA = (AT, "--mailname=anna")
CARL = (AT, "--mailname=carl")
SECRET = {"ORV_PASSWORD": "secret"}
RENAME = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
BACK = ("--rename-mailname", AT, "--old-mailname=anita", "--new-mailname=anna")
SPAM = ("--handler-name=spam", "--handler-type=recipient", f"--handler-type-name=anna@{budgets.DOMAIN}",
        "--hook=before-local")
WHOLE = ("--executable=/bin/true", "--context=test", "--priority=20")


@dataclasses.dataclass(frozen=True)
class Budget:
    spent: dict  # as budgets.cost() tells it
    statements: dict  # as budgets.statements() tells it
    env: dict | None
    status: int


def cost(children=0, postmap=0, rewrites=0, handlers=0, queries=0, opened=0, commits=0, accounts=0, maps=0, other=0,
         statements=0, steps=0, env=None, status=0):
    """A budget. children counts the runs of postmap too. opened, commits, statements and steps are those of the
    account database. accounts, maps and other are fsyncs. A command makes one connection to the panel's database
    if it asks anything."""
    spent = {"children": children, "runs of postmap": postmap, "rewrites": rewrites, "handler files read": handlers,
             "panel connections": 1 if queries else 0, "panel queries": queries, "connections to accounts": opened,
             "commits of accounts": commits, "fsyncs of accounts": accounts, "fsyncs of maps": maps,
             "other fsyncs": other}
    return Budget(without_zeros(spent), without_zeros({"statements": statements, "steps": steps}), env, status)


def without_zeros(counts):
    return {what: count for what, count in counts.items() if count}


BUDGETS = [
    (("--help",), cost()),
    (("--help-commands",), cost()),
    (("--help-legacy",), cost()),
    (("--features",), cost()),
    (("--get-max-letter-size",), cost(children=2)),
    (("--get-mailbox-size-limit",), cost(children=2)),
    (("--get-mailbox-size", *ANNA), cost()),
    (("--add-mailname", *CARL, "--disk-quota=50000"), cost(children=2, postmap=2, queries=5, other=9)),
    (("--add-mailbox", *CARL),
     cost(queries=5, opened=1, commits=1, accounts=4, other=1, statements=6, steps=38, env=SECRET)),
    (("--set-password", *ANNA),
     cost(queries=6, opened=1, commits=1, accounts=4, other=1, statements=6, steps=148, env=SECRET)),
    (("--set-mailbox-disk-quota", *ANNA, "--disk-quota=70000"), cost(other=1)),
    (("--add-redirect", *ANNA, "--redirect-email=a@example.org"), cost()),
    (("--remove-redirect", *ANNA, "--redirect-email=a@example.org"), cost()),
    (("--set-autoresponder", *ANNA), cost(handlers=14)),
    (("--reset-autoresponder", *ANNA), cost(handlers=6)),
    (("--add-attachment", *ANNA, f"--file-name={budgets.UPLOAD}", "--attachment-file-name=a.txt"), cost()),
    (("--list-attachments", AT, "--mail-all"), cost()),
    (("--remove-attachment", *ANNA, "--attachment-file-name=a.txt"), cost()),
    (("--add-alias", *ANNA, "--alias=annie"),
     cost(children=1, postmap=1, handlers=6016, queries=6, opened=1, commits=1, accounts=4, other=5, statements=8,
          steps=60)),
    (("--remove-alias", *ANNA, "--alias=annie"),
     cost(children=11, postmap=11, handlers=4006, queries=6, opened=1, commits=1, accounts=4, other=45,
          statements=6, steps=38)),
    (RENAME,
     cost(children=4, postmap=4, rewrites=2, handlers=6016, queries=5, opened=1, commits=1, accounts=4, maps=2,
          other=11, statements=6, steps=38, env=SECRET)),
    (BACK,
     cost(children=4, postmap=4, rewrites=2, handlers=6016, queries=5, opened=1, commits=1, accounts=4, maps=2,
          other=11, statements=6, steps=38, env=SECRET)),
    (("--remove-mailbox", *CARL), cost(queries=6, opened=1, commits=1, accounts=4, other=1, statements=6, steps=40)),
    (("--remove-mailname", *CARL),
     cost(children=12, postmap=12, handlers=4000, queries=9, opened=1, other=48, statements=5, steps=38)),
    (("--add-handler", *SPAM, *WHOLE), cost(handlers=14)),
    (("--update-handler", *SPAM, *WHOLE), cost(handlers=20)),
    (("--disable-handler", *SPAM), cost(handlers=6)),
    (("--enable-handler", *SPAM), cost(handlers=6)),
    (("--check-handler", *SPAM), cost(handlers=6, status=1)),
    (("--remove-handler", *SPAM), cost(handlers=6)),
    (("--add-domain", f"--domain-name={budgets.NEW}"), cost(children=6, postmap=5, rewrites=1, maps=1, other=17)),
    (("--remove-domain", f"--domain-name={budgets.NEW}"),
     cost(children=5, postmap=5, rewrites=2, handlers=4000, queries=5, opened=1, maps=2, other=14, statements=4,
          steps=15)),
    (("--add-domain-alias", AT, f"--domain-alias-name={budgets.NEW}", "--set-reject"),
     cost(children=3, postmap=2, handlers=22000, queries=8, opened=1, commits=1, accounts=4, other=9, statements=9,
          steps=4037, env=SECRET)),
    (("--rename-domain-alias", AT, f"--old-domain-alias-name={budgets.NEW}", "--new-domain-alias-name=newer.test",
      "--set-reject"),
     cost(children=3, postmap=2, rewrites=1, handlers=28000, queries=7, opened=1, commits=1, accounts=4, maps=1,
          other=6, statements=10, steps=4038)),
    (("--del-domain-alias", AT, "--domain-alias-name=newer.test"),
     cost(children=2, postmap=2, rewrites=1, handlers=10000, queries=5, opened=1, commits=1, accounts=4, maps=1,
          other=6, statements=5, steps=17)),
    (("--set-domain-disk-quota", AT, "--disk-quota=90000"), cost(queries=5, other=1000)),
    (("--set-bounce", AT, "--phrase=No such user"), cost(children=12, postmap=12, queries=5, other=48)),
    (("--set-catchall", AT, f"--email=anna@{budgets.DOMAIN}"), cost(children=1, postmap=1, queries=5, other=4)),
    (("--set-reject", AT), cost(children=1, postmap=1, queries=5, other=4)),
    (("--unset-reject", AT), cost(children=1, postmap=1, queries=5)),
    (("--set-domain-key", AT, f"--file-name={budgets.KEY}"), cost()),
    (("--remove-domain-key", AT), cost()),
    (("--turn-off-domain", AT),
     cost(children=2, postmap=2, handlers=6000, queries=5, opened=1, commits=1, accounts=4, other=9, statements=5,
          steps=27)),
    (("--turn-on-domain", AT),
     cost(children=3, postmap=2, handlers=6000, queries=5, opened=1, commits=1, accounts=4, other=9, statements=5,
          steps=27)),
    (("--remove-mailname", *ANNA),
     cost(children=12, postmap=12, handlers=4002, queries=9, opened=1, commits=1, accounts=4, other=49,
          statements=6, steps=150)),
    (("--remove-domain", AT),
     cost(children=5, postmap=5, rewrites=2, handlers=5994, queries=5, opened=1, commits=1, accounts=4, maps=2,
          other=9, statements=5, steps=27)),
    (("--add-badmailfrom", "--domain-name=bad.test"), cost(children=1, postmap=1, other=4)),
    (("--remove-badmailfrom", "--domain-name=bad.test"), cost(children=2, postmap=2, other=4)),
    (("--add-whitelist", "--ip-address=10.0.0.0", "--netmask=8"), cost(children=5, other=1)),
    (("--remove-whitelist", "--ip-address=10.0.0.0", "--netmask=8"), cost(children=5, other=1)),
    (("--set-maps-protection", "--maps-zones=zone1.test,zone2.test"), cost(children=4, other=1)),
    (("--set-accounts-format", "--account-format=compound"), cost(children=1)),
    (("--set-max-letter-size", "--size=10000000"), cost(children=3, other=1)),
    (("--update-spf", "--spf-behavior=2", "--spf-rules=v=spf1", "--spf-exp=why"), cost()),
    (("--set-mail-params", "--relayclient", "--smtpauth", "--popauth", "--poplock-time=20"),
     cost(children=8, other=3)),
    (("--set-mail-params", "--smtpauth"), cost(children=11, other=4)),
    (("--start-service",), cost(children=3, queries=5)),
    (("--restart-service",), cost(children=4, queries=5)),
    (("--reload-service",), cost(children=2)),
    (("--status-service",), cost(children=1)),
    (("--stop-service",), cost(children=4, queries=5)),
    (("--start-service", *components("submission")), cost(children=2, queries=5)),
    (("--stop-service", *components("submission")), cost(children=2, queries=5)),
    (("--start-smtpd",), cost(children=2)),
    (("--restart-smtpd",), cost(children=2)),
    (("--status-smtpd",), cost()),
    (("--stop-smtpd",), cost(children=2)),
    (("--start-qmail-send",), cost()),
    (("--stop-qmail-send",), cost(children=1)),
    (("--start-maild",), cost(children=1)),
    (("--restart-maild",), cost(children=1)),
    (("--status-maild",), cost(children=1)),
    (("--stop-maild",), cost(children=1)),
    (("--enable-message-submission",), cost(children=3)),
    (("--disable-message-submission",), cost(children=3)),
]
