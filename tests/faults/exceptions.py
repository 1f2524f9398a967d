"""Faults after which a promise does not hold, each with the reason why that is as it should be."""
import re

HOOKS = ("add-alias|add-domain-alias|rename-domain-alias|rename-mailname|rename-mailname-password|"
         "remove-mailname|remove-domain|remove-alias|turn-off-domain")
HALF_MADE = ("A handler is a directory of several files and a marker. One that could not be finished or removed "
             "stays, for no step cleans up; once it has a hook, a type and a value it is found and not made again.")

# Command, promise, what the fault and what was seen look like, reason.
EXCEPTIONS = (
    (".*", "left over|status", r"^E\w+ from #\d+ unlink\(\"/var/spool/postfix/orvek/",
     "What is to be removed behind a rewrite cannot be: the map itself is whole, the next rewrite takes it away."),
    (".*", "left over", r"handlers/info/", HALF_MADE),
    (".*", "status|left over|repeat", r"^E\w+ from #\d+ rmdir\(\"/usr/local/orv/handlers/[^i]",
     "A hook's directory goes when it is empty; one that cannot be removed does not matter."),
    (".*", "left over", r"\.qmail\.tmp\b", "A line edit that fails leaves its temporary file, and the next one uses it."),
    ("remove-domain", "left over", r"\.OrvekSaved\.", "A domain is moved aside first; what cannot be removed then stays there."),
    (HOOKS, "status", r"mail handler|mass hook operation|Unable to (open|read) directory /usr/local/orv/handlers/info",
     "Hooks come last. Those that cannot follow are reported and do not change the status."),
    (HOOKS + "|add-handler|set-autoresponder", "repeat", r"\): /usr/local/orv/handlers/", HALF_MADE),
    ("remove-handler", "status", r"does not exist in queue", "A handler that cannot be read counts as none, behind a report."),
    ("rename-mailname.*", "repeat", r"filesystem::rename: No such file",
     "The home goes last and only once: a rename that has moved it fails when it is repeated, and takes its records back."),
    (".*", "status", r"Unable to get domain aliases from database",
     "Without the panel's database the addresses of the domain itself are changed and the failure is reported."),
    (".*", "status", r"Unable to (execute the domain selection query|prepare SQL statement for query 'SELECT id FROM domains)",
     "A domain that cannot be looked up among the accounts counts as one that is not there, behind a report."),
    ("add-redirect|add-mailbox|remove-mailbox", "status", r"(?s)^(?!.*Unable to add string).*(/\.qmail\b|/lock/files/)",
     "The removal of a delivery line that may not be there is tried and its result ignored."),
    ("set-domain-key", "status|repeat", r"Unable to getpwnam for user popuser|No source file",
     "An unknown user has root's group. The uploaded key is removed behind a success, so there is no repeat."),
    ("set-mail-params", "status", r"Unable to open //etc/courier-imap/", "A file of Courier's that cannot be read is passed over."),
    ("set-domain-key", "status", r"from #\d+ unlink\(\"/tmp/key\"", "The key is installed; that the upload cannot be removed is not looked at."),
    ("add-mailname", "torn", r"^KILL .*/\.qmail: b''$",
     "The delivery file of a new mailname is written in its place: nobody has mail there yet, and a repeat writes it anew."),
    ("add-attachment", "torn", r"@attachments/", "An attachment is copied to its place; a copy that fails is reported and made anew by a repeat."),
    ("update-spf", "torn", r"/etc/orv-spf/", "A parameter is one value, written in its place and written anew by a repeat."),
    ("set-mailbox-disk-quota|add-mailname", "status|torn", r"@attachments",
     "An attachment that cannot be looked at does not count."),
)


def reason_for(command, fault, promise, said):
    """Why this broken promise is none, or None."""
    for name, what, pattern, reason in EXCEPTIONS:
        if re.fullmatch(name, command) and re.fullmatch(what, promise) and re.search(pattern, f"{fault}: {said}"):
            return reason
    return None
