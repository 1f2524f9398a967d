"""Verbs and names of the tests of the handler commands."""
import os
import pathlib

from mailhost import mailvek, read, tree, write

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
    """The tool ended with this status and printed these reports, the same on both streams."""
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
    """The full name of each handler, by its value."""
    return {value_of(name): name for name in names()}


def active():
    """The values of the active handlers. Each has one marker, with its full name."""
    markers = [path.name for path in pathlib.Path(STORE).glob("before-*/*/*/*")]
    markers += [path.name for path in pathlib.Path(STORE).glob("before-*/global/*")]
    assert len(markers) == len(set(markers))
    return sorted(value_of(name) for name in markers)


def store(**shown):
    """The store without the programs. The names given by keyword are replaced by their keywords."""
    found = {}
    for path, what in tree(STORE).items():
        for word, name in shown.items():
            path = path.replace(name, word)
        if not path.startswith("hooks"):
            found[path] = what
    return found


def marker(name, place=f"recipient/{ONE}"):
    return f"{STORE}/before-local/{place}/{name}"


def stuck(name, place=f"recipient/{ONE}"):
    """Puts a directory in a marker's place, so that the marker cannot be removed. Returns the report."""
    os.remove(marker(name, place))
    os.mkdir(marker(name, place))
    return f"Unable to remove hook '{name}' from directory '{STORE}/before-local/{place}': Is a directory"


def not_made(name, place=f"recipient/{ONE}"):
    """The reports of a marker that cannot be made because a directory is in its place."""
    return f"Unable to truncate or create file {marker(name, place)}: Is a directory", "System error 21: Is a directory"


def damaged(name="10-spam-broken", without="hook"):
    """Makes a descriptor by hand that lacks a file."""
    files = {"hook": "before-local\n", "handler-type": "recipient\n", "recipient": f"{ONE}\n", "context": "c\n"}
    for file, content in files.items():
        if file != without:
            write(f"{INFO}/{name}/{file}", content)


def fatal(ended):
    text = ("Fatal error: orvek::mail::postfix::mailvek_commands::MissingMandatoryOption"
            '(mandatory option "--handler-type-name" is not specified)\n')
    assert (ended.status, ended.out, ended.err) == (1, text, text), ended
