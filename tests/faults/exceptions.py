"""Faults after which a promise need not hold, each with the reason.

A row is as narrow as it can be: it names the error, the call and the path of the fault, and what was
seen after it. The same fault elsewhere, or one that does more, is a broken promise.
"""
import re

# The paths of faults and of what they leave.
HANDLERS = "/usr/local/orv/handlers"
NAME = r"\d+-(check|spam|autoresponder)"
PART = r"(context|executable|handler-type|hook|recipient)"
STORED = rf"{NAME}-\w{{6}}"
DESCRIPTOR = rf"{HANDLERS}/info/{STORED}"
HALF = rf"{HANDLERS}/info/{NAME}-\*(/{PART})?"
HOOK = rf"{HANDLERS}/before-local/recipient"
MARKERS = rf"{HOOK}/[\w.@]+"
MAP = r"/var/spool/postfix/orvek/(virtual|vmailbox|virtual_domains|aliases|blacklists)"
ACCOUNTS = r"/var/spool/postfix/orvek/passwd\.db"
LOCKS = r"/(var|run)/lock/files"
LOCK = rf"{LOCKS}/\w{{32}}"
ROOM = r"/var/spool/postfix/orvek/\.[a-z_]+\.room-\d+"
HOME = r"/var/qmail/mailnames/example\.com/(anna|ben)"
DELIVERY = rf"{HOME}/\.qmail"
MOVED_ASIDE = r"/var/qmail/mailnames/example\.com\.OrvekSaved\.\d+"
ATTACHMENTS = r"/var/qmail/mailnames/example\.com/anna/@attachments"
UPLOADED = rf"{ATTACHMENTS}/b\.txt"
QUOTA = r"/var/qmail/mailnames/example\.com/(anna|carl)/Maildir/maildirsize"
KEY = r"/etc/domainkeys/example\.com/default is .*"

# Faults, named after what the tool was doing.
LOOK_AT_HANDLERS = rf"E\w+ (getdents64|newfstatat|openat|read)\(.*{HANDLERS}/info.*"
FIND_PROGRAM = r'E\w+ (readlink|newfstatat)\(.*"/(bin|usr)\b.*'
TAKE_LOCK = (rf'E\w+ openat\([^"]*"/var/lock/", O_RDONLY.*|E\w+ (mkdirat|openat2)\(\d+</(var|run)/lock>, "files", .*|'
             rf'E\w+ newfstatat\(\d+<{LOCKS}>, "", .*|E\w+ openat\(\d+<{LOCKS}>, "\w{{32}}", .*|E\w+ openat\(.* of {LOCK}|'
             rf"E\w+ (fchmod|fcntl|flock|newfstatat)\(\d+<{LOCK}>, .*")
MAKE_DESCRIPTOR = (rf'E\w+ (chmod|mkdir)\("{DESCRIPTOR}", 0\d+\)|E\w+ (chmod|chown)\("{DESCRIPTOR}/{PART}", .*|'
                   rf'E\w+ (newfstatat|openat)\(AT_FDCWD[^"]*"{DESCRIPTOR}/({PART})?", .*|E\w+ openat\(.* of {DESCRIPTOR}/{PART}|'
                   rf'E\w+ openat\(\d+<{DESCRIPTOR}>, "{PART}", .*|E\w+ (close|fchmod|newfstatat|write)\(\d+<{DESCRIPTOR}/{PART}>.*|'
                   rf'E\w+ symlink\("[\w/]+", "{DESCRIPTOR}/executable"\)|{TAKE_LOCK}')
HANG_UP = (rf'E\w+ (mkdirat|openat2)\(\d+<{HOOK}>, "[\w.@]+", .*|E\w+ openat\(AT_FDCWD[^"]*"{HOOK}/([\w.@]+/)?", .*|'
           rf'E\w+ (fchmod|fchownat)\(\d+<{MARKERS}>, .*|E\w+ openat\(\d+<{MARKERS}>, "{STORED}", .*|'
           rf"E\w+ fchmod\(\d+<{MARKERS}/{STORED}>, 0644\)")
# A kill after a call leaves what that call has left.
DIED_MAKING = (rf'KILL (chmod|mkdir)\("{DESCRIPTOR}", 0\d+\)|KILL (chmod|chown)\("{DESCRIPTOR}/{PART}", .*|'
               rf'KILL openat\((AT_FDCWD[^"]*"{DESCRIPTOR}/{PART}"|\d+<{DESCRIPTOR}>, "{PART}"), .*|'
               rf"KILL (close|fchmod|fcntl|write)\(\d+<{DESCRIPTOR}/{PART}>.*|KILL close\(\d+<{DESCRIPTOR}>\)|"
               rf'KILL symlink\("[\w/]+", "{DESCRIPTOR}/executable"\)|'
               rf'KILL mkdirat\(\d+</(var|run)/lock>, "files", .*|KILL openat\(\d+<{LOCKS}>, "\w{{32}}", .*|'
               rf"KILL close\(\d+<({LOCKS}|/(var|run)/lock)>\)|KILL (close|fchmod|fcntl|flock)\(\d+<{LOCK}>.*|"
               rf'KILL mkdirat\(\d+<{HOOK}>, "[\w.@]+", .*|KILL (close|fchmod|fchownat)\(\d+<{HOOK}(/[\w.@]+)?>.*')
TAKE_DOWN = rf'E\w+ unlink\("{MARKERS}/{NAME}-\w{{6}}"\)'
REMOVE_DESCRIPTOR = (rf"E\w+ (getdents64|newfstatat)\(\d+<{DESCRIPTOR}>, .*|E\w+ newfstatat\(\d+<{HANDLERS}/info>, \"{STORED}\", .*|"
                     rf'E\w+ (newfstatat|openat)\(AT_FDCWD[^"]*"{DESCRIPTOR}/({PART})?", .*|E\w+ openat\(.* of {DESCRIPTOR}/{PART}|'
                     rf'E\w+ openat\(\d+<{DESCRIPTOR}>, "{PART}", .*|E\w+ newfstatat\(\d+<{DESCRIPTOR}/{PART}>, .*|'
                     rf'E\w+ (openat2|unlinkat)\(\d+<{HANDLERS}/info>, "{STORED}", .*|'
                     rf'E\w+ unlinkat\(\d+<{DESCRIPTOR}>, "({PART}|executable)", 0\)')
CLEAR_ROOM = (rf'E\w+ unlinkat\(\d+</var/spool/postfix/orvek>, "\.[a-z_]+\.room-\d+", AT_REMOVEDIR\)|'
              rf'E\w+ unlinkat\(\d+<{ROOM}>, "[a-z_]+\.db", 0\)')
EDIT_LINES = (rf"E\w+ (close|fchmod|fchownat|fcntl|read|write)\(\d+<{DELIVERY}(\.tmp)?>.*|E\w+ openat\(.* of {DELIVERY}|"
              rf'E\w+ (openat|renameat)\(\d+<{HOME}>, "\.qmail(\.tmp)?", .*')
LOOK_AT_PANEL = r"E\w+ (openat|read)\(.*/etc/orv/\.orv\.shadow.*|E\w+ (socket|connect)\(.*|E\w+ sendto\(\d+<socket:.*"
CHANGE_ACCOUNTS = r"E\w+ \w+\(.*/var/spool/postfix/orvek.*"
LOOK_AT_ACCOUNTS = rf"E\w+ (fcntl|newfstatat|pread64)\(.*{ACCOUNTS}.*"
LOOK_AT_USERS = r"E\w+ (newfstatat|openat|read)\(.*/etc/(nsswitch\.conf|passwd).*"
LOOK_AT_ATTACHMENTS = (r"E\w+ newfstatat\((AT_FDCWD|\d+)</var/qmail/mailnames/example\.com/(anna|carl)"
                       r'(>, "@attachments"|/@attachments>, "(a\.txt)?").*')

# A success without the whole result. The list of what is missing has handlers last: where it begins
# with handlers, nothing else is missing.
LACKING = "0 without the whole result: "
LACKING_HANDLERS = rf"{LACKING}{HANDLERS}/(before-local|info)/.*; said: .*"
OF_ALIAS_DOMAIN = rf"{MAP}\.db \S*alias\.test: [^,;]*"

CLONES = "add-alias|add-domain-alias|rename-.*"
CHANGES_OF_MAPS = ("(add|remove)-(alias|mailname)|(add|remove|turn-off)-domain|(add|rename)-domain-alias|add-badmailfrom|"
                   "rename-mailname(-password)?|set-(bounce|catchall)")

EMPTIED_ROOM = "A change's room that cannot be removed stays: the map itself is whole, and the next change removes it."
HALF_MADE = ("A handler is a directory of several files and a marker. One that could not be finished or removed "
             "stays, for no step cleans up; once it has a hook, a type and a value it is found and not made again.")
HOOKS_LAST = "Hooks come last. Those that cannot follow are reported and do not change the status."
LINE_IGNORED = "The removal of a delivery line that may not be there is tried and its result ignored."
NO_USER = "An unknown user has root's group. The uploaded key is removed after a success, so the command cannot be repeated."
UNSEEN_ATTACHMENT = "An attachment that cannot be looked at does not count."

# Commands, promise, fault, what was seen, reason. "What was seen" may refer to groups of the fault.
EXCEPTIONS = (
    (CHANGES_OF_MAPS, "left over", CLEAR_ROOM, rf"{ROOM}(/[a-z_]+\.db)?", EMPTIED_ROOM),
    (CHANGES_OF_MAPS, "status", CLEAR_ROOM, rf"{LACKING}{ROOM} is there(; {ROOM}/[a-z_]+\.db is there)?; said: ",
     EMPTIED_ROOM),

    (f"{CLONES}|add-handler|set-autoresponder", "left over", MAKE_DESCRIPTOR, HALF, HALF_MADE),
    ("remove-domain|remove-handler|remove-mailname|rename-.*", "left over", REMOVE_DESCRIPTOR, HALF, HALF_MADE),
    ("add-alias|(add|rename)-domain-alias|add-handler|set-autoresponder", "repeat",
     f"{LOOK_AT_HANDLERS}|{MAKE_DESCRIPTOR}|{HANG_UP}|{DIED_MAKING}",
     rf"{HANDLERS}/before-local/[^;]* is missing(; {HANDLERS}/(before-local|info)/[^;]* is missing)*"
     r"( and \d+ more)?; said \S+/mailvek --.* -> 0\n.*", HALF_MADE),

    (CLONES, "status", f"{LOOK_AT_HANDLERS}|{FIND_PROGRAM}|{MAKE_DESCRIPTOR}|{HANG_UP}|{TAKE_DOWN}",
     rf"{LACKING_HANDLERS}WARNING: unable to (set all|clone all|re-assign some of|properly re-assign) mail handlers .*",
     HOOKS_LAST),
    ("remove-domain|remove-mailname", "status", f"{LOOK_AT_HANDLERS}|{TAKE_DOWN}",
     rf"{LACKING_HANDLERS}(WARNING|ERROR): unable to (properly )?remove (all |some of )?mail handlers? .*", HOOKS_LAST),
    ("turn-off-domain", "status", f"{LOOK_AT_HANDLERS}|{TAKE_DOWN}",
     rf"{LACKING_HANDLERS}(Some errors was occured in mass hook operation|Unable to (open|read) directory {HANDLERS}/info).*",
     HOOKS_LAST),
    ("turn-off-domain", "status", rf'E\w+ rmdir\("(?P<directory>{MARKERS})"\)',
     LACKING + "(?P=directory) is there; said: ",
     "A hook's directory goes when it is empty; one that cannot be removed does not matter."),
    ("remove-handler", "status", LOOK_AT_HANDLERS,
     rf"{LACKING_HANDLERS}Handler spam for recipient anna@example\.com does not exist in queue before-local\n",
     "A handler that cannot be read counts as none, after a report."),

    ("remove-domain", "left over",
     rf"E\w+ (getdents64|newfstatat|openat2|unlinkat)\(\d+<{MOVED_ASIDE}.*|"
     r'E\w+ (newfstatat|openat2|unlinkat)\(\d+</var/qmail/mailnames>, "example\.com\.OrvekSaved\.\d+", .*|'
     r'E\w+ openat\(AT_FDCWD[^"]*"/var/qmail/mailnames", .*',
     r"/var/qmail/mailnames/example\.com\.OrvekSaved\.\*(/.*)?",
     "A domain is moved aside first; what cannot be removed then stays there."),

    ("add-alias|add-mailname|remove-alias|remove-mailname|set-bounce|set-catchall", "status", LOOK_AT_PANEL,
     rf"{LACKING}{OF_ALIAS_DOMAIN}(; {OF_ALIAS_DOMAIN})?; said: .*"
     r"Unable to get domain aliases from database for: example\.com\n",
     "Without the panel's database the addresses of the domain itself are changed and the failure is reported."),
    ("rename-mailname-password", "record", f"{LOOK_AT_PANEL}|{CHANGE_ACCOUNTS}",
     r"/var/spool/postfix/orvek/virtual\.db: anna@alias\.test: anita@example\.com",
     "An address under an alias domain keeps the old name, or gets it back, when its account does; it leads to the "
     "mailbox's new name."),
    ("remove-alias|remove-mailbox|remove-mailname|rename-mailname", "status", LOOK_AT_ACCOUNTS,
     rf"{LACKING}{ACCOUNTS} account [\w@.]+: [^;]* instead of None; said: "
     r"Unable to (execute the domain selection query|prepare SQL statement for query 'SELECT id FROM domains).*",
     "A domain that cannot be looked up among the accounts counts as missing, after a report."),

    ("add-mailbox|add-redirect|remove-mailbox", "left over", EDIT_LINES, rf"{DELIVERY}\.tmp",
     "A line edit that fails leaves its temporary file, and the next one replaces it."),
    ("add-mailbox|add-redirect", "status", EDIT_LINES,
     rf"{LACKING}{DELIVERY}\.tmp is there; said: (file_str: ERROR: )?Unable to \w+ file {DELIVERY}.*", LINE_IGNORED),
    ("remove-mailbox", "status",
     rf'{EDIT_LINES}|E\w+ newfstatat\(\d+<({HOME}>, "\.qmail"|{DELIVERY}(\.tmp)?>, ""), .*|{TAKE_LOCK}',
     rf"{LACKING}{DELIVERY} is [^;]*deliverquota \./Maildir[^;]* instead of [^;]*(; {DELIVERY}\.tmp is there)?; "
     rf"said: .*file {DELIVERY}.*", LINE_IGNORED),
    ("add-mailname", "torn", r'KILL ((fchmod|fcntl)\(\d+<.*/carl/\.qmail>, .*|openat\(\d+<.*/carl>, "\.qmail", .*O_CREAT.*)',
     r"/var/qmail/mailnames/example\.com/carl/\.qmail: b''",
     "The delivery file of a new mailname is written in its place: nobody has mail there yet, and a repeat writes it anew."),

    ("set-domain-key", "status", LOOK_AT_USERS,
     rf"{LACKING}{KEY}; said: Unable to getpwnam for user popuser.*", NO_USER),
    ("set-domain-key", "repeat", LOOK_AT_USERS, rf"{KEY}; said .* -> 1\n(No source file '/tmp/key': .*)+", NO_USER),
    ("set-domain-key", "status", r'E\w+ (newfstatat|unlinkat)\(\d+</tmp>, "key", .*',
     LACKING + "/tmp/key is there; said: ",
     "The key is installed; that the upload cannot be removed is not looked at."),
    ("set-mail-params", "status", r'E\w+ openat\(.*"//etc/courier-imap/(?P<file>(imapd|pop3d)(-ssl)?)".*',
     LACKING + "/etc/courier/(?P=file) is .*; said: Unable to open //etc/courier-imap/(?P=file): .*",
     "A file of Courier's that cannot be read is passed over."),
    ("add-attachment", "torn",
     rf"E\w+ read\(\d+</tmp/upload>, .*|(E\w+|KILL) (fchmod|ftruncate|write)\(\d+<{UPLOADED}>, .*|"
     rf'KILL (close\(\d+<{ATTACHMENTS}>\)|openat\(\d+<{ATTACHMENTS}>, "b\.txt", .*O_CREAT.*)', rf"{UPLOADED}: .*",
     "An attachment is copied to its place; a copy that fails is reported and made anew by a repeat."),
    ("update-spf", "torn",
     r'(E\w+ write\(\d+<|(E\w+|KILL) openat\(AT_FDCWD[^"]*")(?P<file>/etc/orv-spf/spf\w+).*', "(?P=file): b''",
     "A parameter is one value, written in its place and written anew by a repeat."),
    ("add-mailname|set-mailbox-disk-quota", "torn", LOOK_AT_ATTACHMENTS,
     rf"{QUOTA}: b'\d+S,0C\\n[ 0]+\\n'", UNSEEN_ATTACHMENT),
    ("add-mailname|set-mailbox-disk-quota", "status", LOOK_AT_ATTACHMENTS,
     rf"{LACKING}{QUOTA} is [^;]*; said: ", UNSEEN_ATTACHMENT),
)


def reason_for(command, fault, promise, said):
    """The reason why this promise need not hold here, or None."""
    for names, what, call, seen, reason in EXCEPTIONS:
        if re.fullmatch(names, command) and what == promise and re.fullmatch(
                f"(?:{call}) => (?:{seen})", f"{fault.error} {fault.shown} => {said}", re.S):
            return reason
    return None
