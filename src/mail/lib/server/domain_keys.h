// domain_keys - the private keys with which the mail of a domain is signed
//
// A domain's key is the file /etc/domainkeys/<domain>/default, the domain in lower case, of
// owner root and group "popuser" with mode 0440; its directory belongs to root, with mode 0755.
// The mail filter that signs reads it there. A domain has keys enabled if and only if that is a
// regular file.
//
// Where a list is taken, it is one of domains parted by commas. A doubled or trailing comma
// names nothing. A domain that cannot be stored is reported, gives -1 and does not hold the
// others up.
//
// Result: 0 or -1 unless stated. Failures are reported through messlog2. What fails in making
// a directory, in the copy of a key or in the removal of a directory ends the process with
// status 1: see make_dir_p, copy_file_atomic and rm_tree.

#ifndef MAILVEK_MAIL_LIB_SERVER_DOMAIN_KEYS_H
#define MAILVEK_MAIL_LIB_SERVER_DOMAIN_KEYS_H

// The path of the domain's key, which the caller frees, whether or not there is one; null for
// a null Domain, and after a failure.
[[nodiscard]] char* get_domainkeys_file(char const* Domain);

// 1 or 0. A symbolic link counts as what it leads to. errno is kept unless the path cannot be
// formed.
int domainkeys_enabled(char const* Object);

// Installs FileName as the key of each domain of the list.
int set_domain_key(char const* DomainNameListAmixed, char const* FileName);

// Gives the key of one domain to another, or to a list. Without a key nothing is done.
int clone_domain_key(char const* Source, char const* Destination);

// Removes the whole key directory of each domain of the list. A missing one is no failure.
int remove_domain_key(char const* DomainNameListAmixed);

#endif
