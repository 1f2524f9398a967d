"""Adding domains: for each a directory, the standard addresses, and a rewrite of the virtual map, which
removes the name's records as an alias domain."""

from _commands import SIZES, command_row  # noqa: F401  (SIZES is for run.py)

SCRIPT = r"""
new=new-$box.test map=$maps/virtual
mkdir -m 0750 /var/qmail/mailnames/$new
chown popuser:popuser /var/qmail/mailnames/$new
postmap -s hash:$map | LC_ALL=C sed -E -e "/^[^\t]*@?$new\t/d" -e 's/\t/ /' \
    -e "s/[^ ,]*@$new(, |\$)//g" > $map
postmap hash:$map
rm $map
standard() {
    for name in postmaster mailer-daemon root anonymous drweb kluser; do
        echo "$name@$new $name@localhost.localdomain"
    done
}
standard | add virtual
echo "$new $new/" | add virtual_domains
standard | add virtual
"""


def row(bench, records):
    return command_row(bench, records, "--add-domain --domain-name=new-box$i.test", SCRIPT,
                       boxes=1 if records > 100_000 else 10)
