"""--status-service."""
from mailhost import mailvek, nothing_changes, slept, start
from services import COURIER, POSTFIX, STATUS, components, serviced, status, unusable
from spies import Rule, calls, spy


def test_status_lists_each_component_in_its_own_order():
    start("postfix", "courier")
    assert status("imaps", "imap", "mta", "pop3s", "pop3") == [
        "mta is running", "pop3 is running", "pop3s is running", "imap is running", "imaps is running"]
    assert status("imap", "pop3s") == ["pop3s is running", "imap is running"]
    assert status("mta") == ["mta is running"]


def test_status_of_what_has_no_process_prints_nothing():
    with nothing_changes():
        assert serviced(STATUS, "smtp", "smtps", "submission").out == ""


def test_status_of_a_stopped_postfix_is_a_success():
    assert serviced(STATUS, "mta").out == "mta is stopped\n"


def test_status_asks_only_couriers_script_once():
    spy(COURIER)
    spy(POSTFIX)
    serviced(STATUS, nosleep=True)
    assert [(call.program, call.argv[1:]) for call in calls()] == [(COURIER, ["status"])]
    assert slept() == []


def test_a_courier_not_said_to_run_is_an_error():
    for rule in (Rule(exit=3), Rule(exit=1), Rule(signal=9)):
        spy(COURIER, rule)
        ended = mailvek(STATUS, *components("pop3", "imap"))
        assert ended.status == 0, ended
        assert [line for line in ended.out.splitlines() if line.startswith(("pop3", "imap"))] == [
            "pop3 internal error", "imap internal error"]


def test_an_unrunnable_courier_script_leaves_the_earlier_lines():
    with unusable(COURIER):
        ended = mailvek(STATUS, *components("mta", "imap"))
    assert (ended.status, ended.out, ended.err) == (0, "mta is stopped\nimap internal error\n", "")
