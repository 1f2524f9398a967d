"""The manual page and the bash completion agree with the tool's help, and the completion works."""
import os
import pty
import re
import select
import signal
import time

import pytest

from mailhost import CHECKOUT, TOOL, mailvek, nothing_changes, read, run, write

SANITIZED_TOO = False  # the tool only prints its help, which other files test

CHECK = CHECKOUT / "tools" / "check-help"
PAGE = CHECKOUT / "man" / "mailvek.8"
COMPLETION = CHECKOUT / "packaging" / "mailvek.bash-completion"
COMMANDS = re.findall(r"^(-.*?)  ", read(CHECKOUT / "tests" / "golden" / "help-commands"), re.M)


def completed(*words, script="", cwd="/"):
    """The completion's offers for the last word of a line, which is split as bash splits it."""
    ended = run("bash", "-c", f'. "{COMPLETION}"; {script}\n'
                'COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _mailvek; printf "%s\\n" "${COMPREPLY[@]}"',
                "mailvek", "mailvek", *words, cwd=cwd)
    assert (ended.status, ended.err) == (0, ""), ended
    return [word for word in ended.out.split("\n") if word]


def checked(page=PAGE, completion=COMPLETION):
    ended = run(CHECK, TOOL, page, completion)
    assert ended.err == "" and ended.status == bool(ended.out), ended
    return ended.out.splitlines()


def changed(file, tmp_path, *replaced):
    """A copy of the file with some of its text replaced."""
    content, new = read(file), tmp_path / file.name
    assert re.search(replaced[0], content, re.M), replaced
    write(new, re.sub(*replaced, content, count=1, flags=re.M))
    return new


# ------------------------------------------------------------------------ held by the help


def test_manual_page_and_completion_say_what_the_help_says():
    with nothing_changes():
        assert checked() == []


@pytest.mark.parametrize("pattern, new, told", [
    (r"^\.TP\n.*turn\\-off\\-domain .*\n.*\n", "", "the command --turn-off-domain is missing"),
    (r"^\.BR \\-\\-stop\\-smtpd .*", r".B \\-\\-stop\\-smtpd", "the command -o is missing"),
    (r"turn\\-off\\-domain", r"turn\\-of\\-domain", "there is no command --turn-of-domain"),
    (r"( \\-\\-domain\\-name=)", r" [\1]", "--add-domain: mandatory --domain-name= is missing"),
    (r" \[\\fB\\-\\-disk\\-quota=.*?\]", "", "--add-domain: optional --disk-quota= is missing"),
    (r"email=\\fIaddress\\fR$", r"\g<0> [\\-\\-more]", "--set-catchall: there is no optional --more"),
    (r"\[\\fB\\-\\-relayclient\\fR\]", r"[\\-\\-relayclient=x]", "--set-mail-params: optional --relayclient is missing"),
])
def test_what_the_manual_page_lacks_or_invents_is_found(pattern, new, told, tmp_path):
    assert f"manual page: {told}" in checked(page=changed(PAGE, tmp_path, pattern, new))


@pytest.mark.parametrize("pattern, new, told", [
    (r" --turn-off-domain --set-domain-disk-quota", "", "the command --turn-off-domain is missing"),
    (r"--help -h\"\n# End", '--help"\n# End', "the command -h is missing"),
    (r"--features", "--featured", "there is no command --featured"),
    (r'optional="--disk-quota="', "", "--add-mailname: optional --disk-quota= is missing"),
    (r'mandatory="--ip-address=', r'optional="--ip-address=', "--add-whitelist: mandatory --netmask= is missing"),
    (r"--popauth --poplock", "--popauth= --poplock", "--set-mail-params: there is no optional --popauth="),
    (r'--help -h"', '--help"', "--update-spf: optional -h is missing"),
])
def test_what_the_completion_lacks_or_invents_is_found(pattern, new, told, tmp_path):
    assert f"completion: {told}" in checked(completion=changed(COMPLETION, tmp_path, pattern, new))


def test_an_old_table_of_the_completion_is_remade(tmp_path):
    old = changed(COMPLETION, tmp_path, r" --turn-off-domain --set-domain-disk-quota", "")
    ended = run(CHECK, "--renew", TOOL, PAGE, old)
    assert (ended.status, ended.out, ended.err) == (0, f"{old}: renewed\n", "")
    assert read(old) == read(COMPLETION)


# ------------------------------------------------------------------------- the completion


def options_in_help(command):
    """The options that a command's help lists, "--long" and "-s"."""
    listed = mailvek(command, "--help").out.partition("\nAllowed options to ")[2]
    return set(re.findall(r"(?:^  |\[ )(--?\w[\w-]*)", listed, re.M))


def test_all_commands_are_offered():
    offered = completed("")
    assert len(offered) == len(set(offered))
    assert set(offered) == {name for names in COMMANDS for name in names.split(", ")}


def test_each_command_offers_the_options_of_its_help():
    asked = {line.split()[0] for line in mailvek("--help-legacy").out.splitlines() if re.match(r"  --[\w-]+ \S", line)}
    for command in completed(""):
        offered = [option.removesuffix("=") for option in completed(command, "")]
        assert len(offered) == len(set(offered))
        assert set(offered) == (options_in_help(command) if command in asked else set()), command


def test_mandatory_options_are_offered_first_in_their_order():
    assert completed("--add-mailname", "") == ["--domain-name=", "--mailname=", "--disk-quota=", "--help", "-h"]
    assert completed("--add-handler", "--h") == [
        "--handler-name=", "--handler-type=", "--hook=", "--handler-type-name=", "--help"]


def test_only_what_begins_like_the_word_is_offered():
    assert completed("--add-dom") == ["--add-domain", "--add-domain-alias"]
    assert completed("--add-mailname", "--m") == ["--mailname="]
    assert completed("--add-mailname", "x") == []


@pytest.mark.parametrize("given", [["--mailname", "=", "jo"], ["--mailname=jo"], ["--mailname", "jo"]], ids=str)
def test_an_option_that_was_given_is_not_offered_again(given):
    assert completed("--add-mailname", *given, "") == ["--domain-name=", "--disk-quota=", "--help", "-h"]


@pytest.mark.parametrize("given", ["-D", "--mail-domain-disabled"])
def test_the_short_form_counts_as_the_long_one(given):
    assert completed("--set-password", given, "") == ["--domain-name=", "--mailname=", "--help", "-h"]


def test_components_can_be_named_several_times():
    assert "--mail-component=" in completed("--stop-service", "--mail-component", "=", "smtp", "")


COMPONENTS = ["mta", "smtp", "smtps", "submission", "pop3", "imap", "pop3s", "imaps", "all"]


@pytest.mark.parametrize("words, offered", [
    (["--start-service", "--mail-component", "="], COMPONENTS),
    (["--start-service", "--mail-component", ""], COMPONENTS),
    (["--start-service", "--mail-component", "=", "smtp"], ["smtp", "smtps"]),
    (["--start-service", "--mail-component=pop"], ["--mail-component=pop3", "--mail-component=pop3s"]),
    (["--add-handler", "--handler-type", "=", ""], ["global", "sender", "recipient", "sender-domain", "recipient-domain"]),
    (["--add-handler", "--hook", "=", "before-l"], ["before-local"]),
    (["--set-accounts-format", "--account-format", "="], ["compound"]),
    (["--add-domain", "--domain-name", "="], []),
    (["--add-domain", "--domain-name", "--"], []),
], ids=str)
def test_values_that_can_be_told_are_offered(words, offered):
    assert completed(*words) == offered


def test_every_component_that_is_offered_is_one():
    for component in COMPONENTS:
        ended = mailvek("--start-service", f"--mail-component={component}", "--help")
        assert (ended.status, ended.err) == (0, ""), ended
    assert mailvek("--start-service", "--mail-component=all3", "--help").status == 1


@pytest.mark.parametrize("option", ["--file-name", "--executable"])
def test_files_are_offered(option, tmp_path):
    for name in ("a key", "another", "b"):
        (tmp_path / name).touch()
    command = "--set-domain-key" if option == "--file-name" else "--add-handler"
    assert sorted(completed(command, option, "=", "a", cwd=tmp_path)) == ["a key", "another"]


def test_commands_without_options_and_unknown_ones_offer_nothing():
    for command in ("--stop-smtpd", "-o", "--features", "--help", "foo", ""):
        assert completed(command, "") == []


def test_completing_runs_no_command_of_the_tool():
    with nothing_changes():
        for words in (["--stop-smtpd", ""], ["--add-domain", "--"], ["--st"]):
            completed(*words, script="mailvek() { touch /tmp/ran; }")


def terminal(lines, until):
    """The output of an interactive bash for the lines, up to a text."""
    child, master = pty.fork()
    if child == 0:
        os.execve("/bin/bash", ["bash", "--norc", "--noprofile", "-i"], {"PATH": "/usr/bin:/bin", "TERM": "dumb", "PS1": ""})
    printed, deadline = b"", time.monotonic() + 300
    try:
        os.write(master, lines.encode())
        while until not in printed and time.monotonic() < deadline:
            if select.select([master], [], [], 0.2)[0]:
                printed += os.read(master, 65536)
    finally:
        os.close(master)
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)
    return printed


def test_a_line_is_completed_in_a_terminal():
    show = "mailvek() { printf '<%s>' ran \"$@\"; echo '|end'; }"
    printed = terminal(f". {COMPLETION}; {show}\nmailvek --start-se\t--mail-c\tsubm\t--he\t\n", b">|end")
    assert b"<ran><--start-service><--mail-component=submission><--help>|end" in printed
