"""The arguments that the bounce program gets from a phrase, through the real mail server and its shell."""
import os
import smtplib

import pytest

from mailhost import HANGS, add_records, mailvek, read, start, wait_until, write
from demo_mail import next_second

PROGRAM = "/usr/lib64/orvek-9.0/bouncemessage"
SEEN = "/tmp/bounces"

# Writes the number of its arguments and the arguments to a file named after its alias.
NOTING = f"""#!/bin/sh
cat > /dev/null
printf '%s\\0' "$#" "$@" > "{SEEN}/$LOCAL.part" && mv "{SEEN}/$LOCAL.part" "{SEEN}/$LOCAL"
"""

PRINTABLE = [chr(byte) for byte in range(32, 127)]
TEXTS = [
    "".join(PRINTABLE), "".join(reversed(PRINTABLE)),
    "Nobody here by that name; try 'anna'!", 'He said "no", twice', "it's $HOME and `id` and $(id)",
    "a\\b\\\\c\\", "  two  blanks  ", "* ? [a-z] ~ ~root {a,b} !x #y", "< > | & ; ( )", "-n", "--help", "=x", "%s%n",
    "|cat", "/etc/passwd", ":include:/etc/passwd", "a,b", "$1 $@ ${x}", "'", '"', "\\", "\\\\", "''", '""', "\\'", '\\"',
    "Grüße aus Köln", "Не доставлено", "こんにちは", "naïve — “quoted” €", "🙂", "é" * 300, "word " * 200 + "end",
]


@pytest.fixture(autouse=True)
def mail_server():
    start("mariadb", "postfix")
    os.mkdir(SEEN)
    os.chmod(SEEN, 0o777)
    os.remove(PROGRAM)
    write(PROGRAM, NOTING, mode=0o755)


def arguments_for(phrases):
    """Gives each phrase to a domain of its own and sends mail to all of them. Returns the program's
    arguments for each phrase."""
    domains = [f"d{number}.test" for number in range(len(phrases))]
    add_records("virtual_domains", {domain: f"{domain}/" for domain in domains})
    for domain, phrase in zip(domains, phrases):
        given = [f"--phrase={phrase}"] if phrase else []
        ended = mailvek("--set-bounce", f"--domain-name={domain}", *given)
        assert (ended.status, ended.out, ended.err) == (0, "", ""), ended
    next_second()
    with smtplib.SMTP("127.0.0.1", 25, local_hostname="client.example.test", timeout=HANGS) as smtp:
        for at in range(0, len(domains), 50):
            smtp.sendmail("clara@localhost.localdomain", [f"nobody@{domain}" for domain in domains[at:at + 50]],
                          "Subject: A letter\r\n\r\nHello\r\n")
    return [arguments_of(f"{SEEN}/_orvek_bounce_{domain}") for domain in domains]


def arguments_of(path):
    wait_until(lambda: os.path.exists(path))
    number, *arguments = read(path).split("\0")[:-1]
    assert int(number) == len(arguments)
    return arguments


def require_as_typed(phrases):
    got = arguments_for(phrases)
    wrong = {phrase: arguments for phrase, arguments in zip(phrases, got) if arguments != [phrase]}
    assert wrong == {}


def test_each_printable_byte_arrives_as_typed_wherever_it_stands():
    require_as_typed([f"{byte} x{byte}y {byte}{byte}" for byte in PRINTABLE])


def test_each_printable_byte_arrives_as_typed_alone():
    require_as_typed([byte for byte in PRINTABLE])


def test_phrases_full_of_shell_syntax_arrive_as_typed():
    require_as_typed(TEXTS)


def test_a_newline_arrives_as_a_blank():
    assert arguments_for(["one\ntwo\n\nthree\n"]) == [["one two  three "]]


def test_without_a_phrase_the_program_has_no_argument():
    assert arguments_for([""]) == [[]]


def test_the_mail_server_makes_a_tab_a_blank():
    assert arguments_for(["one\ttwo"]) == [["one two"]]


def test_a_carriage_return_parts_the_phrase():
    """It is not quoted, and the mail server turns it into a blank."""
    assert arguments_for(["one\rtwo"]) == [["one", "two"]]
