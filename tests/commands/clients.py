"""The world outside a host that has only its loopback: clients with addresses of their own, and the
name server that they and the host ask."""
import contextlib
import smtplib
import socket
import struct
import threading

import mailhost

HOST, OUTSIDE = "192.0.2.7", "198.51.100.9"


@contextlib.contextmanager
def addresses(*more):
    """Gives the loopback the host's own address, which comes first, and the clients' addresses."""
    given = (HOST, OUTSIDE, *more)
    for address in given:
        ended = mailhost.run("ip", "address", "add", f"{address}/32", "dev", "lo")
        assert ended.status == 0, ended
    try:
        yield
    finally:
        for address in given:
            mailhost.run("ip", "address", "del", f"{address}/32", "dev", "lo")


def session(client, login=None):
    """An SMTP session from the client's address, greeted."""
    smtp = smtplib.SMTP("127.0.0.1", 25, local_hostname="client.example.test", timeout=mailhost.HANGS, source_address=(client, 0))
    smtp.ehlo()
    if login:
        smtp.login(*login)
    return smtp


def recipient(to, client=OUTSIDE, sender="clara@example.org", login=None):
    """The server's answer to a letter's recipient: the code and the text."""
    with session(client, login) as smtp:
        code, text = smtp.mail(sender)
        assert code == 250, text
        code, text = smtp.rcpt(to)
    return code, text.decode()


def offers(extension, client="127.0.0.1"):
    """The server's text for an extension in its greeting, or None."""
    with session(client) as smtp:
        return smtp.esmtp_features.get(extension)


@contextlib.contextmanager
def name_server(names):
    """Runs a name server on the loopback for the whole host. It knows these names, each with one address,
    and denies all others. Yields the names that it was asked for."""
    asked = []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as server:
        server.bind(("127.0.0.1", 53))
        asked_before = mailhost.read("/etc/resolv.conf")
        mailhost.write("/etc/resolv.conf", "nameserver 127.0.0.1\n")
        thread = threading.Thread(target=_serve, args=(server, names, asked))
        thread.start()
        try:
            yield asked
        finally:
            mailhost.write("/etc/resolv.conf", asked_before)
            # An empty datagram ends the server.
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
                client.sendto(b"", ("127.0.0.1", 53))
            thread.join(timeout=mailhost.HANGS)


def _serve(server, names, asked):
    while True:
        query, client = server.recvfrom(4096)
        if not query:
            return
        server.sendto(_answer(query, names, asked), client)


def _answer(query, names, asked):
    labels, at = [], 12
    while query[at]:
        labels.append(query[at + 1:at + 1 + query[at]].decode())
        at += 1 + query[at]
    question = query[12:at + 5]
    kind = struct.unpack(">H", query[at + 1:at + 3])[0]
    name = ".".join(labels).lower()
    asked.append(name)
    answers = b""
    if name in names and kind == 1:
        answers = struct.pack(">HHHIH", 0xC00C, 1, 1, 60, 4) + socket.inet_aton(names[name])
    code = 0 if name in names else 3
    return query[:2] + struct.pack(">HHHHH", 0x8580 | code, 1, bool(answers), 0, 0) + question + answers
