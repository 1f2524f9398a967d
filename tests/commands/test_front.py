"""The front of the tool: the commands that it knows, its help, the feature report, bad usage."""
import os
import re
import subprocess

import pytest

from mailhost import CHECKOUT, HANGS, MAPS, TOOL, mailvek, nothing_changes, read, slept, system_calls, text, tool_environment

SHORT_USAGE = """Usage: mailvek <COMMAND> <COMMAND OPTIONS...>
\t for a complete list of commands use ``mailvek --help-commands''
\t for help on syntax for a particular command use ``mailvek <COMMAND> --help''
\t for legacy complete help use ``mailvek --help-legacy''
"""
HUGE = "x" * 100 * 1024
NOT_UTF_8 = text(b"\xff\xfe--help\x80")

UNKNOWN = {
    "a word": "foo",
    "an empty argument": "",
    "one blank": " ",
    "a command in capitals": "--HELP",
    "the beginning of a command": "--help-com",
    "a command with a value": "--help=yes",
    "a command and a blank": "--help ",
    "a command and a line end": "--help\n",
    "two lines": "first\nsecond",
    "a format": "%s%n%100000d",
    "bytes that are no UTF-8": NOT_UTF_8,
    "100 kB": HUGE,
    "a command's name without hyphens": "help",
    "two hyphens": "--",
    "a path": "/etc/passwd",
}

COMMAND_HELP = read(CHECKOUT / "tests" / "golden" / "command-help")
COMMANDS_WITH_OPTIONS = re.findall(r"^\$ mailvek (--[a-z-]+) --help$", COMMAND_HELP, re.MULTILINE)
GOLDEN = {"--help-commands": "help-commands", "--help-legacy": "help-legacy", "--features": "features"}
ANSWERS = {"--help": SHORT_USAGE, "-h": SHORT_USAGE} | {
    command: read(CHECKOUT / "tests" / "golden" / name) for command, name in GOLDEN.items()
}

IGNORED = {
    "a help option": ["--help"],
    "an unknown option": ["--no-such-option", "--", "-x"],
    "stray words": ["a", "b c", "d\ne"],
    "another command": ["--add-mailname", "--domain-name=example.com"],
    "empty arguments": ["", ""],
    "bytes that are no UTF-8": [NOT_UTF_8],
    "a 100 kB argument": [HUGE],
    "a thousand arguments": ["-h"] * 1000,
}


def by_name(table):
    return pytest.mark.parametrize("case", table.values(), ids=table.keys())


# ------------------------------------------------------------------------------ bad usage


def test_no_command_is_an_error_with_the_short_usage():
    with nothing_changes():
        ended = mailvek()
    assert (ended.status, ended.out, ended.err) == (1, "", "Error: no command specified\n" + SHORT_USAGE)


@by_name(UNKNOWN)
def test_an_unknown_command_is_named_only_on_standard_error(case):
    with nothing_changes():
        ended = mailvek(case)
    assert ended.status == 1
    assert ended.out == ""
    assert ended.err == "Error: invalid command " + case.replace("\n", "\\n") + f"\n{SHORT_USAGE}"


def test_a_command_after_another_argument_is_not_found():
    ended = mailvek("foo", "--help")
    assert (ended.status, ended.out) == (1, "")
    assert ended.err.startswith("Error: invalid command foo\n")


def test_bad_usage_does_not_depend_on_the_environment():
    for environment in ({"LANG": "de_DE.UTF-8", "LC_ALL": "xx_XX"}, {"ORV_PASSWORD": "x" * 100000}, {"POSIXLY_CORRECT": "1"}):
        assert mailvek("foo", env=environment).err == "Error: invalid command foo\n" + SHORT_USAGE


def test_the_preload_of_the_tests_changes_nothing():
    ended = mailvek("foo", nosleep=True)
    assert (ended.status, ended.out) == (1, "")
    assert ended.err == "Error: invalid command foo\n" + SHORT_USAGE
    assert slept() == []


# ------------------------------------------------------------------------- help and report


@pytest.mark.parametrize("command", ANSWERS)
def test_an_answer_is_exact_on_standard_output(command):
    with nothing_changes():
        ended = mailvek(command)
    assert (ended.status, ended.err) == (0, "")
    assert ended.out == ANSWERS[command]


@pytest.mark.parametrize("command", ANSWERS)
@by_name(IGNORED)
def test_whatever_follows_it_is_ignored(command, case):
    ended = mailvek(command, *case)
    assert (ended.status, ended.out, ended.err) == (0, ANSWERS[command], "")


def test_the_command_list_has_names_in_a_column_and_descriptions():
    lines = mailvek("--help-commands").out.splitlines()
    assert lines[0] == "Mailvek commands:"
    rows = [line for line in lines[1:] if not line.startswith(" ")]
    assert all(line.startswith(" " * 8) for line in lines[1:] if line not in rows)
    names = [re.match(r"(?:-\w, )?--[\w-]+", row).group() for row in rows]
    width = max(map(len, names)) + 2
    assert all(row[len(name):width].strip() == "" and row[width] != " " for name, row in zip(names, rows))


def test_both_lists_name_the_same_commands_in_the_same_order():
    short = [line.split("  ")[0] for line in mailvek("--help-commands").out.splitlines()[1:] if line[0] != " "]
    legacy = [line for line in mailvek("--help-legacy").out.splitlines()[1:] if re.match("  -", line)]
    assert all(row.startswith(f"  {name} ") for name, row in zip(short, legacy, strict=True))


def test_the_help_of_each_command_with_options_is_exact():
    with nothing_changes():
        answers = {command: mailvek(command, "--help") for command in COMMANDS_WITH_OPTIONS}
    assert [str(ended) for ended in answers.values() if ended.status != 0 or ended.err != ""] == []
    assert "".join(f"$ mailvek {command} --help\n{ended.out}" for command, ended in answers.items()) == COMMAND_HELP


def test_no_command_with_options_is_without_its_help():
    arguments = re.findall(r"^  (--[\w-]+) (.*)$", mailvek("--help-legacy").out, re.MULTILINE)
    assert [command for command, options in arguments if options] == COMMANDS_WITH_OPTIONS


def test_the_feature_report_is_58_assignments_of_php():
    lines = mailvek("--features").out.splitlines()
    assert len(lines) == 58
    assert lines[0] == "$features['MailName_SetName'] = true;"
    assert lines[-1] == "$features['Message_Submission_Dedicated_IP'] = false;"
    assert "$features['SMTP_Server'] = \"Postfix\";" in lines
    assert all(re.fullmatch(r"\$features\['\w+'\] = (true|false|\"[\w-]+\");", line) for line in lines)


def test_the_feature_report_ends_well_though_nothing_can_be_printed():
    with open("/dev/full", "wb") as full:
        done = subprocess.run([TOOL, "--features"], env=tool_environment(), stdout=full,
                              stderr=subprocess.PIPE, timeout=HANGS, check=False)
    assert (done.returncode, done.stderr) == (0, b"")


# ------------------------------------------------------------------- before a handler runs


@pytest.mark.parametrize("arguments", [["--features"], ["--help-commands"], ["-h"], ["foo"], []],
                         ids=lambda arguments: " ".join(arguments) or "nothing")
def test_nothing_is_opened_read_or_started_on_the_way(arguments):
    ended, lines = system_calls(
        *arguments, calls="open,openat,openat2,creat,socket,connect,fork,vfork,clone,clone3,execve,"
        "unlink,unlinkat,rename,renameat,renameat2,mkdir,mkdirat,truncate,ftruncate,flock,chmod,chown")
    assert ended.status == (0 if arguments and arguments[0] != "foo" else 1)
    assert lines[0].startswith(f'execve("{TOOL}"')
    # The loader opens libraries, and the sanitizers' runtime looks at its own process. A pipe is printed into
    # by way of a description that does not wait.
    allowed = (r'open(at)?\((AT_FDCWD, )?"(/etc/ld\.so\.\w+|/(usr/)?lib/[^"]*\.so[^"]*|/proc/self/\w+)", O_RDONLY'
               r'|openat\(AT_FDCWD, "/proc/self/fd/[12]", O_WRONLY\|O_NOCTTY\|O_NONBLOCK\|O_CLOEXEC')
    assert [line for line in lines[1:] if not re.match(allowed, line) and not line.startswith("+++")] == []


def test_help_works_on_a_host_without_the_panels_files():
    for path in ("/etc/orv/orv.conf", "/etc/orv/.orv.shadow", f"{MAPS}/passwd.db"):
        os.unlink(path)
    for command, answer in ANSWERS.items():
        ended = mailvek(command)
        assert (ended.status, ended.out, ended.err) == (0, answer, "")
