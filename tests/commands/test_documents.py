"""Runs the sessions and examples of the documents: they must work as shown."""
import os
import re

import pytest

from mailhost import CHECKOUT, PATH, TOOL, done, run, start
from panel import panel_domain

DOCUMENTS = sorted([*CHECKOUT.glob("*.md"), *CHECKOUT.glob("docs/*.md")])


def session(document):
    """Each command of a session with its output. Commands are the indented lines that begin with "$ "."""
    steps = []
    inside = False
    for line in document.read_text().splitlines():
        inside = line.startswith("    $ ") or (inside and line.startswith("    "))
        if line.startswith("    $ "):
            steps.append((line[6:], []))
        elif inside:
            steps[-1][1].append(line[4:])
    return [(command, "".join(f"{line}\n" for line in printed)) for command, printed in steps]


def examples(document):
    """The tool's own command lines among the indented lines, without their comments."""
    lines = re.findall(r"^    (mailvek -.*)$", document.read_text(), re.M)
    return [line.split("#")[0].strip() for line in lines if "<" not in line]


def typed(line):
    """Runs the line as an administrator who has the tool in PATH."""
    return run("/bin/sh", "-c", line, env={"PATH": f"{os.path.dirname(TOOL)}:{PATH}", "HOME": "/root"})


SESSIONS = {document.name: steps for document in DOCUMENTS if (steps := session(document))}
EXAMPLES = [line for document in DOCUMENTS for line in examples(document)]


@pytest.mark.parametrize("name", SESSIONS)
def test_a_session_goes_as_the_document_shows_it(name):
    start("mariadb")
    panel_domain("example.com", aliases=["example.net"])
    done("--add-domain", "--domain-name=example.com")
    for command, printed in SESSIONS[name]:
        result = typed(command)
        assert (result.out, result.err, result.status) == (printed, "", 0), command


@pytest.mark.parametrize("line", EXAMPLES)
def test_an_example_of_the_documents_works(line):
    assert typed(line).status == 0


def test_the_walk_through_and_the_readme_have_something_to_run():
    assert "walkthrough.md" in SESSIONS
    assert examples(CHECKOUT / "README.md") != []
