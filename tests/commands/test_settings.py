"""--set-mail-params, --set-accounts-format, --set-max-letter-size, --get-max-letter-size,
--get-mailbox-size-limit, --update-spf: what they write, and what a failure leaves."""
import os
import time

import pytest

from host_faults import read_only, undo
from mailhost import MAPS, done, failed, mailvek, misused, nothing_changes, postconf, read, set_postconf, write
from spies import Rule, calls, spy

POSTCONF, POSTFIX, COURIER = "/usr/sbin/postconf", "/etc/init.d/postfix", "/etc/init.d/courier-imap"
COURIER_FILES = [f"/etc/courier-imap/{name}" for name in ("imapd", "imapd-ssl", "pop3d", "pop3d-ssl")]
NO_RELAY, POPLOCK = f"check_client_access pcre:{MAPS}/no_relay.re", f"hash:{MAPS}/poplock"
OPEN = f"permit, {NO_RELAY}, reject"
CLOSED = f"permit_mynetworks, {NO_RELAY}, reject_unauth_destination"
USERS = f"permit_mynetworks, {NO_RELAY}, permit_sasl_authenticated, reject_unauth_destination"
NETWORKS = "127.0.0.0/8, 192.0.2.0/24, 198.51.100.0/24, 203.0.113.0/24"
FATAL = "Fatal error: orvek::mail::postfix::PostfixConfigurationError"
NO_SHORT_NAMES = ("Fatal error: orvek::NotSupportedError(short account-format is not supported for Postfix"
                  " isn't supported)\n")
SPF = "/etc/orv-spf"


@pytest.fixture(autouse=True)
def services_that_do_nothing():
    set_postconf(mynetworks=NETWORKS)
    spy(POSTFIX, Rule(exit=0))
    spy(COURIER, Rule(exit=0))


def reloads():
    return [call.argv[1:] for call in calls(POSTFIX)]


def restarts():
    return [call.argv[1:] for call in calls(COURIER)]


def setting(name):
    """A Courier variable in each of the four files."""
    found = [[line for line in read(path).splitlines() if line.startswith(f"{name}=")] for path in COURIER_FILES]
    assert found == [found[0]] * 4, found
    return found[0]


def fail_writes(after=0):
    """Makes postconf -e fail after that many writes."""
    spy(POSTCONF, *([Rule(having="-e", times=after)] if after else []),
        Rule(having="-e", exit=1, err="postconf: fatal: no\n"))


# -------------------------------------------------------------------------- --set-mail-params


def test_without_a_word_nobody_from_outside_may_relay():
    set_postconf(mynetworks=f"{NETWORKS}, {POPLOCK}", smtpd_sasl_auth_enable="yes")
    for path in COURIER_FILES:
        write(path, read(path) + "RELAYCLIENT=\nPOPAUTH=1\nPOPLOCK_TIME=7\n")
    done("--set-mail-params")
    assert postconf("smtpd_recipient_restrictions") == CLOSED
    assert postconf("smtpd_sasl_auth_enable") == "no"
    assert postconf("mynetworks") == NETWORKS
    assert setting("RELAYCLIENT") == setting("POPAUTH") == [] and setting("POPLOCK_TIME") == ["POPLOCK_TIME=7"]
    assert restarts() == [["restart"]] and reloads() == [["reload"]]


def test_users_and_pop_before_smtp_clients_may_relay():
    done("--set-mail-params", "--smtpauth", "--popauth", "--poplock-time=30")
    assert postconf("smtpd_recipient_restrictions") == USERS
    assert postconf("smtpd_sasl_auth_enable") == "yes"
    assert postconf("mynetworks") == f"{NETWORKS}, {POPLOCK}"
    assert setting("POPAUTH") == ["POPAUTH=1"] and setting("POPLOCK_TIME") == ["POPLOCK_TIME=30"]
    assert setting("RELAYCLIENT") == setting("SHORTNAMES") == []


def test_an_open_relay_asks_for_nothing_else():
    done("--set-mail-params", "--relayclient", "--smtpauth", "--popauth")
    assert postconf("smtpd_recipient_restrictions") == OPEN
    assert postconf("smtpd_sasl_auth_enable") == "no" and postconf("mynetworks") == NETWORKS
    assert setting("RELAYCLIENT") == ["RELAYCLIENT="] and setting("POPAUTH") == ["POPAUTH=1"]


def test_the_same_parameters_twice_give_the_same_settings():
    for _ in range(2):
        done("--set-mail-params", "--smtpauth", "--popauth", "--poplock-time=30")
    assert postconf("smtpd_recipient_restrictions") == USERS
    assert postconf("mynetworks") == f"{NETWORKS}, {POPLOCK}"
    assert setting("POPAUTH") == ["POPAUTH=1"]


def test_a_time_of_zero_takes_the_variable_away():
    done("--set-mail-params", "--poplock-time=30")
    done("--set-mail-params", "--poplock-time=0")
    assert setting("POPLOCK_TIME") == []


def test_a_negative_time_leaves_the_variable_as_it_is():
    done("--set-mail-params", "--poplock-time=30")
    done("--set-mail-params", "--poplock-time=-32768")
    assert setting("POPLOCK_TIME") == ["POPLOCK_TIME=30"]


def test_courier_comes_first_and_the_reload_last():
    spy(POSTCONF)
    done("--set-mail-params", "--smtpauth", "--popauth")
    steps = [" ".join(call.argv[1:]) for call in calls()]
    lists = [f"-e smtpd_recipient_restrictions={value}"
             for value in ("permit_mynetworks", f"permit_mynetworks, {NO_RELAY}", USERS)]
    assert steps == [
        "restart", "-h config_directory", "-e smtpd_sasl_auth_enable=yes",
        lists[0], "-h smtpd_recipient_restrictions", lists[1], "-h smtpd_recipient_restrictions", lists[2],
        "-h mynetworks", "-h -d mynetworks", f"-e mynetworks={NETWORKS}, {POPLOCK}", "reload",
    ]


# postconf pauses when main.cf was changed in the last two seconds.
def test_no_parameter_waits_for_the_one_before_it():
    done("--set-mail-params", "--smtpauth", "--popauth")
    assert os.stat("/etc/postfix/main.cf").st_mtime <= time.time() - 2


@pytest.mark.parametrize("more", [(), ("--relayclient", "--smtpauth", "--popauth", "--poplock-time=5")])
def test_short_names_are_refused_and_nothing_is_changed(more):
    with nothing_changes():
        failed("--set-mail-params", "--shortnames", *more, report=NO_SHORT_NAMES)
    assert calls() == []


def test_when_courier_cannot_be_restarted_postfix_is_left_alone():
    spy(COURIER, Rule(exit=1))
    restrictions = postconf("smtpd_recipient_restrictions")
    ended = mailvek("--set-mail-params", "--smtpauth", "--popauth")
    assert ended.status == 1 and ended.err == "Service /etc/init.d/courier-imap failed to restart\n", ended
    assert setting("POPAUTH") == ["POPAUTH=1"]
    assert postconf("smtpd_recipient_restrictions") == restrictions
    assert postconf("smtpd_sasl_auth_enable") == "no" and reloads() == []


def test_when_couriers_files_cannot_be_written_nothing_else_is_done():
    read_only(os.path.realpath("/etc/courier-imap"))
    ended = mailvek("--set-mail-params", "--smtpauth")
    assert ended.status == 1 and "Unable to create temporary file for " in ended.err, ended
    assert restarts() == reloads() == [] and postconf("smtpd_sasl_auth_enable") == "no"


@pytest.mark.parametrize("writes, restrictions, networks", [
    (0, None, NETWORKS),
    (1, None, NETWORKS),
    (2, "permit_mynetworks", NETWORKS),
    (3, f"permit_mynetworks, {NO_RELAY}", NETWORKS),
    (4, USERS, NETWORKS),
])
def test_a_failed_write_keeps_earlier_ones_without_a_reload(writes, restrictions, networks):
    before = postconf("smtpd_recipient_restrictions")
    fail_writes(after=writes)
    failed("--set-mail-params", "--smtpauth", "--popauth", report=f"{FATAL}(postconf: fatal: no\n)\n")
    assert postconf("smtpd_sasl_auth_enable") == ("yes" if writes else "no")
    assert postconf("smtpd_recipient_restrictions") == (before if restrictions is None else restrictions)
    assert postconf("mynetworks") == networks
    assert reloads() == [] and setting("POPAUTH") == ["POPAUTH=1"]


@pytest.mark.parametrize("rule", [Rule(exit=1), Rule(signal=9)])
def test_nobody_looks_at_the_result_of_the_reload(rule):
    spy(POSTFIX, rule)
    done("--set-mail-params", "--smtpauth")
    assert reloads() == [["reload"]] and postconf("smtpd_sasl_auth_enable") == "yes"


def test_an_unstartable_reload_fails_after_the_change():
    undo(POSTFIX)
    os.remove(POSTFIX)
    ended = mailvek("--set-mail-params", "--smtpauth")
    assert ended.status == 1 and ended.err.startswith("Fatal error: "), ended
    assert "No such file or directory" in ended.err
    assert postconf("smtpd_recipient_restrictions") == USERS


@pytest.mark.parametrize("value", ["x", "32768", ""])
def test_a_bad_poplock_time_is_bad_usage(value):
    ended = mailvek("--set-mail-params", f"--poplock-time={value}")
    assert ended.status == 1 and "poplock-time" in ended.err and "\nUsage: --set-mail-params " in ended.out, ended
    assert calls() == []


def test_help_tells_of_every_parameter():
    with nothing_changes():
        ended = mailvek("--set-mail-params", "--help")
    assert (ended.status, ended.err) == (0, "") and ended.out.startswith(
        "set mail server parameters\nUsage: --set-mail-params [--relayclient] [--smtpauth] [--popauth] "
        "[--poplock-time=<time_in_seconds>] [--shortnames]\nAllowed options to set mail server parameters:\n"), ended
    words = " ".join(ended.out.split())
    for option in ("--relayclient whether to enable mail relaying (disabled by default)",
                   "--smtpauth whether to enable SMTP authorization (disabled by default)",
                   "--popauth whether to enable POP3 before SMTP authorization (disabled by default)",
                   "--poplock-time arg (=-1) POP3 authorization validity time",
                   "--shortnames whether to enable short names (legacy, not supported)"):
        assert option in words, ended


# ----------------------------------------------------------------------- --set-accounts-format


def test_the_compound_format_removes_only_couriers_short_names():
    for path in COURIER_FILES:
        write(path, read(path) + "SHORTNAMES=1\nPOPAUTH=1\n")
    done("--set-accounts-format", "--account-format=compound")
    assert setting("SHORTNAMES") == [] and setting("POPAUTH") == ["POPAUTH=1"]
    assert restarts() == [["restart"]] and reloads() == []


def test_the_format_with_short_names_is_refused():
    with nothing_changes():
        failed("--set-accounts-format", "--account-format=both", report=NO_SHORT_NAMES)
    assert calls() == []


# Deliberate: the status of Courier's restart is passed on unchanged.
def test_a_failing_courier_is_told_by_status_255():
    spy(COURIER, Rule(exit=1))
    ended = mailvek("--set-accounts-format", "--account-format=compound")
    assert ended.status == 255 and ended.err == "Service /etc/init.d/courier-imap failed to restart\n", ended


def test_another_format_or_none_is_bad_usage():
    misused("--set-accounts-format", report='mandatory option "--account-format" is not specified\n')
    ended = mailvek("--set-accounts-format", "--account-format=short")
    assert ended.status == 1 and "short" in ended.err and "\nUsage: --set-accounts-format " in ended.out
    assert calls() == []


# ------------------------------------------------------------------------------- letter sizes


@pytest.mark.parametrize("size", ["1", "20480000", "-1", "9223372036854775807"])
def test_the_largest_letter_is_set_and_read(size):
    done("--set-max-letter-size", f"--size={size}")
    assert postconf("message_size_limit") == size and reloads() == [["reload"]]
    done("--get-max-letter-size", out=f"{size}\n")


def test_a_size_of_zero_is_the_limit_of_a_mailbox():
    set_postconf(mailbox_size_limit="7654321")
    done("--set-max-letter-size", "--size=0")
    assert postconf("message_size_limit") == "7654321" and reloads() == [["reload"]]


def test_a_mailbox_limit_without_number_sets_nothing():
    set_postconf(mailbox_size_limit="large", message_size_limit="1000")
    ended = mailvek("--set-max-letter-size", "--size=0")
    assert ended.status == 1 and ended.err.startswith("Fatal error: ") and "bad lexical cast" in ended.err, ended
    assert postconf("message_size_limit") == "1000" and reloads() == []


def test_a_failed_size_is_a_failure_without_a_reload():
    fail_writes()
    failed("--set-max-letter-size", "--size=5", report=f"{FATAL}(postconf: fatal: no\n)\n")
    assert reloads() == []


def test_a_failing_reload_is_no_failure_of_the_size():
    spy(POSTFIX, Rule(exit=3))
    done("--set-max-letter-size", "--size=5000")
    assert postconf("message_size_limit") == "5000"


def test_a_size_must_be_given_and_be_a_number():
    misused("--set-max-letter-size", report='mandatory option "--size" is not specified\n')
    for value in ("x", "1k", "9223372036854775808"):
        ended = mailvek("--set-max-letter-size", f"--size={value}")
        assert ended.status == 1 and value in ended.err and "\nUsage: --set-max-letter-size " in ended.out, ended
    assert calls() == []


@pytest.mark.parametrize("command, parameter", [
    ("--get-max-letter-size", "message_size_limit"), ("--get-mailbox-size-limit", "mailbox_size_limit"),
])
class TestReaders:
    def test_prints_the_number(self, command, parameter):
        for value in ("51200000", "0", "-5"):
            set_postconf(**{parameter: value})
            done(command, out=f"{value}\n")
        assert calls() == []

    def test_looks_at_no_argument(self, command, parameter):
        set_postconf(**{parameter: "12"})
        done(command, "--bogus", "--help", "--size=3", out="12\n")

    def test_fails_for_what_is_no_number(self, command, parameter):
        for value in ("", "much", "12 MB"):
            set_postconf(**{parameter: value})
            ended = mailvek(command)
            assert ended.status == 1 and ended.err == ended.out, ended
            assert ended.err.startswith("Fatal error: ") and "bad lexical cast" in ended.err, ended

    def test_says_what_postconf_says_when_it_cannot_read(self, command, parameter):
        spy(POSTCONF, Rule(having=parameter, exit=1, err="postconf: fatal: no\n"))
        failed(command, report=f"{FATAL}(postconf: fatal: no\n)\n")


# -------------------------------------------------------------------------------- --update-spf


@pytest.fixture
def spf():
    os.mkdir(SPF)
    return lambda: {name: read(f"{SPF}/{name}") for name in sorted(os.listdir(SPF))}


def test_each_parameter_of_spf_is_a_file(spf):
    done("--update-spf", "--spf-behavior=3", "--spf-rules=include:a.test ~all", "--spf-guess=v=spf1 a/24",
         "--spf-exp=See %{i}")
    assert spf() == {"spfbehavior": "3", "spfrules": "include:a.test ~all", "spfguess": "v=spf1 a/24",
                     "spfexp": "See %{i}"}
    assert calls() == []


def test_what_is_not_given_stays_and_a_dash_clears(spf):
    done("--update-spf", "--spf-behavior=3", "--spf-rules=r", "--spf-guess=g", "--spf-exp=e")
    done("--update-spf", "--spf-rules=-", "--spf-exp=--")
    assert spf() == {"spfbehavior": "3", "spfrules": "", "spfguess": "g", "spfexp": "--"}


def test_a_dash_alone_makes_one_empty_file(spf):
    done("--update-spf", "--spf-rules=-")
    assert spf() == {"spfrules": ""}


def test_nothing_given_is_nothing_done(spf):
    with nothing_changes():
        done("--update-spf")


def test_an_spf_file_that_cannot_be_written_ends_the_command(spf):
    os.mkdir(f"{SPF}/spfrules")
    saying = f"Unable to open file {SPF}/spfrules for writing: Is a directory\n"
    ended = mailvek("--update-spf", "--spf-behavior=3", "--spf-rules=r", "--spf-guess=g")
    assert ended.status == 1 and saying in ended.err and ended.out == ended.err, ended
    assert "Unable to update 'spf_rules' parameter\n" in ended.err
    assert sorted(os.listdir(SPF)) == ["spfbehavior", "spfrules"] and read(f"{SPF}/spfbehavior") == "3"


def test_without_the_directory_spf_cannot_be_updated():
    ended = mailvek("--update-spf", "--spf-exp=e")
    assert ended.status == 1 and "Unable to update 'spf_exp' parameter\n" in ended.err, ended
    assert not os.path.exists(SPF)


def test_an_unknown_option_of_spf_is_bad_usage():
    misused("--update-spf", "--spf-mood=bad", report="unrecognised option '--spf-mood=bad'\n")
