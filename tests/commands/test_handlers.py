"""The six handler commands, on the real store."""
import os
import pathlib
import re

import pytest

from mailhost import (
    Rule, calls, described, full_disk, mailvek, nothing_changes, read, read_only, run, spy, tree, undo, write,
    TOOL,
)

SANITIZED_TOO = True

STORE = "/usr/local/orv/handlers"
INFO = f"{STORE}/info"
REFRESHER = "/usr/lib64/orvek-9.0/handlers-tmpfs"
ONE, TWO, THREE = "one@example.com", "two@example.com", "three@example.com"
PROGRAM = "/usr/local/orv/handlers/hooks/autoresponder"


def options(target=None, name="spam", kind="recipient", hook="before-local"):
    words = ["--handler-name", name, "--handler-type", kind, "--hook", hook]
    return words if target is None else [*words, "--handler-type-name", target]


def whole(executable=PROGRAM, context="the context", priority="10"):
    return ["--executable", executable, "--context", context, "--priority", priority]


def add(target=None, **more):
    made_of = {key: more.pop(key) for key in ("executable", "context", "priority") if key in more}
    return mailvek("--add-handler", *options(target, **more), *whole(**made_of))


def update(target=None, executable="", context="", priority="", **more):
    return mailvek("--update-handler", *options(target, **more), *whole(executable, context, priority))


def command(verb, target=None, **more):
    return mailvek(verb, *options(target, **more))


def silent(ended, status=0):
    assert (ended.status, ended.out, ended.err) == (status, "", ""), ended


def says(ended, status, *lines):
    """Both streams carry the same reports."""
    text = "".join(f"{line}\n" for line in lines)
    assert (ended.status, ended.out, ended.err) == (status, text, text), ended


def skipped(target, name="spam", kind="recipient", hook="before-local"):
    return f"Handler {name} for {kind} {target} does not exist in queue {hook}"


def names():
    return sorted(os.listdir(INFO))


def parameter(name, file):
    return read(f"{INFO}/{name}/{file}")


def value_of(name):
    return parameter(name, parameter(name, "handler-type").strip()).strip()


def by_value():
    """Full names by value."""
    return {value_of(name): name for name in names()}


def active():
    """The values of the handlers that are active: one marker for each name."""
    markers = [path.name for path in pathlib.Path(STORE).glob("before-*/*/*/*")]
    markers += [path.name for path in pathlib.Path(STORE).glob("before-*/global/*")]
    assert len(markers) == len(set(markers))
    return sorted(value_of(name) for name in markers)


def store(**shown):
    """The store without the programs, with NAME for each name that is given by keyword."""
    found = {}
    for path, what in tree(STORE).items():
        for word, name in shown.items():
            path = path.replace(name, word)
        if not path.startswith("hooks"):
            found[path] = what
    return found


def stuck(name, value=ONE):
    """Puts a directory in the place of a marker, which so cannot be removed."""
    marker = f"{STORE}/before-local/recipient/{value}/{name}"
    os.remove(marker)
    os.mkdir(marker)
    return (f"Unable to remove hook '{name}' from directory "
            f"'{STORE}/before-local/recipient/{value}': Is a directory")


def damaged(name="10-spam-broken", without="hook"):
    """A descriptor by hand that lacks a file."""
    files = {"hook": "before-local\n", "handler-type": "recipient\n", "recipient": f"{ONE}\n", "context": "c\n"}
    for file, content in files.items():
        if file != without:
            write(f"{INFO}/{name}/{file}", content)


def fatal(ended):
    text = ("Fatal error: orvek::mail::postfix::mailvek_commands::MissingMandatoryOption"
            '(mandatory option "--handler-type-name" is not specified)\n')
    assert (ended.status, ended.out, ended.err) == (1, text, text), ended


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


def test_add_gives_modes_that_the_mail_chain_can_read_whatever_the_umask():
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


def test_add_logs_a_handler_that_exists_as_one_that_does_not_and_goes_on():
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


def test_add_goes_on_behind_a_name_that_fails_and_ends_with_1():
    long = "x" * 311
    ended = add(f"{ONE},{long},{TWO}")
    assert ended.status == 1
    values = by_value()
    assert active() == [ONE, TWO] and set(values) == {ONE, long, TWO}
    lines = ["The buffer too short", "Unable to get string from file: Success", "",
             f"Unable to fetch 'recipient' parameter value for handler '{values[long]}'"]
    # The lookup for the third name may come upon the handler that cannot be read.
    assert ended.err.startswith("\n".join(lines) + "\n") and ended.out == ended.err


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


def test_add_adds_a_second_handler_behind_a_damaged_one():
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


def test_update_takes_a_list_and_logs_those_that_do_not_exist():
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


def test_update_goes_on_behind_a_name_that_fails_and_ends_with_1():
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


def test_remove_takes_a_list_and_logs_those_that_do_not_exist():
    silent(add(f"{ONE},{THREE}"))
    says(command("--remove-handler", f"{ONE} {TWO} {THREE}"), 0, skipped(TWO))
    assert names() == []


def test_remove_goes_on_behind_a_name_that_fails_and_ends_with_1():
    silent(add(f"{ONE},{TWO}"))
    report = stuck(by_value()[ONE])
    says(command("--remove-handler", f"{ONE},{TWO}"), 1, report)
    assert list(by_value()) == [ONE]


def test_remove_of_a_global_handler_that_does_not_exist_is_silent():
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


def test_disable_and_enable_switch_the_marker_alone():
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


def test_switching_all_works_on_the_template_alone():
    silent(add(f"{ONE},{TWO}"))
    silent(add("example.com", kind="sender-domain", hook="before-queue"))
    silent(add(THREE, name="antispam"))
    silent(command("--disable-handler", "all", kind="sender", hook="before-remote"))
    assert active() == [THREE]
    silent(command("--enable-handler", "all"))
    assert active() == ["example.com", ONE, THREE, TWO]


@pytest.mark.parametrize("verb", ["--disable-handler", "--enable-handler"])
def test_switching_all_goes_on_behind_damaged_handlers_and_ends_with_1(verb):
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


def test_disable_goes_on_behind_a_name_that_fails_and_ends_with_1():
    silent(add(f"{ONE},{TWO}"))
    report = stuck(by_value()[ONE])
    says(command("--disable-handler", f"{ONE},{TWO}"), 1, report)
    assert not os.path.exists(f"{STORE}/before-local/recipient/{TWO}")


def test_disable_fails_for_a_global_handler_that_cannot_be_disabled():
    silent(add(kind="global"))
    (name,) = names()
    os.remove(f"{STORE}/before-local/global/{name}")
    os.mkdir(f"{STORE}/before-local/global/{name}")
    says(command("--disable-handler", kind="global"), 1,
         f"Unable to remove hook '{name}' from directory '{STORE}/before-local/global': Is a directory")


def test_enable_ends_with_1_when_a_hook_directory_cannot_be_made():
    silent(add(ONE))
    silent(command("--disable-handler", ONE))
    os.rmdir(f"{STORE}/before-local/recipient")
    write(f"{STORE}/before-local/recipient", "in the way")
    ended = command("--enable-handler", ONE)
    assert ended.status == 1 and ended.out == ended.err
    assert ended.err.startswith(f"Cannot create directory {STORE}/before-local/recipient")


# ---------------------------------------------------------------------------------- check


def test_check_ends_with_1_for_a_handler_that_exists_and_0_for_one_that_does_not():
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
def test_a_type_that_needs_a_name_without_one_is_a_fatal_error(verb, kind):
    with nothing_changes():
        fatal(command(verb, kind=kind))


def test_adding_and_updating_without_a_name_is_a_fatal_error_too():
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


def test_the_umask_of_the_refresh_is_the_callers():
    spy(REFRESHER, Rule(exit=0))
    silent(run("sh", "-c", 'umask 027; exec "$@"', "sh", TOOL, "--add-handler", *options(ONE), *whole()))
    assert [call.umask for call in calls(REFRESHER)] == [0o027]


def test_a_refresh_that_fails_is_reported_and_changes_nothing_else():
    spy(REFRESHER, Rule(exit=1, err="no memory\n"))
    says(add(ONE), 0, f"{REFRESHER} execution failed:", "no memory", "Cannot sync tmps storage to fs")
    assert active() == [ONE]


def test_a_refresher_that_its_owner_may_not_execute_is_not_run():
    spy(REFRESHER, Rule(exit=1))
    undo(REFRESHER)
    write(REFRESHER, "#!/bin/sh\necho run >/run/was-run\n", 0o655)
    silent(add(ONE))
    assert not os.path.exists("/run/was-run")
