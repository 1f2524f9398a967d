"""Adding mail aliases: their records, and accounts copied from the mailnames' accounts."""

from _commands import DISK_SIZES, DOMAIN, SIZES, command_row, with_mailboxes  # noqa: F401  (the sizes are for run.py)

SCRIPT = r"""
alias=also-$box
ask_panel
for place in $domain $others; do echo "$alias@$place $box@$domain"; done | add virtual
grep -rlxF "$box@$domain" $info && exit 1 # it has no handlers to copy
echo "INSERT OR REPLACE INTO users (dom_id, name, userPassword, cmusaslsecretPLAIN, status)
      SELECT place.id, '$alias', u.userPassword, u.cmusaslsecretPLAIN, u.status
      FROM users u JOIN domains d ON u.dom_id = d.id JOIN domains place
      ON place.name IN ($(quoted $domain $others)) WHERE u.name = '$box' AND d.name = '$domain';" | accounts
"""


def row(bench, records):
    return command_row(bench, records, f"--add-alias --domain-name={DOMAIN} --mailname=box$i --alias=also-box$i",
                       SCRIPT, before=with_mailboxes, goal=0.90)
