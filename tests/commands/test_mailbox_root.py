"""All work of the tool in mailboxes, below a root that the product configuration puts elsewhere."""
import os

import pytest

from mailhost import MAILNAMES, described, done, read, start, tree, write
from panel import panel_domain, panel_mailname, quota_line

CONFIGURATION = "/etc/orv/orv.conf"
ROOT = "/srv/mail"
DOMAIN = "example.com"
HOME = f"{ROOT}/{DOMAIN}/anna"
NAMES = (f"--domain-name={DOMAIN}", "--mailname=anna")


@pytest.fixture(autouse=True)
def elsewhere():
    line = f"ORVEK_MAILNAMES_D {MAILNAMES}\n"
    configuration = read(CONFIGURATION)
    assert line in configuration
    write(CONFIGURATION, configuration.replace(line, f"ORVEK_MAILNAMES_D {ROOT}\n"))
    start("mariadb")
    panel_domain(DOMAIN, quota=471100)
    panel_mailname(f"anna@{DOMAIN}")
    before = tree(MAILNAMES)
    yield
    assert tree(MAILNAMES) == before


def test_a_mailbox_lives_and_goes_below_the_configured_root():
    done("--add-domain", f"--domain-name={DOMAIN}")
    assert described(f"{ROOT}/{DOMAIN}") == "d 0750 popuser:popuser"
    done("--add-mailname", *NAMES)
    assert read(f"{HOME}/Maildir/maildirsize").startswith(quota_line(HOME, 471100))
    done("--add-mailbox", *NAMES, env={"ORV_PASSWORD": "secret"})
    assert read(f"{HOME}/.qmail") == "| true\n| /usr/bin/deliverquota ./Maildir\n"
    done("--add-redirect", *NAMES, "--redirect-email=bertha@example.org")
    assert read(f"{HOME}/.qmail").endswith("&bertha@example.org\n")

    write("/tmp/upload", "12345")
    done("--add-attachment", *NAMES, "--file-name=/tmp/upload", "--attachment-file-name=a")
    done("--list-attachments", f"--domain-name={DOMAIN}", "--mail-all", "--fullname", out=f"{HOME}/@attachments/a\t5\n")
    taken = os.lstat(f"{HOME}/@attachments").st_size + 5
    done("--set-mailbox-disk-quota", *NAMES, "--disk-quota=50000")
    assert read(f"{HOME}/Maildir/maildirsize").startswith(f"{50000 - taken}S,0C\n")
    done("--set-domain-disk-quota", f"--domain-name={DOMAIN}", "--disk-quota=60000")
    assert read(f"{HOME}/Maildir/maildirsize").startswith(f"{60000 - taken}S,0C\n")
    done("--get-mailbox-size", *NAMES, out=str(taken))

    done("--rename-mailname", f"--domain-name={DOMAIN}", "--old-mailname=anna", "--new-mailname=carla")
    assert os.listdir(f"{ROOT}/{DOMAIN}") == ["carla"]
    done("--remove-mailname", f"--domain-name={DOMAIN}", "--mailname=carla")
    assert tree(f"{ROOT}/{DOMAIN}") == {}
    done("--remove-domain", f"--domain-name={DOMAIN}")
    assert os.listdir(ROOT) == []
