"""Setting a relay mode, against the same five runs of postconf from a shell.

postconf waits when main.cf has changed just now, also when a shell runs it. The tool avoids the wait.
"""

import shutil

from run import Row

MAIN_CF = "/etc/postfix/main.cf"
LIST = "smtpd_recipient_restrictions"
CLAUSE = "check_client_access pcre:/var/spool/postfix/orvek/no_relay.re"


def row(bench):
    postconf = "/usr/sbin/postconf"
    kept = shutil.copy2(MAIN_CF, bench.directory)  # keeps the old date
    return Row(
        ours=[bench.program("bench_relay_mode")],
        other=["/bin/sh", "-c",
               f"{postconf} -e {LIST}=permit_mynetworks"
               f" && {postconf} -e {LIST}=\"$({postconf} -h {LIST}), {CLAUSE}\""
               f" && {postconf} -e {LIST}=\"$({postconf} -h {LIST}), reject_unauth_destination\""],
        goal=0.2,
        before=lambda: shutil.copy2(kept, MAIN_CF),
        left=lambda: open(MAIN_CF).read(),
    )
