"""How many statements commands run on the account database of a full host, and how many steps those take."""
import budgets
from budget_rows import BUDGETS

SANITIZED_TOO = False  # the statements are the same, and a debugger disturbs the sanitizers
NEEDED = ("--add-mailname", "--add-domain")  # by the commands after them


def test_accounts_cost_as_many_statements_as_budgets_say():
    budgets.full_host(handlers=0)
    wrong = {}
    for arguments, budget in BUDGETS:
        if budget.statements or arguments[0] in NEEDED:
            spent = budgets.statements(*arguments, env=budget.env)
            if spent != budget.statements:
                wrong[arguments[:3]] = spent
    assert not wrong
