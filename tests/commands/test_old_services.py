"""The service commands without options: -p, -o, -r, -s, -l, -m, -i, -t, -z, -e, -a, -b."""
import pathlib

from host_faults import read_only
from mailhost import done, mailvek, nothing_changes, read, runs, slept, start, wait_until, write
from services import (
    COURIER, FILTER, MASTER_CF, PARKED, POSTFIX, SMTPS, SUBMISSION, actions, entries, listens, postfix_is_up, unusable,
)
from spies import Rule, calls, spy

PID_FILE = "/var/spool/postfix/pid/master.pid"


def inet_services():
    return [line.split()[0] for line in entries() if line.split()[1:2] == ["inet"]]


# ------------------------------------------------------------------------ smtp and smtps


def test_smtpd_starts_and_stops_as_smtp_and_smtps():
    for starts in ("-p", "--start-smtpd", "-r", "--restart-smtpd"):
        spy(POSTFIX, Rule(exit=0))
        seen = len(calls())
        done(starts)
        assert inet_services() == ["smtp", "smtps"]
        done("-o")
        assert inet_services() == []
        done(starts)
        assert inet_services() == ["smtp", "smtps"]
        done("--stop-smtpd")
        assert inet_services() == []
        assert set(actions()[seen:]) == {(POSTFIX, "reload")}


def test_a_stock_entry_of_smtp_is_left_as_it_is():
    spy(POSTFIX, Rule(exit=0))
    before = entries()
    done("-p")
    assert entries() == [*before, SMTPS]


def test_smtp_gets_the_panel_s_entry_when_there_is_none():
    spy(POSTFIX, Rule(exit=0))
    write(MASTER_CF, "qmgr unix n - n 300 1 qmgr\n")
    done("-p")
    assert entries()[1:] == [f"smtp inet n - n - - smtpd {FILTER}", SMTPS]


def test_a_change_is_reloaded_only_while_postfix_does_not_run():
    spy(POSTFIX, Rule(exit=0))
    done("-p")
    assert actions() == [(POSTFIX, "reload")]
    done("-p")
    assert len(calls()) == 1
    start("postfix")
    for command in ("-o", "-r", "-o", "-p"):
        done(command)
    assert len(calls()) == 1


def test_smtpd_is_a_success_when_its_reload_fails():
    for rule in (Rule(exit=9), Rule(signal=9)):
        spy(POSTFIX, rule)
        done("-p")
        done("-o")


def test_a_reload_that_cannot_be_run_is_fatal():
    with unusable(POSTFIX):
        for command in ("-p", "-o", "-r"):
            ended = mailvek(command)
            assert ended.status == 1 and "execve: Permission denied" in ended.err, ended


def test_smtpd_ends_at_a_master_cf_that_cannot_be_written():
    spy(POSTFIX)
    read_only("/etc/postfix")
    for command in ("-p", "-r", "-a"):
        ended = mailvek(command)
        assert ended.status == 1 and "Fatal error: " in ended.err, ended
    assert calls() == []


# -------------------------------------------------------------------------------- Postfix


def test_postfix_starts_and_stops():
    for starts, stops in (("-l", "-m"), ("--start-qmail-send", "--stop-qmail-send")):
        ended = mailvek(starts)
        assert (ended.status, ended.err) == (0, ""), ended
        assert postfix_is_up() and wait_until(lambda: listens(25))
        for command in ("-s", "--status-smtpd"):
            done(command, out="is running\n")
        ended = mailvek(stops)
        assert (ended.status, ended.err) == (0, ""), ended
        wait_until(lambda: not listens(25))


def test_only_the_text_tells_a_stopped_postfix():
    spy(POSTFIX)
    for command in ("-s", "--status-smtpd"):
        done(command, out="is stopped\n")
    assert calls() == []


def test_a_master_without_its_queue_manager_does_not_run():
    start("postfix")
    spy(POSTFIX)
    master = read(PID_FILE).strip()
    pathlib.Path(PID_FILE).write_text("1\n")
    done("-s", out="is stopped\n")
    done("-m")
    pathlib.Path(PID_FILE).write_text(f"{master}\n")
    done("-s", out="is running\n")
    assert calls() == []


def test_no_script_starts_the_running_or_stops_the_stopped():
    spy(POSTFIX, Rule(exit=3))
    done("-m")
    start("postfix")
    done("-l")
    assert calls() == []


def test_a_failed_start_or_stop_gives_the_status():
    for rule, status in ((Rule(exit=3), 3), (Rule(exit=1), 1), (Rule(signal=15), 255)):
        spy(POSTFIX, rule)
        ended = mailvek("-l", nosleep=True)
        assert (ended.status, ended.out, ended.err) == (status, "", ""), ended
    assert slept() == []
    start("postfix")
    for rule, status in ((Rule(exit=4), 4), (Rule(signal=9), 255)):
        spy(POSTFIX, rule)
        assert mailvek("-m", nosleep=True).status == status
    assert slept() == []


def test_a_dead_postfix_is_status_1_after_five_seconds():
    spy(POSTFIX, Rule(exit=0))
    assert mailvek("-l", nosleep=True).status == 1
    assert slept() == 5 * [("sleep", 1)]


def test_a_script_that_cannot_be_run_is_fatal():
    with unusable(POSTFIX):
        ended = mailvek("-l")
        assert ended.status == 1 and "execve: Permission denied" in ended.err, ended
        start("postfix")
        assert mailvek("-m").status == 1


# -------------------------------------------------------------------------------- Courier


def test_courier_starts_restarts_and_stops():
    for starts, restarts, asks, stops in (
        ("-i", "-z", "-e", "-t"), ("--start-maild", "--restart-maild", "--status-maild", "--stop-maild")):
        done(starts)
        wait_until(lambda: runs("courier"))
        done(asks, out="is running\n")
        first = read("/run/courier/imapd.pid")
        done(restarts)
        wait_until(lambda: runs("courier"))
        assert read("/run/courier/imapd.pid") != first
        done(stops)
        wait_until(lambda: not listens(143))


def test_a_courier_that_fails_reaches_the_shell_as_255():
    for command, word in (("-i", "start"), ("-t", "stop"), ("-z", "restart")):
        spy(COURIER, Rule(exit=1))
        ended = mailvek(command)
        report = f"Service {COURIER} failed to {word}\n"
        assert ended.status == 255 and ended.out == ended.err == report, ended
        spy(COURIER, Rule(signal=9))
        assert mailvek(command).status == 255


def test_the_query_of_courier_is_a_success_whatever_it_finds():
    for rule, answer in ((Rule(exit=0), "is running"), (Rule(exit=3), "internal error")):
        spy(COURIER, rule)
        done("-e", out=f"{answer}\n")
    assert actions() == [(COURIER, "status")] * 2


# ----------------------------------------------------------------------------- submission


def test_submission_listens_when_switched_on_and_not_when_switched_off():
    start("postfix")
    for on, off in (("-a", "-b"), ("--enable-message-submission", "--disable-message-submission")):
        assert mailvek(on).status == 0
        assert entries()[-1] == SUBMISSION
        wait_until(lambda: listens(587))
        assert mailvek(off).status == 0
        assert SUBMISSION not in entries() and SUBMISSION in read(PARKED)
        wait_until(lambda: not listens(587))
        assert listens(25)


def test_submission_is_reloaded_for_each_change_and_for_none_else():
    spy(POSTFIX, Rule(exit=6))
    for command, count in (("-b", 0), ("-a", 1), ("-a", 1), ("-b", 2), ("-b", 2), ("-a", 3)):
        done(command)
        assert actions(POSTFIX) == count * ["reload"], command
    start("postfix")
    done("-b")
    assert actions(POSTFIX) == 4 * ["reload"]


def test_a_reload_for_submission_that_cannot_be_run_is_fatal():
    for command, stored in (("-a", True), ("-b", False)):
        with unusable(POSTFIX):
            ended = mailvek(command)
        assert ended.status == 1 and "execve: Permission denied" in ended.err, ended
        assert (SUBMISSION in entries()) == stored


def test_submission_keeps_what_an_administrator_has_written():
    spy(POSTFIX, Rule(exit=0))
    own = "submission inet n - n - 30 smtpd -o own=yes"
    write(MASTER_CF, read(MASTER_CF) + own + "\n")
    with nothing_changes():
        done("-a")
    done("-b")
    assert own not in entries()
    done("-a")
    assert entries()[-1] == own


def test_what_follows_is_ignored():
    spy(POSTFIX, Rule(exit=0))
    done("-s", "--help", "--nonsense", out="is stopped\n")
    done("-p", "--mail-component=ftp")
    assert inet_services() == ["smtp", "smtps"]
    done("-b", "-h")
