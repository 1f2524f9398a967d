"""Adding mailnames: their homes and records."""

from _commands import ADD_MAILNAME, SIZES, command_row  # noqa: F401  (SIZES is for run.py)

SCRIPT = r"""
mkdir -p -m 0700 "$home" "$home/@attachments"
for folder in Maildir Maildir/.Spam; do
    mkdir -m 0700 "$home/$folder" "$home/$folder/cur" "$home/$folder/new" "$home/$folder/tmp"
done
printf '| true\n' > "$home/.qmail"
chmod 0600 "$home/.qmail"
printf '%dS,0C\n%12d%12d\n' $((1000000 - $(stat -c %s "$home/@attachments"))) 0 0 > "$home/Maildir/maildirsize"
chown -R popuser:popuser "$home"
echo "$box@$domain $domain/$box/Maildir/" | add vmailbox
{ echo "$box@$domain $box@$domain"
  alias_domains | while read -r other; do echo "$box@$other $box@$domain"; done; } | add virtual
"""


def row(bench, records):
    return command_row(bench, records, ADD_MAILNAME, SCRIPT)
