"""Shared by the tests of the service commands: the commands, the two init scripts, the entries of
master.cf, and the ports that somebody listens on."""
import contextlib
import os
import socket

import mailhost
import spies

START, STOP, RESTART, RELOAD, STATUS = (f"--{verb}-service" for verb in ("start", "stop", "restart", "reload", "status"))
POSTFIX = "/etc/init.d/postfix"
COURIER = "/etc/init.d/courier-imap"
MASTER_CF = "/etc/postfix/master.cf"
# Postfix understands this name and the tool does not.
ODD_ENTRY = "[127.0.0.1]:10099 inet n - n - - smtpd\n"
PARKED = "/var/spool/postfix/orvek/master.cf.disabled"
FILTER = "-o smtpd_proxy_filter=127.0.0.1:10025"
SMTPS = f"smtps inet n - n - - smtpd {FILTER} -o smtpd_tls_wrappermode=yes"
SUBMISSION = (
    "submission inet n - n - - smtpd -o smtpd_enforce_tls=yes -o smtpd_tls_security_level=encrypt "
    "-o smtpd_sasl_auth_enable=yes -o smtpd_client_restrictions=permit_sasl_authenticated,reject "
    f"-o smtpd_sender_restrictions= {FILTER}")


def entries():
    """The lines of master.cf without comments."""
    return [line for line in mailhost.read(MASTER_CF).splitlines() if line and not line.startswith("#")]


def panel_has_submission(on):
    mailhost.panel_sql("DELETE FROM misc WHERE param = 'message_submission'; INSERT INTO misc (param, val) "
                       f"VALUES ('message_submission', '{'true' if on else 'false'}')")


def listens(*ports):
    """Whether somebody listens on each of the ports."""
    for port in ports:
        try:
            socket.create_connection(("127.0.0.1", port), timeout=mailhost.HANGS).close()
        except ConnectionRefusedError:
            return False
    return True


def postfix_is_up():
    return mailhost.mailvek("--status-service", "--mail-component=mta").out == "mta is running\n"


def actions(script=None):
    """The actions that the init scripts were asked for: (script, action) in order, or one script's."""
    if script:
        return [call.argv[1] for call in spies.calls(script)]
    return [(call.program, call.argv[1]) for call in spies.calls()]


@contextlib.contextmanager
def unusable(program):
    """Makes a program impossible to run."""
    mode = os.stat(program).st_mode
    os.chmod(program, 0o644)
    try:
        yield
    finally:
        os.chmod(program, mode)


def components(*names):
    return [f"--mail-component={name}" for name in names]


def serviced(command, *names, out=None, **more):
    """Runs a service command with these components. It must succeed without a report."""
    return mailhost.done(command, *components(*names), out=out, **more)


def status(*names):
    """The lines of --status-service for these components."""
    return serviced(STATUS, *names).out.splitlines()
