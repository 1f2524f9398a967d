// domain_keys - the private keys that sign the mail of a domain
//
// The key of a domain is the file /etc/domainkeys/<domain>/default, with the domain in lower case.
// It belongs to root and group "popuser" and has mode 0440; its directory is root's, with mode
// 0755. The mail filter that signs reads it. A domain has keys enabled if and only if that path is
// a regular file.
//
// Commas separate the domains of a list. A doubled or trailing comma names no domain. A domain that
// cannot be stored is reported and makes the result -1; the other domains are still done.
//
// Result: 0 or -1 unless stated. Failures are reported through messlog2. A failure to make a
// directory, to copy a key or to remove a directory ends the process with status 1: see make_dir_p,
// copy_file_atomic and rm_tree.
//
// No command calls these; they are for callers to come: set_domain_key.

#ifndef MAILVEK_MAIL_LIB_SERVER_DOMAIN_KEYS_H
#define MAILVEK_MAIL_LIB_SERVER_DOMAIN_KEYS_H

// The path of the domain's key, even if the file does not exist. The caller frees it. Null for a
// null Domain and after a failure.
[[nodiscard]] char* get_domainkeys_file(char const* Domain);

// 1 or 0. A symbolic link is followed. errno is kept unless the path cannot be formed.
int domainkeys_enabled(char const* Object);

// Installs FileName as the key of each domain of the list. The file must be regular, not a link,
// with one name and at most 1 MiB, and must belong to the caller unless the caller is root.
// Otherwise it counts as missing.
int set_domain_key(char const* DomainNameListAmixed, char const* FileName);

// The same, and removes FileName when the result is 0, so that only the installed copies remain. No
// other file is removed, even if the path leads to another one by now. A failure to remove it is
// ignored.
int take_over_domain_key(char const* DomainNameListAmixed, char const* FileName);

// Copies the key of one domain to another, or to a list. Does nothing when there is no key.
int clone_domain_key(char const* Source, char const* Destination);

// Removes the key directory of each domain of the list. A missing directory is a success.
int remove_domain_key(char const* DomainNameListAmixed);

#endif
