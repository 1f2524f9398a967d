#include "mail/lib/home/attachments.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/file_name.h"
#include "lib/beneath/listing.h"
#include "lib/conf/autoprepend.h"
#include "lib/names/idn.h"
#include "lib/names/idn_error.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/owned.h"
#include "lib/report/visible.h"
#include "mail/lib/home/attachment_copy.h"
#include "mail/lib/home/mail_tree.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <sys/stat.h>

namespace {

constexpr long long block_size = 512;
// Nobody has more attachments or mailnames. The limit ends the list if somebody keeps making them.
constexpr std::size_t most_entries = 1'000'000;

// Ends the process when the domain cannot be converted.
CString ascii_domain(char const* DomainName)
{
    CString domain(idn_toascii(DomainName));
    if (!domain)
        fatal("idn_toascii() failed: %s", idn_strerror(idn_errno));
    return domain;
}

// Deliberate: this and the next two functions cut a path that does not fit.
void form_store(char (&path)[path_size], char const* domain, char const* MailName)
{
    static_cast<void>(form_path(path, "%s/%s/%s/@attachments",
                                orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX), domain,
                                MailName));
}

void form_entry(char (&path)[path_size], char const* directory, char const* name)
{
    static_cast<void>(form_path(path, "%s/%s", directory, name));
}

void form_attachment(char (&path)[path_size], char const* MailName, char const* DomainName,
                     char const* AttachmentFileName)
{
    CString const domain = ascii_domain(DomainName);
    static_cast<void>(form_path(path, "%s/%s/%s/@attachments/%s",
                                orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX), domain.get(),
                                MailName, AttachmentFileName));
}

// Checks a name from outside: root writes and removes the file of that name.
bool is_name(char const* name)
{
    if (is_file_name(name))
        return true;
    errno = EINVAL;
    return false;
}

OpenDir open_stream(char const* directory)
{
    OpenDescriptor opened = open_mail_directory(directory);
    OpenDir stream(opened.get() < 0 ? nullptr : fdopendir(opened.get()));
    if (stream)
        static_cast<void>(opened.release());
    return stream;
}

// Calls visit with each entry's name and the directory's descriptor, until visit returns other
// than 0.
template<typename Visit>
int visit_entries(char const* directory, OpenDir dir, Visit visit)
{
    if (!dir)
        return failure(-1, "Unable to open dir %s: %s\n", directory, strerror(errno));
    ListedEntry entry = {};
    int more = 0;
    for (std::size_t count = 0; (more = next_listed(dir, entry)) > 0; ++count) {
        if (count == most_entries) {
            errno = EFBIG;
            more = -1;
            break;
        }
        if (visit(dirfd(dir.get()), entry) != 0)
            return -1;
    }
    if (more < 0)
        return failure(-1, "Unable to read dir %s: %s\n", directory, strerror(errno));
    if (closedir(dir.release()) != 0)
        return failure(-1, "Unable to close dir: %s\n", strerror(errno));
    return 0;
}

// Lists a link itself. The mail user made it, and may not learn about the file that it leads to.
int list_entry(int dir, char const* store, char const* name, bool in_blocks, bool fullname)
{
    char path[path_size];
    form_entry(path, store, name);
    struct stat info = {};
    if (look_beneath(dir, name, info) != 0)
        return failure(-1, "stat %s failed: %s", path, strerror(errno));
    if (S_ISDIR(info.st_mode))
        return 0;
    long long const size = in_blocks ? info.st_blocks * block_size : info.st_size;
    printf("%s\t%lld\n", visible_field(fullname ? path : name).c_str(), size);
    return 0;
}

int remove_from_store(char const* path)
{
    char const* name = nullptr;
    OpenDescriptor const store = open_directory_of(path, &name);
    return store.get() < 0 ? -1 : remove_file_beneath(store.get(), name);
}

} // namespace

int list_attachments(char const* MailName, char const* DomainName, short in_blocks, short fullname)
{
    CString const domain = ascii_domain(DomainName);
    if (!MailName || *MailName == '\0')
        fatal("MailName empty for domain '%s'", DomainName);
    char store[path_size];
    form_store(store, domain.get(), MailName);
    return visit_entries(store, is_name(MailName) ? open_stream(store) : nullptr,
                         [&](int dir, ListedEntry const& entry) {
                             return list_entry(dir, store, entry.name, in_blocks != 0,
                                               fullname != 0);
                         });
}

int list_all_attachments(char const* DomainName, short in_blocks, short fullname)
{
    CString const domain = ascii_domain(DomainName);
    char root[path_size];
    form_entry(root, orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX), domain.get());
    return visit_entries(root, open_stream(root), [&](int, ListedEntry const& entry) {
        // A failure in one mailname does not stop the others.
        if (S_ISDIR(entry.kind))
            static_cast<void>(list_attachments(entry.name, DomainName, in_blocks, fullname));
        return 0;
    });
}

int add_attachment(char const* MailName, char const* DomainName, char const* FileName,
                   char const* AttachmentFileName)
{
    char path[path_size];
    form_attachment(path, MailName, DomainName, AttachmentFileName);
    int const result =
        is_name(MailName) && is_name(AttachmentFileName) ? copy_attachment(FileName, path) : 1;
    if (result != 0) {
        static_cast<void>(
            failure(-1, "Unable to copy the attachment file %s to %s\n", FileName, path));
        return -result;
    }
    return 0;
}

int remove_attachment(char const* MailName, char const* DomainName, char const* AttachmentFileName)
{
    char path[path_size];
    form_attachment(path, MailName, DomainName, AttachmentFileName);
    if (is_name(MailName) && is_name(AttachmentFileName) && remove_from_store(path) == 0)
        return 0;
    if (errno == ENOENT)
        return 0;
    return failure(-1, "Unable to delete the attachment file %s: %s\n", path, strerror(errno));
}
