"""Shared by the tests of customers: the victim, and the command of an honest customer."""
import ground
from ground import ALIAS, DOMAIN, MAILNAMES, NEW, ROOT, STORE, VICTIM

CEO = f"ceo@{VICTIM}"
EVIL_ENV = {"ORV_PASSWORD": "taken-over"}

# The paths that an honest command about example.com may change besides the maps.
OWN = (ROOT, f"{STORE}/info/", f"{STORE}/before-local", f"{MAILNAMES}/{NEW}", f"{STORE}/info", f"/etc/domainkeys/{NEW}")


def attacked(*command, his=(ROOT,), domains=(DOMAIN, ALIAS, NEW), allowed=OWN, **more):
    before = ground.look(his=his, domains=domains)
    how = ground.mailvek(*command, env=EVIL_ENV, **more)
    return how, ground.breaches(before, how, allowed=allowed, secrets=(ground.SECRET, ground.PASSWORD_OF_BOB))


def held(how, found, command):
    assert not found, f"{command}\n{how}\n" + "\n".join(found)


HANDLER = {"name": "spam", "type": "recipient", "type-name": f"anna@{DOMAIN}", "executable": "/bin/true",
           "context": "test", "hook": "before-local", "priority": "10"}


def own_handler(verb, **changes):
    values = {**HANDLER, **changes}
    option = {"name": "handler-name", "type": "handler-type", "type-name": "handler-type-name"}
    return [verb, *(f"--{option.get(name, name)}={value}" for name, value in values.items())]
