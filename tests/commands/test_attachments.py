"""The attachment commands: listing, adding and removing the files for a mailname's autoresponder."""
import os
import pathlib

import pytest

from host_faults import full_disk, read_only
from mailhost import (
    MAILNAMES, TOOL, described, mailvek, nothing_changes, read, run, text, tool_environment, tree, write,
)

DOMAIN = f"{MAILNAMES}/example.com"
STORE = f"{DOMAIN}/info/@attachments"
UPLOAD = "/tmp/upload"

USAGE = {
    "--list-attachments": """list attachments
Usage: --list-attachments [--in-blocks] [--fullname] --domain-name=<domain_name> (--mailname=<mail_name>|--mail-all)
Allowed options to list attachments:
  --domain-name arg     domain name (mandatory)
  --mailname arg        mailname
  --mail-all            report attachments for all mailnames (false by default)
  --in-blocks           report in blocks rather than bytes (false by default)
  --fullname            report full attachment paths (false by default)
  -h [ --help ]         displays this help message

""",
    "--add-attachment": """add an attachment
Usage: --add-attachment --domain-name=<domain_name> --mailname=<mail_name> --file-name=<full_file_name> --attachment-file-name=<attachment_file_name>
Allowed options to add an attachment:
  --domain-name arg          domain name (mandatory)
  --mailname arg             mailname (mandatory)
  --file-name arg            uploaded file name (mandatory)
  --attachment-file-name arg attachment file name (mandatory)
  -h [ --help ]              displays this help message

""",
    "--remove-attachment": """remove an attachment
Usage: --remove-attachment --domain-name=<domain_name> --mailname=<mail_name> --attachment-file-name=<attachment_file_name>
Allowed options to remove an attachment:
  --domain-name arg          domain name (mandatory)
  --mailname arg             mailname (mandatory)
  --attachment-file-name arg attachment file name (mandatory)
  -h [ --help ]              displays this help message

""",
}

MANDATORY = {
    "--list-attachments": ["domain-name"],
    "--add-attachment": ["domain-name", "mailname", "file-name", "attachment-file-name"],
    "--remove-attachment": ["domain-name", "mailname", "attachment-file-name"],
}

ODD_NAMES = {
    "blanks": " a b ",
    "a tab": "a\tb",
    "a line end": "a\nb",
    "a format": "%s%n%100000d",
    "quotes": "'\"`$(id)",
    "hyphens": "--help",
    "a point in front": ".hidden",
    "bytes that are no UTF-8": text(b"\xff\xfe"),
    "the longest name": "x" * 255,
}

OUTSIDE = {
    "a name in the home": "../.qmail",
    "a path": "/etc/passwd",
    "a subdirectory": "sub/a",
    "the directory above": "..",
    "the directory itself": ".",
    "nothing": "",
}


def by_name(table):
    return pytest.mark.parametrize("case", table.values(), ids=table.keys())


def options(**values):
    """The options of a command. --domain-name and --mailname are the test's unless values replace them."""
    given = {"domain_name": "example.com", "mailname": "info"} | values
    words = []
    for name, value in given.items():
        if value is not None:
            words += ["--" + name.replace("_", "-"), value]
    return words


def list_(*flags, **values):
    return mailvek("--list-attachments", *options(**values), *flags)


def add(name, file=UPLOAD, **values):
    return mailvek("--add-attachment", *options(file_name=file, attachment_file_name=name, **values))


def remove(name, **values):
    return mailvek("--remove-attachment", *options(attachment_file_name=name, **values))


def report(message, error):
    """A report as it reads while errno is set."""
    return f"{message}\nSystem error {error}: {os.strerror(error)}\n"


def outcome(ended):
    return ended.status, ended.out, ended.err


@pytest.fixture(autouse=True)
def store():
    pathlib.Path(STORE).mkdir(parents=True)
    write(UPLOAD, "text")


# ------------------------------------------------------------------------------ bad usage


@pytest.mark.parametrize("command", USAGE)
def test_help_is_exact_and_wins_over_missing_options(command):
    with nothing_changes():
        for word in ("--help", "-h"):
            assert outcome(mailvek(command, word)) == (0, USAGE[command], "")
            assert outcome(mailvek(command, "--mailname", "info", word)) == (0, USAGE[command], "")


@pytest.mark.parametrize("command, missing", [(command, name) for command, names in MANDATORY.items() for name in names])
def test_a_mandatory_option_is_asked_for(command, missing):
    given = {name: "x" for name in MANDATORY[command] if name != missing}
    words = [word for name, value in given.items() for word in (f"--{name}", value)]
    message = f'mandatory option "--{missing}" is not specified\n'
    with nothing_changes():
        assert outcome(mailvek(command, *words)) == (1, message + USAGE[command], message)


@pytest.mark.parametrize("command", USAGE)
def test_of_several_missing_options_the_last_is_named(command):
    message = f'mandatory option "--{MANDATORY[command][-1]}" is not specified\n'
    assert outcome(mailvek(command)) == (1, message + USAGE[command], message)


@pytest.mark.parametrize("command", USAGE)
def test_an_unknown_option_is_refused(command):
    with nothing_changes():
        ended = mailvek(command, "--no-such-option", "x")
    message = "unrecognised option '--no-such-option'\n"
    assert outcome(ended) == (1, message + USAGE[command], message)


def test_a_list_of_one_and_of_all_mailnames_is_refused():
    expected = "you should not use --mailname and --mail-all together\n" + USAGE["--list-attachments"]
    write(f"{STORE}/a", "x")
    with nothing_changes():
        assert outcome(list_("--mail-all")) == (1, expected, expected)


def test_a_list_of_no_mailname_is_refused():
    expected = "neither --mailname nor --mail-all are specified\n" + USAGE["--list-attachments"]
    with nothing_changes():
        assert outcome(list_(mailname=None)) == (1, expected, expected)
        assert outcome(list_("--in-blocks", "--fullname", mailname=None)) == (1, expected, expected)


def test_a_list_of_an_empty_mailname_ends_with_its_report():
    message = "MailName empty for domain 'example.com'\n"
    assert outcome(list_(mailname="")) == (1, message, message)


@pytest.mark.parametrize("command", USAGE)
def test_a_domain_without_an_ascii_form_is_a_fatal_error(command):
    words = options(domain_name="x" * 64)
    if command != "--list-attachments":
        words += ["--attachment-file-name", "a"]
    if command == "--add-attachment":
        words += ["--file-name", UPLOAD]
    with nothing_changes():
        ended = mailvek(command, *words)
    assert ended.status == 1
    assert ended.err.startswith("Fatal error: ")
    assert "IdnaError" in ended.err


def test_the_domain_is_converted_before_mailnames_are_reported():
    for words in (options(domain_name="x" * 64) + ["--mail-all"], options(domain_name="x" * 64, mailname=None)):
        report = "Fatal error: orvek::idn::IdnaError(Invalid length)\n"
        assert outcome(mailvek("--list-attachments", *words)) == (1, report, report)


# -------------------------------------------------------------------------------- listing


def test_files_are_listed_with_their_sizes():
    assert outcome(list_()) == (0, "", "")
    write(f"{STORE}/a.txt", "12345")
    write(f"{STORE}/b.txt", "")
    os.mkdir(f"{STORE}/directory")
    with nothing_changes():
        ended = list_()
    assert (ended.status, ended.err) == (0, "")
    assert sorted(ended.out.splitlines()) == ["a.txt\t5", "b.txt\t0"]


def test_blocks_and_whole_paths_are_listed_when_asked_for():
    write(f"{STORE}/a", "12345")
    blocks = os.stat(f"{STORE}/a").st_blocks * 512
    assert list_("--in-blocks").out == f"a\t{blocks}\n"
    assert list_("--fullname").out == f"{STORE}/a\t5\n"
    assert list_("--fullname", "--in-blocks").out == f"{STORE}/a\t{blocks}\n"


@by_name(ODD_NAMES)
def test_a_name_is_listed_in_one_line(case):
    write(f"{STORE}/{case}", "x")
    shown = case.replace("\t", "\\t").replace("\n", "\\n")
    assert outcome(list_()) == (0, f"{shown}\t1\n", "")


def test_all_mailnames_are_listed_though_one_has_no_attachments():
    write(f"{STORE}/a", "1")
    write(f"{DOMAIN}/office/@attachments/b", "22")
    os.mkdir(f"{DOMAIN}/without")
    write(f"{DOMAIN}/file", "")
    with nothing_changes():
        ended = list_("--mail-all", mailname=None)
    missing = report(f"Unable to open dir {DOMAIN}/without/@attachments: No such file or directory\n", 2)
    assert (ended.status, ended.err) == (0, missing)
    assert missing in ended.out
    assert sorted(ended.out.replace(missing, "").splitlines()) == ["a\t1", "b\t2"]
    ended = list_("--mail-all", "--fullname", mailname=None)
    assert f"{DOMAIN}/office/@attachments/b\t2\n" in ended.out


def test_a_list_that_fails_exits_with_1():
    message = report(f"Unable to open dir {DOMAIN}/nobody/@attachments: No such file or directory\n", 2)
    assert outcome(list_(mailname="nobody")) == (1, message, message)
    message = report(f"Unable to open dir {MAILNAMES}/example.org: No such file or directory\n", 2)
    assert outcome(list_("--mail-all", mailname=None, domain_name="example.org")) == (1, message, message)
    os.rename(STORE, f"{STORE}.away")
    os.symlink(f"{STORE}.away", STORE)
    message = report(f"Unable to open dir {STORE}: Too many levels of symbolic links\n", 40)
    assert outcome(list_()) == (1, message, message)


def test_the_list_of_a_mailname_elsewhere_is_refused():
    write(f"{STORE}/a", "x")
    message = report(f"Unable to open dir {DOMAIN}/../example.com/info/@attachments: Invalid argument\n", 22)
    assert outcome(list_(mailname="../example.com/info")) == (1, message, message)


# --------------------------------------------------------------------------------- adding


@pytest.mark.parametrize("mask", [0o000, 0o022, 0o777])
def test_a_file_is_copied_with_mode_0644_whatever_the_umask(mask):
    os.chmod(UPLOAD, 0o4600)
    ended = run(TOOL, "--add-attachment", *options(file_name=UPLOAD, attachment_file_name="a"),
                env=tool_environment(), umask=mask)
    assert outcome(ended) == (0, "", "")
    assert tree(STORE) == {"a": "f 0644 root:root"}
    assert read(f"{STORE}/a") == "text"
    assert (described(UPLOAD), read(UPLOAD)) == ("f 4600 root:root", "text")


def test_an_attachment_is_replaced():
    write(f"{STORE}/a", "an older and longer text", 0o600)
    assert outcome(add("a")) == (0, "", "")
    assert read(f"{STORE}/a") == "text"
    assert described(f"{STORE}/a") == "f 0644 root:root"


@by_name(ODD_NAMES)
def test_an_attachment_is_added_and_removed_under_any_name(case):
    assert outcome(add(case)) == (0, "", "")
    assert tree(STORE) == {case: "f 0644 root:root"}
    assert outcome(remove(case)) == (0, "", "")
    assert tree(STORE) == {}


def test_a_domain_is_given_in_either_form():
    folder = f"{MAILNAMES}/xn--bcher-kva.example/info/@attachments"
    os.makedirs(folder)
    assert outcome(add("a", domain_name="bücher.example")) == (0, "", "")
    assert outcome(list_(domain_name="bücher.example")) == (0, "a\t4\n", "")
    assert outcome(list_(domain_name="xn--bcher-kva.example")) == (0, "a\t4\n", "")
    assert outcome(remove("a", domain_name="bücher.example")) == (0, "", "")
    assert tree(folder) == {}


@pytest.mark.parametrize("name", ["In Fo!", "..odd", "info@example.com", "grüß"])
def test_a_mailname_is_taken_as_it_is_typed(name):
    folder = f"{DOMAIN}/{name}/@attachments"
    os.makedirs(folder)
    assert outcome(add("a", mailname=name)) == (0, "", "")
    assert tree(folder) == {"a": "f 0644 root:root"}
    assert outcome(list_(mailname=name)) == (0, "a\t4\n", "")
    assert outcome(remove("a", mailname=name)) == (0, "", "")
    assert tree(folder) == {}


def test_a_missing_upload_is_reported_and_leaves_no_attachment():
    ended = add("a", file="/tmp/missing")
    message = report("Unable to open file /tmp/missing: No such file or directory", 2)
    message += report(f"Unable to copy the attachment file /tmp/missing to {STORE}/a\n", 2)
    assert outcome(ended) == (1, message, message)
    assert tree(STORE) == {}


def test_a_store_that_is_missing_or_read_only_is_reported():
    read_only(DOMAIN)
    message = report(f"Unable to open file {STORE}/a: Read-only file system", 30)
    message += report(f"Unable to copy the attachment file {UPLOAD} to {STORE}/a\n", 30)
    assert outcome(add("a")) == (1, message, message)
    message = report(f"Unable to open file {DOMAIN}/nobody/@attachments/a: No such file or directory", 2)
    message += report(f"Unable to copy the attachment file {UPLOAD} to {DOMAIN}/nobody/@attachments/a\n", 2)
    assert outcome(add("a", mailname="nobody")) == (1, message, message)


def test_a_full_disk_is_reported_and_leaves_what_was_copied():
    full_disk(STORE, more_files=1)
    os.unlink(f"{STORE}/.full")
    size = os.statvfs(STORE).f_bavail * 4096
    write(UPLOAD, "x" * (size + 1))
    message = report(f"Error while copying file {UPLOAD} to {STORE}/a: No space left on device", 28)
    message += report(f"Unable to copy the attachment file {UPLOAD} to {STORE}/a\n", 28)
    assert outcome(add("a")) == (1, message, message)
    assert tree(STORE) == {"a": "f 0644 root:root"}
    assert os.path.getsize(f"{STORE}/a") == size


@by_name(OUTSIDE)
def test_nothing_is_written_or_removed_outside_the_store(case):
    write(f"{DOMAIN}/info/.qmail", "| true\n")
    write(f"{STORE}/sub/a", "x")
    with nothing_changes():
        message = report(f"Unable to copy the attachment file {UPLOAD} to {STORE}/{case}\n", 22)
        assert outcome(add(case)) == (1, message, message)
        message = report(f"Unable to delete the attachment file {STORE}/{case}: Invalid argument\n", 22)
        assert outcome(remove(case)) == (1, message, message)


# ------------------------------------------------------------------------------- removing


def test_one_file_is_removed():
    write(f"{STORE}/a", "x")
    write(f"{STORE}/b", "x", 0o644)
    assert outcome(remove("a")) == (0, "", "")
    assert list(tree(STORE)) == ["b"]


def test_removing_what_does_not_exist_is_no_failure():
    with nothing_changes():
        assert outcome(remove("a")) == (0, "", "")
        assert outcome(remove("a", mailname="nobody")) == (0, "", "")
        assert outcome(remove("a", domain_name="example.org")) == (0, "", "")


def test_a_link_is_removed_and_not_what_it_leads_to():
    os.symlink(UPLOAD, f"{STORE}/link")
    assert outcome(remove("link")) == (0, "", "")
    assert tree(STORE) == {}
    assert read(UPLOAD) == "text"


def test_what_cannot_be_removed_is_reported():
    os.mkdir(f"{STORE}/directory")
    message = report(f"Unable to delete the attachment file {STORE}/directory: Is a directory\n", 21)
    with nothing_changes():
        assert outcome(remove("directory")) == (1, message, message)
    write(f"{STORE}/a", "x")
    read_only(STORE)
    message = report(f"Unable to delete the attachment file {STORE}/a: Read-only file system\n", 30)
    assert outcome(remove("a")) == (1, message, message)
    assert read(f"{STORE}/a") == "x"
