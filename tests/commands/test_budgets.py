"""What each command costs on a full host, exactly. A change that makes one dearer, or cheaper, changes its row."""
import re

import budgets
from budget_rows import BUDGETS
from mailhost import mailvek

SANITIZED_TOO = False  # the sanitizers' own runtime opens files too, and takes long


def test_commands_cost_what_their_budgets_say():
    budgets.full_host()
    wrong = {}
    for arguments, budget in BUDGETS:
        spent = budgets.cost(*arguments, env=budget.env, status=budget.status)
        if spent != budget.spent:
            wrong[arguments[:3]] = spent
    assert not wrong


def test_each_command_has_a_budget():
    listed = re.findall(r"^(?:-\w, )?(--[\w-]+)", mailvek("--help-commands").out, re.M)
    assert len(listed) > 60 and set(listed) == {arguments[0] for arguments, _ in BUDGETS}
