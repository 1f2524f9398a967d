"""--add-whitelist, --remove-whitelist, --add-badmailfrom, --remove-badmailfrom,
--set-maps-protection: what they write, and what a failure leaves."""
import os

import pytest

from mailhost import (
    MAPS, add_records, done, failed, mailvek, misused, nothing_changes, postconf, postmap, run, set_postconf)
from spies import Rule, calls, spy

POSTCONF, POSTMAP, POSTFIX = "/usr/sbin/postconf", "/usr/sbin/postmap", "/etc/init.d/postfix"
NETWORKS = "127.0.0.0/8, 192.0.2.0/24, 198.51.100.0/24, 203.0.113.0/24"
RESTRICTIONS = "smtpd_client_restrictions"
BLACKLISTS = f"hash:{MAPS}/blacklists"
FATAL = "Fatal error: orvek::mail::postfix::PostfixConfigurationError"


@pytest.fixture(autouse=True)
def a_postfix_that_does_nothing():
    set_postconf(mynetworks=NETWORKS)
    spy(POSTFIX, Rule(exit=0))


def reloads():
    return [call.argv[1:] for call in calls(POSTFIX)]


def writes():
    return [call.argv[2] for call in calls(POSTCONF) if call.argv[1] == "-e"]


def fail_writes():
    spy(POSTCONF, Rule(having="-e", exit=1, err="postconf: fatal: no\n"))


def network(address, mask):
    return f"--ip-address={address}", f"--netmask={mask}"


# --------------------------------------------------------------------------------- whitelist


@pytest.mark.parametrize("mask", [0, 8, 24, 32])
def test_a_network_is_added_at_the_end_of_the_list(mask):
    done("--add-whitelist", *network("10.0.0.0", mask))
    assert postconf("mynetworks") == f"{NETWORKS}, 10.0.0.0/{mask}" and reloads() == [["reload"]]


def test_a_mask_is_written_in_decimal_whatever_it_looked_like():
    done("--add-whitelist", *network("10.0.0.0", "+08"))
    assert postconf("mynetworks") == f"{NETWORKS}, 10.0.0.0/8"


def test_a_network_is_added_once():
    for _ in range(2):
        done("--add-whitelist", *network("10.0.0.0", 8))
    assert postconf("mynetworks") == f"{NETWORKS}, 10.0.0.0/8" and reloads() == [["reload"]] * 2


def test_the_first_network_pins_the_hosts_own_ones():
    run("ip", "address", "add", "192.0.2.7/32", "dev", "lo")
    run(POSTCONF, "-X", "mynetworks")
    done("--add-whitelist", *network("10.0.0.0", 8))
    run("ip", "address", "del", "192.0.2.7/32", "dev", "lo")
    assert postconf("mynetworks") == "127.0.0.0/8, 192.0.2.7/32, 10.0.0.0/8"


def test_a_network_is_removed_wherever_it_stands():
    for address, left in (("198.51.100.0", "127.0.0.0/8, 192.0.2.0/24, 203.0.113.0/24"),
                          ("203.0.113.0", "127.0.0.0/8, 192.0.2.0/24")):
        done("--remove-whitelist", *network(address, 24))
        # A list shorter than Postfix's default would be taken for it on the next read.
        assert postconf("mynetworks") == left
    assert reloads() == [["reload"]] * 2


@pytest.mark.parametrize("address, mask", [("10.0.0.0", 8), ("192.0.2.0", 25), ("192.0.2.1", 24)])
def test_a_network_that_is_not_there_changes_nothing_and_reloads(address, mask):
    spy(POSTCONF)
    done("--remove-whitelist", *network(address, mask))
    assert postconf("mynetworks") == NETWORKS and writes() == [] and reloads() == [["reload"]]


@pytest.mark.parametrize("address, mask", [("127.0.0.0", 8), ("127.0.0.1", 8), ("127.", 0)])
def test_the_loopback_network_stays_and_postfix_is_reloaded(address, mask):
    spy(POSTCONF)
    done("--remove-whitelist", *network(address, mask))
    assert calls(POSTCONF) == [] and reloads() == [["reload"]]
    assert postconf("mynetworks") == NETWORKS


@pytest.mark.parametrize("address", ["12.7.0.0", "127", "1.127.0.0"])
def test_a_network_resembling_the_loopback_can_go(address):
    set_postconf(mynetworks=f"{NETWORKS}, {address}/8")
    done("--remove-whitelist", *network(address, 8))
    assert postconf("mynetworks") == NETWORKS


@pytest.mark.parametrize("command, address", [("--add-whitelist", "10.0.0.0"), ("--remove-whitelist", "192.0.2.0")])
class TestWhitelist:
    def test_says_what_postconf_says_and_does_not_reload(self, command, address):
        fail_writes()
        failed(command, *network(address, 24), report=f"{FATAL}(postconf: fatal: no\n)\n")
        assert postconf("mynetworks") == NETWORKS and reloads() == []

    def test_writes_nothing_when_the_list_cannot_be_read(self, command, address):
        spy(POSTCONF, Rule(having="mynetworks", exit=1, err="postconf: fatal: no\n"))
        failed(command, *network(address, 24), report=f"{FATAL}(postconf: fatal: no\n)\n")
        assert writes() == [] and reloads() == []

    @pytest.mark.parametrize("rule", [Rule(exit=1), Rule(signal=15)])
    def test_does_not_mind_a_reload_that_fails(self, command, address, rule):
        spy(POSTFIX, rule)
        done(command, *network(address, 24))
        assert postconf("mynetworks") != NETWORKS

    def test_needs_both_options(self, command, address):
        misused(command, report='mandatory option "--netmask" is not specified\n')
        misused(command, f"--ip-address={address}", report='mandatory option "--netmask" is not specified\n')
        misused(command, "--netmask=8", report='mandatory option "--ip-address" is not specified\n')

    def test_takes_no_mask_above_32(self, command, address):
        misused(command, *network(address, 33), saying="33")
        misused(command, *network(address, 8), "--netmask=8", saying="netmask")

    @pytest.mark.parametrize("mask", ["x", "8.", "65536"])
    def test_is_a_fatal_error_with_a_bad_mask(self, command, address, mask):
        with nothing_changes():
            ended = mailvek(command, *network(address, mask))
        assert ended.status == 1 and ended.err == ended.out, ended
        assert ended.err.startswith("Fatal error: ") and "bad lexical cast" in ended.err and "Usage" not in ended.out


# ------------------------------------------------------------------------------- badmailfrom


def test_a_senders_domain_is_refused_without_a_reload():
    spy(POSTMAP)
    done("--add-badmailfrom", "--domain-name=spam.test")
    assert postmap("blacklists") == {"spam.test": "REJECT"}
    assert [call.argv[1:] for call in calls()] == [["-r", "-i", BLACKLISTS]]


def test_a_senders_domain_is_removed_without_a_reload():
    for domain in ("spam.test", "other.test"):
        done("--add-badmailfrom", f"--domain-name={domain}")
    spy(POSTMAP)
    done("--remove-badmailfrom", "--domain-name=spam.test")
    assert postmap("blacklists") == {"other.test": "REJECT"}
    assert [call.argv[1:] for call in calls()] == [["-q", "spam.test", BLACKLISTS], ["-d", "spam.test", BLACKLISTS]]


def test_an_internationalised_sender_is_kept_in_its_ascii_form():
    done("--add-badmailfrom", "--domain-name=müller.test")
    assert postmap("blacklists") == {"xn--mller-kva.test": "REJECT"}
    done("--remove-badmailfrom", "--domain-name=müller.test")
    assert postmap("blacklists") == {}


def test_adding_the_present_and_removing_the_absent_succeed():
    for _ in range(2):
        done("--add-badmailfrom", "--domain-name=spam.test")
    for _ in range(2):
        done("--remove-badmailfrom", "--domain-name=spam.test")
    assert postmap("blacklists") == {}


def test_a_record_that_somebody_made_for_another_purpose_stays():
    add_records("blacklists", {"friend.test": "OK"})
    done("--remove-badmailfrom", "--domain-name=friend.test")
    assert postmap("blacklists") == {"friend.test": "OK"}


@pytest.mark.parametrize("command, error", [
    ("--add-badmailfrom", "PostfixConfigurationError"), ("--remove-badmailfrom", "PostfixDatabaseError"),
])
def test_a_map_that_cannot_be_changed_is_a_failure(command, error):
    add_records("blacklists", {"spam.test": "REJECT"})
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n"))
    failed(command, "--domain-name=spam.test",
           report=f"Fatal error: orvek::mail::postfix::{error}(postmap: fatal: no\n)\n")
    assert postmap("blacklists") == {"spam.test": "REJECT"}


def test_a_failed_removal_leaves_the_sender_refused():
    add_records("blacklists", {"spam.test": "REJECT"})
    spy(POSTMAP, Rule(having="-d", exit=1, err="postmap: fatal: no\n"))
    failed("--remove-badmailfrom", "--domain-name=spam.test",
           report="Fatal error: orvek::mail::postfix::PostfixDatabaseError(postmap: fatal: no\n)\n")
    assert postmap("blacklists") == {"spam.test": "REJECT"}


def test_a_missing_map_fails_the_removal():
    os.rename(f"{MAPS}/blacklists.db", f"{MAPS}/away.db")
    ended = mailvek("--remove-badmailfrom", "--domain-name=spam.test")
    assert ended.status == 1 and "PostfixDatabaseError(postmap: fatal: " in ended.err, ended


@pytest.mark.parametrize("command", ["--add-badmailfrom", "--remove-badmailfrom"])
def test_a_senders_domain_must_be_given_and_be_one(command):
    misused(command, report='mandatory option "--domain-name" is not specified\n')
    with nothing_changes():
        ended = mailvek(command, f"--domain-name={'ä' * 70}.test")
    assert ended.status == 1 and ended.err.startswith("Fatal error: orvek::idn::IdnaError("), ended


# ---------------------------------------------------------------------- --set-maps-protection


def protect(*values):
    done("--set-maps-protection", *(f"--maps-zones={value}" for value in values))
    return postconf(RESTRICTIONS)


@pytest.mark.parametrize("before, values, after", [
    ("", ["a.test"], "reject_rbl_client a.test"),
    ("", ["a b,c"], "reject_rbl_client a, reject_rbl_client b, reject_rbl_client c"),
    ("", [" ,a,\t,b , "], "reject_rbl_client a, reject_rbl_client b"),
    ("", ["b,a", "c", "a"],
     "reject_rbl_client b, reject_rbl_client a, reject_rbl_client c, reject_rbl_client a"),
    ("permit_mynetworks,reject_unknown_client_hostname ,, check_client_access  hash:/etc/postfix/x", ["a b,c"],
     "permit_mynetworks, reject_unknown_client_hostname, check_client_access hash:/etc/postfix/x, "
     "reject_rbl_client a, reject_rbl_client b, reject_rbl_client c"),
    ("reject_rbl_client old, permit_mynetworks, warn_if_reject reject_rbl_client older=127.0.0.2, "
     "reject_rhsbl_client x", ["new"], "permit_mynetworks, reject_rhsbl_client x, reject_rbl_client new"),
    ("reject_rbl_client old, permit_mynetworks", [], "permit_mynetworks"),
    ("permit_mynetworks, reject_rbl_client old", [" ,"], "permit_mynetworks"),
    ("reject_rbl_client old", [], ""),
    ("", [], ""),
])
def test_new_zones_replace_the_old_and_stand_last(before, values, after):
    set_postconf(**{RESTRICTIONS: before})
    assert protect(*values) == after
    assert reloads() == [["reload"]]


def test_the_restrictions_are_written_even_when_they_are_the_same():
    protect("a.test")
    spy(POSTCONF)
    protect("a.test")
    assert [call.argv[1:] for call in calls()] == [
        ["reload"], ["-h", "config_directory"], ["-h", RESTRICTIONS],
        ["-e", f"{RESTRICTIONS}=reject_rbl_client a.test"], ["reload"],
    ]


def test_restrictions_that_cannot_be_read_are_not_written():
    set_postconf(**{RESTRICTIONS: "permit_mynetworks"})
    spy(POSTCONF, Rule(having=RESTRICTIONS, exit=1, err="postconf: fatal: no\n"))
    failed("--set-maps-protection", "--maps-zones=a", report=f"{FATAL}(postconf: fatal: no\n)\n")
    assert writes() == [] and reloads() == []


def test_restrictions_that_cannot_be_written_are_not_reloaded():
    fail_writes()
    failed("--set-maps-protection", "--maps-zones=a", report=f"{FATAL}(postconf: fatal: no\n)\n")
    assert postconf(RESTRICTIONS) == "" and reloads() == []


def test_a_failing_reload_is_no_failure_of_the_protection():
    spy(POSTFIX, Rule(exit=1))
    assert protect("a.test") == "reject_rbl_client a.test"


def test_the_zones_are_no_bare_words():
    misused("--set-maps-protection", "--maps-zones", saying="maps-zones")
