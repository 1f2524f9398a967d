"""The commands that add and update handlers, on the real store."""
import os
import re

import pytest

from handlers import (
    INFO, ONE, PROGRAM, STORE, THREE, TWO, active, add, by_value, command, damaged, names, options,
    parameter, says, silent, skipped, store, stuck, update, whole,
)
from host_faults import full_disk, read_only, undo
from mailhost import TOOL, described, nothing_changes, read, run, tree


# ------------------------------------------------------------------------------------ add


def test_add_makes_a_descriptor_and_a_marker():
    silent(add(ONE))
    (name,) = names()
    assert re.fullmatch(r"10-spam-[A-Za-z0-9]{6}", name)
    assert store(NAME=name) == {
        "before-local": "d 0755 root:root",
        "before-local/recipient": "d 0755 root:root",
        f"before-local/recipient/{ONE}": "d 0755 root:root",
        f"before-local/recipient/{ONE}/NAME": "f 0644 root:root",
        "info": "d 0755 root:root",
        "info/NAME": "d 0755 root:root",
        "info/NAME/context": "f 0644 root:root",
        "info/NAME/executable": f"l {PROGRAM}",
        "info/NAME/handler-type": "f 0644 root:root",
        "info/NAME/hook": "f 0644 root:root",
        "info/NAME/recipient": "f 0644 root:root",
    }
    assert [parameter(name, file) for file in ("context", "handler-type", "hook", "recipient")] == [
        "the context\n", "recipient\n", "before-local\n", f"{ONE}\n"]
    assert read(f"{STORE}/before-local/recipient/{ONE}/{name}") == ""


def test_add_gives_readable_modes_whatever_the_umask():
    ended = run("sh", "-c", 'umask 077; exec "$@"', "sh", TOOL, "--add-handler", *options(ONE), *whole())
    silent(ended)
    shown = store(NAME=names()[0])
    assert shown[f"before-local/recipient/{ONE}"] == shown["before-local"] == shown["info/NAME"] == "d 0755 root:root"
    assert shown["info/NAME/context"] == "f 0644 root:root"


def test_add_makes_a_global_handler_and_ignores_a_type_name():
    silent(add("whoever,else", kind="global"))
    (name,) = names()
    assert store(NAME=name)["before-local/global/NAME"] == "f 0644 root:root"
    assert store(NAME=name)["info/NAME/global"] == "f 0644 root:root"
    assert parameter(name, "global") == ""


@pytest.mark.parametrize("kind", ["sender", "recipient", "sender-domain", "recipient-domain"])
def test_add_hangs_each_type_in_a_place_of_its_own(kind):
    silent(add("example.com", kind=kind, hook="before-queue"))
    assert parameter(names()[0], "handler-type") == f"{kind}\n"
    assert os.listdir(f"{STORE}/before-queue/{kind}/example.com") == names()


@pytest.mark.parametrize("separator", [",", " ", ", ", ",,  ,"])
def test_add_takes_a_list_whose_empty_names_are_skipped(separator):
    silent(add(separator.join([ONE, TWO]) + separator))
    assert sorted(by_value()) == active() == [ONE, TWO]


def test_add_does_nothing_for_a_list_without_names():
    with nothing_changes():
        silent(add(", ,"))
        silent(add(""))


def test_add_logs_existing_handlers_as_missing_and_goes_on():
    silent(add(TWO))
    (old,) = names()
    says(add(f"{ONE},{TWO},{THREE}"), 0, skipped(TWO))
    assert sorted(by_value()) == [ONE, THREE, TWO]
    assert by_value()[TWO] == old


def test_add_finds_a_handler_whatever_the_letters_of_its_value():
    silent(add("One@Example.COM"))
    assert parameter(names()[0], "recipient") == f"{ONE}\n"
    says(add("ONE@example.com"), 0, skipped("ONE@example.com"))


def test_add_finds_a_handler_whose_name_merely_contains_the_template():
    silent(add(ONE, name="antispam"))
    says(add(ONE), 0, skipped(ONE))
    assert len(names()) == 1


def test_add_makes_a_global_handler_again_each_time():
    silent(add(kind="global"))
    silent(add(kind="global"))
    assert len(names()) == 2


def test_add_treats_all_as_a_name():
    silent(add("all"))
    assert active() == ["all"]


def test_add_converts_no_domain():
    silent(add("someone@b\u00fccher.example"))
    assert active() == ["someone@b\u00fccher.example"]


def test_add_refuses_what_the_store_refuses():
    with nothing_changes():
        says(add(ONE, executable="/nowhere"), 1, "Unable to stat executable '/nowhere': No such file or directory")
        says(add(kind="global", executable="/nowhere"), 1,
             "Unable to stat executable '/nowhere': No such file or directory")
        says(add(ONE, kind="everyone"), 1, "Invalid handler type 'everyone'", "Handler type is invalid: everyone")


def test_add_goes_on_after_a_failure_and_ends_with_1():
    long = "x" * 311
    ended = add(f"{ONE},{long},{TWO}")
    assert ended.status == 1
    assert active() == [ONE, TWO] and set(by_value()) == {ONE, TWO}
    assert ended.err.startswith(f"Invalid handler value '{long}'\n") and ended.out == ended.err


def test_add_leaves_half_a_descriptor_on_a_full_disk():
    full_disk(INFO, more_files=2)
    ended = add(ONE)
    (name,) = [name for name in names() if name != ".full"]
    says(ended, 1, f"Unable to close file {INFO}/{name}/hook: No space left on device", "",
         "System error 28: No space left on device",
         f"Unable to add string 'before-local' to '{INFO}/{name}/hook'", "System error 28: No space left on device",
         f"Unable to store handler parameters into directory '{INFO}/{name}'")
    assert tree(f"{INFO}/{name}") == {"hook": "f 0644 root:root"}
    assert not os.path.exists(f"{STORE}/before-local")


def test_add_reports_a_store_that_cannot_be_written():
    read_only(INFO)
    ended = add(ONE)
    assert ended.status == 1 and ended.out == ended.err
    assert re.fullmatch(f"Unable to create directory {INFO}/10-spam-.{{6}}: Read-only file system\n", ended.err)
    undo(INFO)
    assert names() == []


def test_add_reports_a_store_that_is_missing():
    os.rmdir(INFO)
    ended = add(ONE)
    assert ended.status == 1 and ended.out == ended.err
    assert re.fullmatch(
        f"Unable to open directory {INFO}: No such file or directory\n"
        f"Unable to create directory {INFO}/10-spam-.{{6}}: No such file or directory\n", ended.err)


def test_add_adds_a_second_handler_after_a_damaged_one():
    damaged()
    ended = add(ONE)
    says(ended, 0, f"Unable to open file {INFO}/10-spam-broken/hook: No such file or directory", "",
         "System error 2: No such file or directory", "Unable to get string from file: No such file or directory", "")
    assert len(names()) == 2


def test_markers_carry_the_priorities_in_which_a_queue_runs():
    for name, priority in {"late": "100", "early": "9", "middle": "20"}.items():
        silent(add(ONE, name=name, priority=priority))
    queue = os.listdir(f"{STORE}/before-local/recipient/{ONE}")
    assert sorted(queue) == names()
    in_order = sorted(queue, key=lambda marker: int(marker.split("-")[0]))
    assert [marker.split("-")[1] for marker in in_order] == ["early", "middle", "late"]


# --------------------------------------------------------------------------------- update


def test_update_replaces_a_handler():
    silent(add(f"{ONE},{TWO}"))
    before = by_value()
    silent(update(ONE, executable="/bin/true", context="another", priority="020"))
    after = by_value()
    assert after[TWO] == before[TWO]
    assert re.fullmatch(r"020-spam-[A-Za-z0-9]{6}", after[ONE])
    assert described(f"{INFO}/{after[ONE]}/executable") == "l /bin/true"
    assert parameter(after[ONE], "context") == "another\n"
    assert active() == [ONE, TWO] and len(names()) == 2


def test_update_keeps_what_is_empty_and_the_state():
    os.symlink("/bin/true", "/run/program")
    silent(add(ONE, executable="/run/program", context="  a context  "))
    silent(command("--disable-handler", ONE))
    (old,) = names()
    silent(update(ONE))
    (new,) = names()
    assert new != old and new.startswith("10-spam-")
    assert described(f"{INFO}/{new}/executable") == "l /run/program"
    assert parameter(new, "context") == "a context\n"
    assert active() == []


def test_update_takes_a_list_and_logs_missing_names():
    silent(add(f"{ONE} {THREE}"))
    says(update(f"{ONE}, {TWO}, {THREE}", priority="20"), 0, skipped(TWO))
    assert [name[:8] for name in names()] == ["20-spam-", "20-spam-"]


def test_update_treats_all_as_a_name():
    silent(add(ONE))
    with nothing_changes():
        says(update("all"), 0, skipped("all"))


def test_update_fails_for_a_global_handler_that_does_not_exist():
    with nothing_changes():
        says(update(kind="global"), 1, "Handler spam for (null) does not exist in queue before-local")


def test_update_updates_a_global_handler():
    silent(add(kind="global"))
    silent(update("ignored", kind="global", priority="5"))
    (name,) = names()
    assert name.startswith("5-spam-") and active() == [""]


def test_update_goes_on_after_a_failure_and_ends_with_1():
    silent(add(f"{ONE},{TWO}"))
    before = by_value()
    report = stuck(before[ONE])
    says(update(f"{ONE},{TWO}", priority="20"), 1, report)
    assert by_value()[ONE] == before[ONE]
    assert by_value()[TWO].startswith("20-spam-")


def test_update_keeps_the_handler_when_the_executable_is_missing():
    silent(add(ONE))
    with nothing_changes():
        says(update(ONE, executable="/nowhere"), 1, "Unable to stat executable '/nowhere': No such file or directory")


def test_update_deletes_before_it_adds():
    os.symlink("/bin/true", "/run/program")
    silent(add(ONE, executable="/run/program"))
    os.remove("/run/program")
    says(update(ONE), 1, "Unable to stat executable '/run/program': No such file or directory")
    assert names() == []
