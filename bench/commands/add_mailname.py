"""Adding mailnames: their homes and records."""

from _commands import ADD_MAILNAME, DISK_SIZES, SIZES, command_row  # noqa: F401  (the sizes are for run.py)

SCRIPT = r"""
ask_panel
umask 077
mkdir -p "$home/@attachments" "$home/Maildir/cur" "$home/Maildir/new" "$home/Maildir/tmp" \
    "$home/Maildir/.Spam/cur" "$home/Maildir/.Spam/new" "$home/Maildir/.Spam/tmp"
echo '| true' > "$home/.qmail"
umask 022
printf '%dS,0C\n%12d%12d\n' $((1000000 - $(stat -c %s "$home/@attachments"))) 0 0 > "$home/Maildir/maildirsize"
chown -R popuser:popuser "$home"
echo "$box@$domain $domain/$box/Maildir/" | add vmailbox
for place in $domain $others; do echo "$box@$place $box@$domain"; done | add virtual
"""


def row(bench, records):
    return command_row(bench, records, ADD_MAILNAME, SCRIPT)
