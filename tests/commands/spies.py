"""Stand-ins for programs of the mail host. spy() puts one in a program's place, a Rule says what it does
with a call, and calls() returns the calls. Text is str as in mailhost.
"""
import dataclasses
import json
import os
import pathlib
import subprocess

from mailhost import BIN, SPIES, spy_journal, text


@dataclasses.dataclass
class Rule:
    """What a spy does with the calls that fit. A plain Rule() runs the real program."""

    exit: int | None = None  # end with this status instead of running the real program
    signal: int | None = None  # or die by this signal
    out: str = ""  # write this on standard output first
    err: str = ""  # and this on standard error
    spew: int = 0  # first write that many bytes on each of the two streams, in turns
    input: str = "record"  # record | ignore (never read it) | close
    delay: float = 0  # first wait that many seconds
    times: int | None = None  # serve that many calls, then leave the rest to the next rule
    having: str | None = None  # serve only calls that have this argument

    def line(self):
        words = [f"input={self.input}"]
        if self.exit is not None:
            words.append(f"exit={self.exit}")
        if self.signal is not None:
            words.append(f"signal={int(self.signal)}")
        if self.times is not None:
            words.append(f"times={self.times}")
        if self.having is not None:
            words.append(f"having={os.fsencode(self.having).hex()}")
        words += [f"stdout={os.fsencode(self.out).hex()}", f"stderr={os.fsencode(self.err).hex()}"]
        words += [f"spew={self.spew}", f"delay={int(self.delay * 1000)}"]
        return " ".join(words) + "\n"


@dataclasses.dataclass
class Call:
    """One call of a program that a spy stands in for."""

    program: str
    argv: list
    env: dict
    cwd: str
    fds: dict  # descriptor number -> the file it is open on
    uid: int
    gid: int
    umask: int
    blocked: int  # signal masks, bit 0 is signal 1
    ignored: int
    stdin: str | None = None  # None when it was not read


def _latin(value):
    return text(value.encode("latin-1"))


def spy(program, *rules):
    """Puts a spy in a program's place. The first rule that fits a call and is not used up serves it;
    without one the real program runs. Makes a program that does not exist. A second spy() on a program
    replaces its rules. reset() removes all spies."""
    place = os.path.realpath(program)
    folder = SPIES / place.replace("/", "%")
    folder.mkdir(0o777, parents=True, exist_ok=True)
    for directory in (SPIES, folder):
        directory.chmod(0o777)
    (folder / "rules").write_text("".join(rule.line() for rule in rules))
    (folder / "used").unlink(missing_ok=True)
    if not os.path.lexists(place):
        pathlib.Path(place).parent.mkdir(parents=True, exist_ok=True)
        pathlib.Path(place).touch(0o755)
    if not os.path.samefile(place, BIN / "spy"):
        subprocess.run(["mount", "--bind", BIN / "spy", place], check=True)


def calls(program=None):
    """The calls that spies have seen, of one program or of all, in order."""
    seen, open_calls = [], {}
    for line in spy_journal().splitlines():
        entry = json.loads(line)
        if entry["event"] == "input":
            open_calls[entry["pid"]].stdin = _latin(entry["data"])
            continue
        call = Call(
            program=_latin(entry["program"]),
            argv=[_latin(word) for word in entry["argv"]],
            env=dict(_latin(word).split("=", 1) for word in entry["env"]),
            cwd=_latin(entry["cwd"]),
            fds={int(number): _latin(target) for number, target in entry["fds"].items()},
            uid=entry["uid"], gid=entry["gid"], umask=entry["umask"],
            blocked=int(entry["blocked"], 16), ignored=int(entry["ignored"], 16),
        )
        open_calls[entry["pid"]] = call
        seen.append(call)
    place = program and os.path.realpath(program)
    return [call for call in seen if place in (None, call.program)]
