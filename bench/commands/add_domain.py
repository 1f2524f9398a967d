"""Adding domains: for each a directory, the standard addresses, and a rewrite of the virtual map, which
removes the name's records as an alias domain."""

from _commands import DISK_SIZES, SIZES, command_row  # noqa: F401  (the sizes are for run.py)

SCRIPT = r"""
new=new-$box.test map=$maps/virtual
mkdir -m 0750 /var/qmail/mailnames/$new
chown popuser:popuser /var/qmail/mailnames/$new
{ postmap -s hash:$map | LC_ALL=C grep -vF "@$new	"
  for name in postmaster mailer-daemon root anonymous drweb kluser; do
      echo "$name@$new $name@localhost.localdomain"
  done; } > $map
postmap hash:$map
rm $map
echo "$new $new/" | add virtual_domains
"""


def row(bench, records):
    return command_row(bench, records, "--add-domain --domain-name=new-box$i.test", SCRIPT,
                       boxes=1 if records > 100_000 else 10)
