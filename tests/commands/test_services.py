"""--start-service, --stop-service, --restart-service, --reload-service."""
import pathlib

import pytest

from host_faults import read_only
from mailhost import mailvek, nothing_changes, panel_sql, read, runs, slept, start, stop, wait_until, write
from services import (
    COURIER, MASTER_CF, ODD_ENTRY, PARKED, POSTFIX, RELOAD, RESTART, SMTPS, START, STOP, SUBMISSION, actions,
    components, entries, listens, panel_has_submission, postfix_is_up, serviced, status, unusable,
)
from spies import Rule, calls, spy

TAKES_LONG = True


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_has_submission(False)


# --------------------------------------------------------------------- the real init scripts


def test_everything_starts_restarts_reloads_and_stops():
    panel_has_submission(True)
    serviced(START)
    assert wait_until(postfix_is_up) and wait_until(lambda: runs("courier"))
    assert wait_until(lambda: listens(25, 465, 587, 143, 110))
    assert entries()[-2:] == [SMTPS, SUBMISSION]
    assert status() == [f"{name} is running" for name in ("mta", "pop3", "pop3s", "imap", "imaps")]
    master = read("/var/spool/postfix/pid/master.pid")
    serviced(RESTART)
    assert wait_until(postfix_is_up) and read("/var/spool/postfix/pid/master.pid") != master
    wait_until(lambda: listens(25, 465, 587, 143, 110))
    master = read("/var/spool/postfix/pid/master.pid")
    serviced(RELOAD)
    assert wait_until(postfix_is_up) and read("/var/spool/postfix/pid/master.pid") == master
    serviced(STOP)
    wait_until(lambda: not listens(25) and not listens(143))
    assert not postfix_is_up()
    assert [line for line in entries() if line.split()[1] == "inet"] == [SUBMISSION]


def test_one_courier_server_starts_them_all_only():
    before = read(MASTER_CF)
    serviced(START, "pop3", out="")
    wait_until(lambda: runs("courier"))
    assert listens(143, 110) and not listens(25)
    assert read(MASTER_CF) == before
    serviced(STOP, "imaps", out="")
    wait_until(lambda: not listens(143))


def test_submission_listens_only_while_it_is_on():
    panel_has_submission(True)
    serviced(START, "mta", "submission")
    wait_until(lambda: listens(25, 587))
    panel_has_submission(False)
    serviced(RESTART, "mta", "submission")
    wait_until(lambda: listens(25))
    assert not listens(587)


# ------------------------------------------------------------------------------------- start


def test_all_are_meant_when_none_is_named():
    start("postfix")
    spy(POSTFIX)
    spy(COURIER, Rule(exit=0))
    for command, expected in (
        (START, [(COURIER, "start")]),
        (RESTART, [(POSTFIX, "restart"), (COURIER, "restart")]),
        (RELOAD, [(POSTFIX, "reload"), (COURIER, "reload")]),
        (STOP, [(POSTFIX, "stop"), (COURIER, "stop")]),
    ):
        seen = len(calls())
        serviced(command)
        assert [row for row in actions()[seen:] if row != (POSTFIX, "start")] == expected


def test_changed_services_are_reloaded_after_a_start():
    spy(POSTFIX)
    serviced(START, "mta", "smtps")
    assert actions(POSTFIX) == ["start", "reload"]
    assert entries()[-1] == SMTPS


def test_a_start_without_a_change_does_not_reload():
    spy(POSTFIX)
    serviced(START, "mta", "smtp", "submission")
    assert actions(POSTFIX) == ["start"]


def test_starting_one_service_reloads_a_stopped_postfix():
    spy(POSTFIX, Rule(exit=0))
    serviced(START, "smtps", out="")
    assert actions(POSTFIX) == ["reload"]


def test_starting_one_service_does_not_reload_a_running_postfix():
    start("postfix")
    spy(POSTFIX)
    serviced(START, "smtps", out="")
    assert entries()[-1] == SMTPS and calls(POSTFIX) == []


def test_a_failed_reload_after_a_start_leaves_the_status():
    spy(POSTFIX, Rule(exit=4))
    serviced(START, "smtps")


def test_a_failed_start_is_status_1_but_courier_starts():
    for rule in (Rule(exit=3), Rule(exit=1), Rule(signal=9)):
        spy(POSTFIX, rule)
        spy(COURIER, Rule(exit=0))
        ended = mailvek(START, *components("mta", "imap"), nosleep=True)
        assert (ended.status, ended.out, ended.err) == (1, "", ""), ended
    assert actions() == 3 * [(POSTFIX, "start"), (COURIER, "start")]
    assert slept() == []


def test_a_failed_start_is_still_followed_by_a_reload():
    for rule in (Rule(having="start", exit=3), Rule(having="start", signal=9)):
        write(MASTER_CF, read(MASTER_CF).replace(SMTPS, "#"))
        spy(POSTFIX, rule, Rule(exit=0))
        spy(COURIER, Rule(exit=0))
        assert mailvek(START, *components("mta", "smtps", "pop3"), nosleep=True).status == 1
        assert actions()[-3:] == [(POSTFIX, "start"), (POSTFIX, "reload"), (COURIER, "start")]
    assert len(calls()) == 6


def test_a_starting_postfix_is_given_five_seconds():
    for command in (START, RESTART):
        spy(POSTFIX, Rule(exit=0))
        pathlib.Path("/run/mailvek/nosleep").unlink(missing_ok=True)
        assert mailvek(command, *components("mta"), nosleep=True).status == 1
        assert slept() == 5 * [("sleep", 1)]


def test_other_components_need_neither_master_cf_nor_the_panel():
    write(MASTER_CF, read(MASTER_CF) + ODD_ENTRY)
    start("postfix")
    stop("mariadb")
    spy(POSTFIX, Rule(exit=0))
    spy(COURIER, Rule(exit=0))
    with nothing_changes():
        for command in (START, RESTART, STOP):
            serviced(command, "mta", "pop3")
    assert actions() == [(COURIER, "start"), (POSTFIX, "restart"), (COURIER, "restart"), (POSTFIX, "stop"),
                         (COURIER, "stop")]


def test_an_unrunnable_script_is_reported_and_courier_goes_on():
    start("postfix")
    for command, word in ((STOP, "stop"), (RESTART, "restart"), (RELOAD, "reload")):
        with unusable(POSTFIX):
            spy(COURIER, Rule(exit=0))
            ended = mailvek(command, *components("mta", "pop3"))
            assert ended.status == 1 and actions()[-1] == (COURIER, word), ended
            assert "Fatal error: " in ended.err and "execve: Permission denied" in ended.err
    stop("postfix")
    with unusable(POSTFIX):
        ended = mailvek(START, *components("mta", "pop3"))
        assert ended.status == 1 and actions()[-1] == (COURIER, "start"), ended
        assert "execve: Permission denied" in ended.err


def test_an_unrunnable_reload_ends_the_command_before_courier():
    spy(COURIER, Rule(exit=0))
    for command, name in ((START, "smtps"), (STOP, "smtp"), (RESTART, "smtp")):
        with unusable(POSTFIX):
            ended = mailvek(command, *components(name, "pop3"))
        assert ended.status == 1 and "execve: Permission denied" in ended.err, ended
    assert calls() == []


def test_a_courier_that_fails_is_status_1():
    for command, word in ((START, "start"), (STOP, "stop"), (RESTART, "restart"), (RELOAD, "reload")):
        for rule in (Rule(exit=5), Rule(signal=15)):
            spy(COURIER, rule)
            spy(POSTFIX, Rule(exit=0))
            ended = mailvek(command, *components("imap"))
            assert ended.status == 1 and actions()[-1] == (COURIER, word), ended
        assert f"Unable to {word} service {COURIER}: daemon killed by signal 15\n" in ended.err
    assert actions(POSTFIX) == []


# ---------------------------------------------------------------------------- stop, restart


def test_stopping_one_service_does_not_reload_a_running_postfix():
    start("postfix")
    spy(POSTFIX)
    serviced(STOP, "smtp", out="")
    assert not [line for line in entries() if line.split()[:2] == ["smtp", "inet"]]
    assert calls(POSTFIX) == []
    assert listens(25)


def test_stopping_one_service_reloads_a_stopped_postfix():
    spy(POSTFIX, Rule(exit=0))
    serviced(STOP, "smtp", out="")
    assert actions(POSTFIX) == ["reload"]


def test_stopping_a_stopped_postfix_runs_nothing():
    spy(POSTFIX)
    serviced(STOP, "mta", "smtp")
    assert calls(POSTFIX) == []


def test_a_failed_stop_is_status_1_but_courier_stops():
    start("postfix")
    spy(POSTFIX, Rule(exit=2))
    spy(COURIER, Rule(exit=0))
    assert mailvek(STOP, *components("mta", "imap")).status == 1
    assert actions() == [(POSTFIX, "stop"), (COURIER, "stop")]


def test_services_are_parked_in_an_order_of_their_own():
    spy(POSTFIX, Rule(exit=0))
    panel_has_submission(True)
    serviced(START, "submission", "smtps")
    panel_has_submission(False)
    serviced(STOP, "submission", "smtps", "smtp")
    assert [line.split()[0] for line in read(PARKED).splitlines() if line] == ["smtp", "smtps", "submission"]


def test_a_failed_restart_is_status_1_but_courier_restarts():
    for rule in (Rule(exit=3), Rule(signal=9)):
        spy(POSTFIX, rule)
        spy(COURIER, Rule(exit=0))
        assert mailvek(RESTART, *components("mta", "imap"), nosleep=True).status == 1
    assert actions() == 2 * [(POSTFIX, "restart"), (COURIER, "restart")]
    assert slept() == []


def test_a_restart_of_postfix_skips_the_reload():
    spy(POSTFIX)
    serviced(RESTART, "mta", "smtps")
    assert actions(POSTFIX)[0] == "restart" and "reload" not in actions(POSTFIX)
    assert entries()[-1] == SMTPS


def test_a_restart_restores_what_a_stop_parked():
    write(MASTER_CF, read(MASTER_CF).replace("smtp       inet", "smtp inet n - n - 77 smtpd -o own=yes\n#", 1))
    before = sorted(entries())
    serviced(STOP, "smtp", nosleep=True)
    assert "smtp inet n - n - 77 smtpd -o own=yes" not in entries()
    spy(POSTFIX, Rule(exit=0))
    serviced(RESTART, "smtp")
    assert sorted(entries()) == before
    assert actions(POSTFIX) == ["reload"]


def test_a_stop_and_a_start_of_submission_follow_the_panel():
    spy(POSTFIX, Rule(exit=0))
    panel_has_submission(True)
    serviced(START, "submission")
    assert entries()[-1] == SUBMISSION
    with nothing_changes():
        serviced(STOP, "submission")
    panel_has_submission(False)
    serviced(STOP, "submission")
    assert SUBMISSION not in entries()
    panel_has_submission(True)
    serviced(RESTART, "submission")
    assert entries()[-1] == SUBMISSION
    panel_has_submission(False)
    serviced(START, "submission")
    assert SUBMISSION not in entries()


def test_a_stop_restores_nothing_that_somebody_parked():
    spy(POSTFIX, Rule(exit=0))
    panel_has_submission(True)
    serviced("--enable-message-submission")
    serviced("--disable-message-submission")
    with nothing_changes():
        serviced(STOP, "submission", "smtps")
    assert SUBMISSION not in entries()
    assert len(calls()) == 2


def test_an_unreadable_submission_setting_warns_and_is_off():
    spy(POSTFIX, Rule(exit=0))
    panel_has_submission(True)
    serviced(START, "submission")
    panel_sql("RENAME TABLE misc TO settings; CREATE VIEW misc AS SELECT param, "
              "IF(param = 'message_submission', (SELECT 1 UNION SELECT 2), val) AS val FROM settings")
    ended = mailvek(STOP, *components("submission"))
    panel_sql("DROP VIEW misc; RENAME TABLE settings TO misc")
    warning = "Warning: MySQL Error on Mail Authentication Type query: "
    assert ended.status == 0 and ended.err.startswith(warning) and ended.out.startswith(warning), ended
    assert SUBMISSION not in entries()


def test_an_unreachable_panel_ends_the_command_at_once():
    stop("mariadb")
    spy(POSTFIX)
    spy(COURIER)
    before = read(MASTER_CF)
    for command in (START, STOP, RESTART):
        ended = mailvek(command)
        assert ended.status == 1 and "Fatal error: " in ended.err, ended
    assert calls() == [] and read(MASTER_CF) == before
    assert not pathlib.Path(PARKED).exists()


def test_an_unusable_master_cf_ends_the_command_at_once():
    spy(POSTFIX)
    spy(COURIER)
    before = read(MASTER_CF)
    write(MASTER_CF, before + ODD_ENTRY)
    for command in (START, STOP, RESTART):
        ended = mailvek(command)
        assert ended.status == 1 and "Fatal error: " in ended.err, ended
    write(MASTER_CF, before)
    read_only("/etc/postfix")
    ended = mailvek(START)
    assert ended.status == 1 and "Fatal error: " in ended.err, ended
    assert calls() == [] and read(MASTER_CF) == before


# ------------------------------------------------------------------------------------ reload


def test_a_reload_does_not_look_at_the_services():
    stop("mariadb")
    spy(POSTFIX, Rule(exit=0))
    before = read(MASTER_CF)
    serviced(RELOAD, "smtp", "smtps", "submission", out="")
    assert calls() == []
    serviced(RELOAD, "mta", "smtps", out="")
    assert actions(POSTFIX) == ["reload"] and read(MASTER_CF) == before


def test_a_failed_reload_is_status_1_but_courier_reloads():
    spy(POSTFIX, Rule(exit=7))
    spy(COURIER, Rule(exit=0))
    assert mailvek(RELOAD).status == 1
    assert actions() == [(POSTFIX, "reload"), (COURIER, "reload")]


# -------------------------------------------------------------- how the two scripts are run


def test_postfixs_script_gets_only_lang_and_speaks_on_stdout():
    spy(POSTFIX, Rule(exit=3, out="one\n", err="two\n"))
    ended = mailvek(START, *components("mta"), env={"ORV_PASSWORD": "secret"})
    assert (ended.status, ended.out, ended.err) == (1, "one\ntwo\n", "")
    (call,) = calls(POSTFIX)
    assert call.argv == [POSTFIX, "start"] and call.env == {"LANG": "C"}
    assert call.cwd == "/" and call.fds[0] == "/dev/null" and call.fds[1] == call.fds[2]


def test_couriers_script_gets_null_streams_and_speaks_on_stderr():
    spy(COURIER, Rule(exit=0, out="one\n", err="two\n"))
    ended = mailvek(START, *components("pop3"))
    assert (ended.status, ended.out, ended.err) == (0, "", "two\n")
    (call,) = calls(COURIER)
    assert call.argv == [COURIER, "start"] and call.cwd == "/etc/init.d"
    assert sorted(call.fds) == [0, 1, 2] and call.fds[0] == call.fds[1] == "/dev/null"


def test_no_daemon_is_touched_where_the_configuration_says_so():
    write("/etc/orv/orv.conf", read("/etc/orv/orv.conf") + "NO_RESTART_DAEMON 1\n")
    spy(COURIER)
    for command in (START, STOP, RESTART, RELOAD):
        serviced(command, "pop3")
    assert status("imap") == ["imap is running"] and calls() == []


def test_a_host_without_courier_is_told_so():
    pathlib.Path(COURIER).unlink()
    ended = mailvek(START, *components("imap"))
    assert ended.status == 1
    assert ended.err.startswith("Unable to find start/stop script for 'courier-imap'\n"), ended
