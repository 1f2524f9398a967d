#include "mail/lib/quota/maildirpp_quota.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/file_name.h"
#include "lib/conf/autoprepend.h"
#include "lib/files/saved_directory.h"
#include "lib/host/orvek_ugid.h"
#include "lib/names/idn.h"
#include "lib/names/idn_error.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "mail/lib/home/mail_tree.h"
#include "mail/lib/quota/get_dir_size.h"
#include "mail/lib/quota/maildirpp_maildirsize.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char mail_user[] = "popuser";
constexpr char attachments[] = "@attachments";

[[nodiscard]] bool no_entry(char const* home)
{
    return failure(false, "unable to change to mbox folder %s: %s", home, strerror(errno));
}

bool form_home(char (&home)[path_size], char const* MailDomain, char const* MailName)
{
    CString const domain(idn_toascii(MailDomain));
    if (!domain) {
        messlog2(0, 1, "idn_toascii(%s) failed: %s", MailDomain, idn_strerror(idn_errno));
        errno = EINVAL;
        return false;
    }
    if (!form_path(home, "%s/%s/%s", orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX),
                   domain.get(), MailName)) {
        messlog2(0, 1, "domain and/or user name too long to be stored on the filesystem");
        errno = ENAMETOOLONG;
        return false;
    }
    // Names come from the panel's tables too.
    if (is_file_name(domain.get()) && is_file_name(MailName))
        return true;
    errno = EINVAL;
    return no_entry(home);
}

bool enter(char const* home, SavedDirectory* before)
{
    if (!before->save())
        return failure(false, "unable to get current working directory");
    OpenDescriptor const opened = open_mail_directory(home);
    if (opened.get() < 0 || fchdir(opened.get()) != 0)
        return no_entry(home);
    return true;
}

// Deliberate: any kind of file counts, even a link.
bool has_attachments()
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    return look_beneath(AT_FDCWD, attachments, info) == 0;
}

bool deduct_attachments(sizequota_t* quota)
{
    sizequota_t const size = get_dir_size(attachments, 0);
    if (size < 0)
        return failure(false, "unable to count attachments folder size");
    *quota -= size;
    if (*quota < 0) {
        errno = 0;
        messlog2(0, 0, "WARNING: @attachments directory is big enough to disable delivery!");
        *quota = 0;
    }
    return true;
}

sizequota_t stored_quota(sizequota_t quota)
{
    if (quota < 0)
        return 0;
    return quota == 0 ? 1 : quota;
}

} // namespace

int store_maildirpp_quota_raw(char const* maildir, sizequota_t quota)
{
    return write_maildirpp_maildirsize(maildir, orvek_ugid(mail_user, 0), orvek_ugid(mail_user, 1),
                                       stored_quota(quota), 0);
}

int store_mbox_quota(char const* MailDomain, char const* MailName, sizequota_t quota)
{
    char home[path_size];
    SavedDirectory before;
    if (!form_home(home, MailDomain, MailName) || !enter(home, &before))
        return 0;
    // Deliberate: after this failure the process stays in the mailbox.
    if (quota >= 0 && has_attachments() && !deduct_attachments(&quota))
        return 0;
    int const result = store_maildirpp_quota_raw("Maildir", quota);
    before.restore();
    return result;
}
