"""What each command may cost on a full host, exactly. A change that makes one dearer, or cheaper, changes its
row here."""
import budgets

SANITIZED_TOO = False  # the sanitizers' own runtime opens files too, and takes long

AT = f"--domain-name={budgets.DOMAIN}"
ANNA = (AT, "--mailname=anna")
SECRET = {"ORV_PASSWORD": "secret"}
RENAME = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
BACK = ("--rename-mailname", AT, "--old-mailname=anita", "--new-mailname=anna")


def cost(children=0, postmap=0, rewrites=0, handlers=0, queries=0, accounts=0, maps=0, other=0):
    """children counts the runs of postmap too. The last three are fsyncs. All commands make one connection to
    the panel's database."""
    spent = {"children": children, "runs of postmap": postmap, "rewrites": rewrites, "handler files read": handlers,
             "panel connections": 1, "panel queries": queries, "fsyncs of accounts": accounts,
             "fsyncs of maps": maps, "other fsyncs": other}
    return {what: count for what, count in spent.items() if count}


BUDGETS = [
    (("--set-password", *ANNA), SECRET,
     cost(accounts=4, other=1, queries=6)),
    (("--add-alias", *ANNA, "--alias=annie"), None,
     cost(children=1, postmap=1, handlers=6016, queries=6, accounts=4, other=5)),
    (("--remove-alias", *ANNA, "--alias=annie"), None,
     cost(children=11, postmap=11, handlers=4006, queries=6, accounts=4, other=45)),
    (RENAME, SECRET,
     cost(children=4, postmap=4, rewrites=2, handlers=6016, queries=5, accounts=4, maps=2, other=11)),
    (BACK, SECRET,
     cost(children=4, postmap=4, rewrites=2, handlers=6016, queries=5, accounts=4, maps=2, other=11)),
    (("--add-domain-alias", AT, f"--domain-alias-name={budgets.NEW}", "--set-reject"), SECRET,
     cost(children=3, postmap=2, handlers=22000, queries=8, accounts=4, other=9)),
    (("--remove-mailname", *ANNA), None,
     cost(children=12, postmap=12, handlers=8002, queries=9, accounts=4, other=49)),
    (("--turn-off-domain", AT), None,
     cost(children=2, postmap=2, handlers=9994, queries=5, accounts=4, other=9)),
    (("--remove-domain", AT), None,
     cost(children=5, postmap=5, rewrites=2, handlers=9994, queries=5, accounts=4, maps=2, other=8)),
]


def test_commands_cost_what_their_budgets_say():
    budgets.full_host()
    for arguments, env, budget in BUDGETS:
        assert budgets.cost(*arguments, env=env) == budget, arguments[0]
