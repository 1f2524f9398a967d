"""Adding mail aliases: their records, and accounts copied from the mailnames' accounts."""

from _commands import DOMAIN, SIZES, command_row, with_mailboxes  # noqa: F401  (SIZES is for run.py)

SCRIPT = r"""
alias=also-$box
{ echo "$alias@$domain $box@$domain"
  alias_domains | while read -r other; do echo "$alias@$other $box@$domain"; done; } | add virtual
ls /usr/local/orv/handlers/info > /dev/null
copy() { # NAME FROM NEW TO
    echo "INSERT OR IGNORE INTO domains (name) VALUES ('$4');
          INSERT OR REPLACE INTO users (dom_id, name, userPassword, cmusaslsecretPLAIN, status)
          SELECT new.id, '$3', u.userPassword, u.cmusaslsecretPLAIN, u.status
          FROM users u JOIN domains d ON u.dom_id = d.id JOIN domains new ON new.name = '$4'
          WHERE u.name = '$1' AND d.name = '$2';"
}
{ copy $box $domain $alias $domain
  alias_domains | while read -r other; do copy $alias $domain $alias $other; done; } | accounts
"""


def row(bench, records):
    return command_row(bench, records, f"--add-alias --domain-name={DOMAIN} --mailname=box$i --alias=also-box$i",
                       SCRIPT, before=with_mailboxes)
