"""Verbs and names of the tests of one mailname: anna, of a domain with one alias domain."""
from mailhost import MAILNAMES, done, postmap, start
from panel import panel_domain, panel_mailname, standard_addresses

POSTMAP = "/usr/sbin/postmap"
DOMAIN, ALIAS, OTHER = "example.com", "alias.test", "alias.example"
HOME = f"{MAILNAMES}/{DOMAIN}/anna"
ANNA = f"anna@{DOMAIN}"
NAMES = (f"--domain-name={DOMAIN}", "--mailname=anna")
PLAIN = {"ORV_PASSWORD": "secret"}
ALL_ACCOUNTS = [f"ann@{ALIAS}", f"ann@{DOMAIN}", f"anna@{ALIAS}", ANNA]


def domain_without_mailnames():
    """Sets the domain up with the tool. The panel already knows anna and her mail alias ann."""
    start("mariadb")
    panel_domain(DOMAIN, aliases=[ALIAS])
    panel_mailname(ANNA, aliases=["ann"])
    done("--add-domain", f"--domain-name={DOMAIN}")


def mailname_with_a_mailbox():
    """Makes anna and ann, with accounts under the domain and the alias domain."""
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-alias", *NAMES, "--alias=ann")
    done("--add-mailbox", *NAMES, env=PLAIN)
    done("--set-password", *NAMES, env=PLAIN)


def addresses():
    """The records of virtual without the standard addresses."""
    standard = standard_addresses(DOMAIN) | standard_addresses(ALIAS) | standard_addresses(OTHER)
    return {key: value for key, value in postmap("virtual").items() if key not in standard}
