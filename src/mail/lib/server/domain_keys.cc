#include "mail/lib/server/domain_keys.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/file_name.h"
#include "lib/beneath/given_path.h"
#include "lib/beneath/opened_file.h"
#include "lib/files/copy_file.h"
#include "lib/files/libdir.h"
#include "lib/files/libtree.h"
#include "lib/files/umask_guard.h"
#include "lib/host/orvek_ugid.h"
#include "lib/host/starter.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/text/string.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char keys_directory[] = "/etc/domainkeys";
constexpr char key_name[] = "default";
constexpr char key_reader[] = "popuser";
constexpr mode_t directory_mode = 0755;
constexpr mode_t key_mode = 0440;
constexpr off_t most_of_a_key = 1 << 20;

// Null, reported, when out of memory.
CString in_lower_case(char const* domain)
{
    CString lower(strtolower_dynamic(domain));
    if (!lower)
        messlog2(0, 0, "cannot convert %s to lower case", domain);
    return lower;
}

// Returns 0, or -1 reported. domain is in lower case.
int form_directory(char (&path)[path_size], char const* domain)
{
    if (!form_path(path, "%s/%s", keys_directory, domain))
        return failure(-1, "Domain name '%s' is too long to be stored in %s", domain,
                       keys_directory);
    // "." and ".." are the store itself and its parent: a removal would delete all keys and more.
    if (!is_file_name(domain))
        return failure(-1, "Domain name '%s' cannot be stored in %s", domain, keys_directory);
    return 0;
}

int form_key_path(char (&path)[path_size], char const* domain)
{
    if (!form_path(path, "%s/%s/%s", keys_directory, domain, key_name))
        return failure(-1, "File name '%s' is too long to be stored in %s/%s", key_name,
                       keys_directory, domain);
    return 0;
}

// Calls action, which returns 0 or -1, with each domain and its directory.
template<class Action>
int for_each_domain(char const* DomainNameListAmixed, Action action)
{
    StringArray const domains(string_split(DomainNameListAmixed, ","));
    if (!domains)
        return failure(-1, "cannot split domains list '%s'\n", DomainNameListAmixed);
    int result = 0;
    for (char const* const* domain = domains.get(); *domain; ++domain) {
        // The directory of an empty name would be the store itself.
        if (**domain == '\0')
            continue;
        CString const lower = in_lower_case(*domain);
        char directory[path_size];
        if (!lower || form_directory(directory, lower.get()) != 0 ||
            action(lower.get(), directory) != 0)
            result = -1;
    }
    return result;
}

void make_key_directory(char const* directory)
{
    UmaskGuard const everybody_may_look(022);
    make_dir_p(directory, 0, 0, directory_mode);
}

// The source of a key, held by the descriptors of the file and of its directory.
class KeySource
{
public:
    explicit KeySource(char const* file)
        : file(file), place(file, starters_uid()),
          taken(place.found() ? take_file_beneath(place.dir(), place.name(), most_of_a_key)
                              : OpenDescriptor(-1))
    {
    }

    // False with errno set when the file cannot be used.
    [[nodiscard]] bool is_callers()
    {
        return taken.get() >= 0 && fstat(taken.get(), &info) == 0 && place.gives(info);
    }

    void copy_to(char const* key, gid_t group) const
    {
        copy_taken_file_atomic(taken.get(), file, key, 0, group, key_mode);
    }

    void remove() const
    {
        ErrnoKeeper const keeper;
        struct stat found = {};
        if (look_beneath(place.dir(), place.name(), found) == 0 && found.st_dev == info.st_dev &&
            found.st_ino == info.st_ino)
            static_cast<void>(remove_file_beneath(place.dir(), place.name()));
    }

private:
    char const* const file;
    GivenPlace const place;
    OpenDescriptor const taken;
    struct stat info = {};
};

// Calls copy with the path of each new key and its group.
template<class Copy>
int install_key(char const* DomainNameListAmixed, Copy copy)
{
    gid_t const group = orvek_ugid(key_reader, 1);
    return for_each_domain(DomainNameListAmixed, [&](char const* domain, char const* directory) {
        make_key_directory(directory);
        char path[path_size];
        if (form_key_path(path, domain) != 0)
            return -1;
        copy(path, group);
        return 0;
    });
}

int install_from(KeySource& source, char const* DomainNameListAmixed, char const* FileName)
{
    if (!source.is_callers()) {
        messlog2(0, 1, "No source file '%s': %s", FileName, strerror(errno));
        return -1;
    }
    return install_key(DomainNameListAmixed,
                       [&](char const* key, gid_t group) { source.copy_to(key, group); });
}

} // namespace

char* get_domainkeys_file(char const* Domain)
{
    if (!Domain)
        return nullptr;
    CString const lower = in_lower_case(Domain);
    char path[path_size];
    if (!lower || form_key_path(path, lower.get()) != 0)
        return nullptr;
    return strdup(path);
}

int domainkeys_enabled(char const* Object)
{
    CString const path(get_domainkeys_file(Object));
    if (!path)
        return 0;
    ErrnoKeeper const keeper;
    struct stat info = {};
    return stat(path.get(), &info) == 0 && S_ISREG(info.st_mode) ? 1 : 0;
}

int set_domain_key(char const* DomainNameListAmixed, char const* FileName)
{
    KeySource source(FileName);
    return install_from(source, DomainNameListAmixed, FileName);
}

int take_over_domain_key(char const* DomainNameListAmixed, char const* FileName)
{
    KeySource source(FileName);
    int const result = install_from(source, DomainNameListAmixed, FileName);
    if (result == 0)
        source.remove();
    return result;
}

int clone_domain_key(char const* Source, char const* Destination)
{
    if (!domainkeys_enabled(Source))
        return 0;
    CString const named(get_domainkeys_file(Source));
    // Only root writes in the store, so a link there is the administrator's.
    CString const file(named ? realpath(named.get(), nullptr) : nullptr);
    if (!file) {
        messlog2(0, 1, "Cannot get domainkeys key file for %s", Source);
        return -1;
    }
    return install_key(Destination, [&](char const* key, gid_t group) {
        copy_file_atomic(file.get(), key, 0, group, key_mode);
    });
}

int remove_domain_key(char const* DomainNameListAmixed)
{
    return for_each_domain(DomainNameListAmixed, [](char const*, char const* directory) {
        rm_tree(directory, 1);
        return 0;
    });
}
