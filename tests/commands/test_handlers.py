"""The handler commands that remove, switch and check, and what all six share, on the real store."""
import os
import pathlib

import pytest

from handlers import (
    INFO, ONE, REFRESHER, STORE, THREE, TWO, active, add, by_value, command, damaged, fatal, marker,
    names, not_made, options, says, silent, skipped, store, stuck, update, whole,
)
from host_faults import undo
from mailhost import TOOL, mailvek, nothing_changes, read, run, write
from spies import Rule, calls, spy


# --------------------------------------------------------------------------------- remove


def test_remove_deletes_descriptor_marker_and_the_empty_hook_directory():
    silent(add(ONE))
    silent(command("--remove-handler", ONE))
    assert store() == {"before-local": "d 0755 root:root", "before-local/recipient": "d 0755 root:root",
                       "info": "d 0755 root:root"}


def test_remove_follows_no_links():
    write("/run/outside/file", "kept")
    silent(add(ONE, executable="/run/outside/file"))
    os.symlink("/run/outside", f"{INFO}/{names()[0]}/link")
    silent(command("--remove-handler", ONE))
    assert names() == [] and read("/run/outside/file") == "kept"


def test_remove_takes_a_list_and_logs_missing_names():
    silent(add(f"{ONE},{THREE}"))
    says(command("--remove-handler", f"{ONE} {TWO} {THREE}"), 0, skipped(TWO))
    assert names() == []


def test_remove_goes_on_after_a_failure_and_ends_with_1():
    silent(add(f"{ONE},{TWO}"))
    report = stuck(by_value()[ONE])
    says(command("--remove-handler", f"{ONE},{TWO}"), 1, report)
    assert list(by_value()) == [ONE]


def test_removal_of_a_missing_global_handler_is_silent():
    with nothing_changes():
        silent(command("--remove-handler", kind="global"))
        silent(command("--remove-handler", "ignored", kind="global"))


def test_remove_removes_a_global_handler():
    silent(add(kind="global"))
    silent(command("--remove-handler", "ignored", kind="global"))
    assert names() == [] and not os.path.exists(f"{STORE}/before-local/global")


def test_remove_of_all_ignores_type_and_hook():
    silent(add(f"{ONE},{TWO}"))
    silent(add("example.com", kind="sender-domain", hook="before-queue"))
    silent(add(kind="global"))
    silent(add(ONE, name="antispam"))
    silent(command("--remove-handler", "all", kind="sender", hook="before-remote"))
    assert [name[:12] for name in names()] == ["10-antispam-"]


def test_remove_of_all_takes_all_for_any_template():
    silent(add(ONE))
    silent(add(TWO, name="virus"))
    silent(command("--remove-handler", "all", name="all"))
    assert names() == []


def test_remove_of_all_reports_errors_and_ends_with_0():
    silent(add(ONE))
    damaged()
    says(command("--remove-handler", "all"), 0,
         "No such parameter 'hook' for handler '10-spam-broken'",
         "Unable to fetch 'hook' parameter value for handler '10-spam-broken'",
         "Some errors was occured in mass hook operation. errors: 1")
    assert names() == ["10-spam-broken"]


def test_all_is_a_name_like_others_within_a_list():
    silent(add(ONE))
    says(command("--remove-handler", f"all,{TWO}"), 0, skipped("all"), skipped(TWO))
    assert len(names()) == 1


# ---------------------------------------------------------------------- disable and enable


def test_disable_and_enable_switch_only_the_marker():
    silent(add(f"{ONE},{TWO}"))
    with_both = store()
    before = names()
    silent(command("--disable-handler", ONE))
    assert active() == [TWO] and names() == before
    assert not os.path.exists(f"{STORE}/before-local/recipient/{ONE}")
    silent(command("--disable-handler", ONE))
    silent(command("--enable-handler", ONE))
    assert store() == with_both
    silent(command("--enable-handler", ONE))
    assert store() == with_both


@pytest.mark.parametrize("verb", ["--disable-handler", "--enable-handler"])
def test_switching_logs_those_of_a_list_that_do_not_exist(verb):
    silent(add(f"{ONE},{THREE}"))
    says(command(verb, f"{TWO},{ONE},,{THREE}"), 0, skipped(TWO))
    assert active() == ([] if verb == "--disable-handler" else [ONE, THREE])


@pytest.mark.parametrize("verb", ["--disable-handler", "--enable-handler"])
def test_switching_a_global_handler_that_does_not_exist_is_silent(verb):
    with nothing_changes():
        silent(command(verb, kind="global"))


def test_switching_a_global_handler():
    silent(add(kind="global"))
    silent(command("--disable-handler", kind="global"))
    assert active() == []
    silent(command("--enable-handler", kind="global"))
    assert active() == [""]


def test_switching_all_works_only_on_the_template():
    silent(add(f"{ONE},{TWO}"))
    silent(add("example.com", kind="sender-domain", hook="before-queue"))
    silent(add(THREE, name="antispam"))
    silent(command("--disable-handler", "all", kind="sender", hook="before-remote"))
    assert active() == [THREE]
    silent(command("--enable-handler", "all"))
    assert active() == ["example.com", ONE, THREE, TWO]


@pytest.mark.parametrize("verb", ["--disable-handler", "--enable-handler"])
def test_switching_all_skips_damaged_handlers_and_ends_with_1(verb):
    silent(add(f"{ONE},{TWO}"))
    if verb == "--enable-handler":
        silent(command("--disable-handler", f"{ONE},{TWO}"))
    damaged()
    damaged("stray")
    ended = command(verb, "all")
    assert ended.status == 1 and ended.out == ended.err
    assert sorted(ended.err.splitlines()) == sorted([
        "No such parameter 'hook' for handler '10-spam-broken'",
        "Unable to fetch 'hook' parameter value for handler '10-spam-broken'",
        "Invalid handler name 'stray': missing priority section",
        "Some errors was occured in mass hook operation. errors: 2"])
    assert len(list(pathlib.Path(STORE).glob("before-local/recipient/*/*"))) == (
        0 if verb == "--disable-handler" else 2)


def test_disable_goes_on_after_a_failure_and_ends_with_1():
    silent(add(f"{ONE},{TWO}"))
    report = stuck(by_value()[ONE])
    says(command("--disable-handler", f"{ONE},{TWO}"), 1, report)
    assert not os.path.exists(f"{STORE}/before-local/recipient/{TWO}")


def test_disable_fails_for_a_global_handler_that_cannot_be_disabled():
    silent(add(kind="global"))
    (name,) = names()
    report = stuck(name, "global")
    says(command("--disable-handler", kind="global"), 1, report)


def test_enable_goes_on_after_a_failure_and_ends_with_1():
    silent(add(f"{ONE},{TWO}"))
    silent(command("--disable-handler", f"{ONE},{TWO}"))
    name = by_value()[ONE]
    os.makedirs(marker(name))
    says(command("--enable-handler", f"{ONE},{TWO}"), 1, *not_made(name))
    assert os.listdir(f"{STORE}/before-local/recipient/{TWO}") == [by_value()[TWO]]


def test_a_global_handlers_stuck_marker_fails_remove_and_enable():
    silent(add(kind="global"))
    (name,) = names()
    report = stuck(name, "global")
    says(command("--remove-handler", kind="global"), 1, report)
    says(command("--enable-handler", kind="global"), 1, *not_made(name, "global"))
    assert names() == [name]


def test_enable_ends_with_1_without_its_hook_directory():
    silent(add(ONE))
    silent(command("--disable-handler", ONE))
    os.rmdir(f"{STORE}/before-local/recipient")
    write(f"{STORE}/before-local/recipient", "in the way")
    ended = command("--enable-handler", ONE)
    assert ended.status == 1 and ended.out == ended.err
    assert ended.err.startswith(f"Cannot create directory {STORE}/before-local/recipient")


# ---------------------------------------------------------------------------------- check


def test_check_ends_with_1_for_existing_and_0_for_missing():
    silent(add(ONE))
    with nothing_changes():
        silent(command("--check-handler", ONE), 1)
        silent(command("--check-handler", TWO), 0)
        silent(command("--check-handler", ONE, kind="sender"), 0)
        silent(command("--check-handler", ONE, hook="before-queue"), 0)


def test_check_does_not_mind_whether_the_handler_is_active():
    silent(add(ONE))
    silent(command("--disable-handler", ONE))
    silent(command("--check-handler", ONE), 1)


def test_check_takes_the_name_whole():
    silent(add(f"{ONE},{TWO}"))
    silent(command("--check-handler", f"{ONE},{TWO}"), 0)
    silent(command("--check-handler", "all"), 0)
    silent(command("--check-handler", f" {ONE}"), 0)


def test_check_of_a_global_handler_takes_a_name_or_none():
    silent(command("--check-handler", kind="global"), 0)
    silent(add(kind="global"))
    silent(command("--check-handler", kind="global"), 1)
    silent(command("--check-handler", "whatever", kind="global"), 1)


def test_check_reports_what_the_lookup_reports_and_ends_with_0():
    with nothing_changes():
        says(command("--check-handler", ONE, kind="everyone"), 0, "Invalid handler type 'everyone'")
        says(command("--check-handler", ""), 0, "Some parameter was not defined")
        says(command("--check-handler", ONE, name=""), 0, "Some parameter(s) were not defined")
    os.rmdir(INFO)
    says(command("--check-handler", ONE), 0, f"Unable to open directory {INFO}: No such file or directory")


# -------------------------------------------------------------------------------- all six


@pytest.mark.parametrize("verb", ["--remove-handler", "--disable-handler", "--enable-handler", "--check-handler"])
@pytest.mark.parametrize("kind", ["sender", "recipient", "sender-domain", "recipient-domain", "Global", "nonsense"])
def test_a_type_without_its_name_is_a_fatal_error(verb, kind):
    with nothing_changes():
        fatal(command(verb, kind=kind))


def test_adding_and_updating_without_a_name_is_fatal():
    with nothing_changes():
        fatal(add())
        fatal(update())
        fatal(add(kind="GLOBAL"))


def test_a_bad_command_line_ends_with_the_usage():
    with nothing_changes():
        ended = mailvek("--add-handler", *options(ONE), "--executable", "/bin/true", "--context", "c")
        assert (ended.status, ended.err) == (1, 'mandatory option "--priority" is not specified\n')
        assert ended.out.startswith(ended.err + "add a mail-handler\nUsage: --add-handler --handler-name=<name> ")
        ended = mailvek("--remove-handler", *options(ONE), "--priority", "1")
        assert ended.status == 1 and "remove a mail-handler\nUsage: --remove-handler " in ended.out


REFRESHES = {
    "--add-handler": 1,  # for the marker
    "--update-handler": 3,  # for the old marker, the old descriptor and the new marker
    "--remove-handler": 2,  # for the marker and the descriptor
    "--disable-handler": 1,
    "--enable-handler": 1,
    "--check-handler": 0,
}


@pytest.mark.parametrize("verb", REFRESHES)
def test_the_memory_copy_is_refreshed_after_each_step(verb):
    if verb != "--add-handler":
        silent(add(ONE))
    spy(REFRESHER, Rule(exit=0))
    more = whole() if verb in ("--add-handler", "--update-handler") else []
    mailvek(verb, *options(ONE), *more)
    assert [call.argv for call in calls(REFRESHER)] == [[REFRESHER, "refresh"]] * REFRESHES[verb]


def test_the_umask_of_the_refresh_is_the_tools_own():
    spy(REFRESHER, Rule(exit=0))
    silent(run("sh", "-c", 'umask 027; exec "$@"', "sh", TOOL, "--add-handler", *options(ONE), *whole()))
    assert [call.umask for call in calls(REFRESHER)] == [0o022]


def test_a_refresh_that_fails_is_reported_and_changes_nothing_else():
    spy(REFRESHER, Rule(exit=1, err="no memory\n"))
    says(add(ONE), 0, f"{REFRESHER} execution failed:", "no memory", "Cannot sync tmps storage to fs")
    assert active() == [ONE]


def test_a_refresher_its_owner_cannot_execute_never_runs():
    spy(REFRESHER, Rule(exit=1))
    undo(REFRESHER)
    write(REFRESHER, "#!/bin/sh\necho run >/run/was-run\n", 0o655)
    silent(add(ONE))
    assert not os.path.exists("/run/was-run")
