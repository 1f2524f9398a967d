"""Things that attackers put in the place of a file or directory that the tool expects.

Each kind is a function of the path. It runs as the attacker, or as root where it says so: a thing that
only root can make may have come with a restored backup, or from a system that does not protect hard
links. The old file is moved aside.
"""
import contextlib
import os
import socket
import subprocess

from ground import CANARY, CRON, KEPT

LEVELS = 20_000
NAMES = 30_000


def aside(path):
    """Moves the file away, as the owner of the directory may."""
    with contextlib.suppress(FileNotFoundError):
        os.rename(path, f"{path}.aside")


def link_to(target):
    def plant(path):
        aside(path)
        os.symlink(target, path)
    return plant


def hard_link(path):
    aside(path)
    os.link(CANARY, path)


def fifo(path):
    aside(path)
    os.mkfifo(path, 0o666)


def listening_socket(path):
    aside(path)
    directory = os.open(os.path.dirname(path), os.O_RDONLY)  # a socket's path is short
    with socket.socket(socket.AF_UNIX) as made:
        made.bind(f"/proc/self/fd/{directory}/{os.path.basename(path)}")


def endless_device(path):
    """/dev/zero, which has no end."""
    aside(path)
    open(path, "x").close()
    subprocess.run(["mount", "--bind", "/dev/zero", path], check=True)


def sparse(path):
    aside(path)
    with open(path, "x") as file:
        file.truncate(8 << 40)


def long_line(path):
    """A file of one line, longer than any honest one."""
    aside(path)
    with open(path, "x") as file:
        for _ in range(64):
            file.write("x" * (1 << 20))


def directory(path):
    aside(path)
    os.mkdir(path, 0o700)
    open(f"{path}/inside", "x").close()


def plain_file(path):
    aside(path)
    open(path, "x").close()


def deep(path):
    """A tree deeper than descriptors or a stack last."""
    if not os.path.isdir(path):
        aside(path)
        os.mkdir(path, 0o700)
    here = os.open(path, os.O_RDONLY)
    for _ in range(LEVELS):
        os.mkdir("d", 0o700, dir_fd=here)
        below = os.open("d", os.O_RDONLY, dir_fd=here)
        os.close(here)
        here = below
    os.close(here)


def crowd(path):
    """A directory with very many names."""
    if not os.path.isdir(path):
        aside(path)
        os.mkdir(path, 0o700)
    here = os.open(path, os.O_RDONLY)
    for number in range(NAMES):
        os.close(os.open(str(number), os.O_WRONLY | os.O_CREAT, 0o600, dir_fd=here))
    os.close(here)


def copied_tree(path):
    """A link to root's tree, which looks like what the tool expects."""
    aside(path)
    os.symlink(KEPT, path)


to_canary = link_to(CANARY)
to_kept = link_to(KEPT)
to_cron = link_to(CRON)
to_new_file = link_to(f"{CRON}/planted")
to_new_directory = link_to("/etc/planted")
to_itself = lambda path: link_to(os.path.basename(path))(path)  # noqa: E731

FILE_KINDS = {
    "a link to root's file": (to_canary, None),
    "a link to where cron looks": (to_new_file, None),
    "a hard link to root's file": (hard_link, "root"),
    "a FIFO": (fifo, None),
    "a socket": (listening_socket, None),
    "a device": (endless_device, "root"),
    "a sparse file of 8 TiB": (sparse, None),
    "a line of 64 MiB": (long_line, None),
    "a directory": (directory, None),
    "a link to itself": (to_itself, None),
}
DIRECTORY_KINDS = {
    "a link to root's directory": (to_kept, None),
    "a link to /etc/cron.d": (to_cron, None),
    "a link to a new place in /etc": (to_new_directory, None),
    "a file": (plain_file, None),
    "a FIFO": (fifo, None),
    "a tree 20,000 deep": (deep, None),
    "30,000 names": (crowd, None),
}


def plant(kind, path, by, attacker):
    make, as_root = kind
    by("root" if as_root else attacker, lambda: make(path))


def unmount(path):
    with contextlib.suppress(OSError):
        subprocess.run(["umount", path], check=False, capture_output=True)

