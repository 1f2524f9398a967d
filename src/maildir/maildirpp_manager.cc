#include "maildir/maildirpp_manager.h"

#include "lib/beneath/entry.h"
#include "lib/conf/autoprepend.h"
#include "lib/files/saved_directory.h"
#include "mail/lib/home/mail_tree.h"
#include "mail/lib/quota/get_dir_size.h"
#include "mail/lib/quota/maildirpp_group_quota.h"
#include "mail/lib/quota/maildirpp_maildirsize.h"
#include "util/errors.h"

#include <boost/system/error_code.hpp>

#include <cerrno>
#include <iostream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using boost::filesystem::path;

namespace orvek::mail {

namespace {

constexpr char attachments[] = "@attachments";

// Raises when a system call or the function library has not done the step.
void check(bool done, char const* step, path const& where)
{
    int const code = errno;
    if (!done)
        throw FSError(step, where, {code, boost::system::system_category()});
}

path domainRoot(std::string const& domain)
{
    return path(orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX)) /
           MaildirManager::getDomainRelativeRoot(domain);
}

// Makes the directory the working directory while this object lives.
class Visit
{
public:
    explicit Visit(path const& directory)
    {
        check(before.save(), "getcwd", directory);
        OpenDescriptor const opened = open_mail_directory(directory.c_str());
        check(opened.get() >= 0 && fchdir(opened.get()) == 0, "chdir", directory);
    }
    ~Visit() { before.restore(); }
    Visit(Visit const&) = delete;
    Visit& operator=(Visit const&) = delete;

private:
    SavedDirectory before;
};

bool hasAttachments()
{
    struct stat info = {};
    return look_beneath(AT_FDCWD, attachments, info) == 0 && S_ISDIR(info.st_mode);
}

// The value for the file, where 0 means no quota.
sizequota_t storedQuota(sizequota_t quota, path const& home)
{
    if (quota < 0)
        return 0;
    sizequota_t const taken = hasAttachments() ? get_dir_size(attachments, 0) : 0;
    check(taken >= 0, "unable to count attachments folder size", home);
    if (taken > quota)
        std::cerr << "WARNING: @attachments directory is big enough to disable delivery!"
                  << std::endl;
    return taken >= quota ? 1 : quota - taken;
}

} // namespace

MaildirPPManager& MaildirPPManager::getInstance()
{
    static MaildirPPManager instance;
    instance.init();
    return instance;
}

void MaildirPPManager::setMailboxQuota(std::string const& mailname, std::string const& domain,
                                       sizequota_t size) const
{
    path const home = getMailnameHome(domain, mailname);
    Visit const visit(home);
    sizequota_t const quota = storedQuota(size, home);
    check(write_maildirpp_maildirsize("Maildir", static_cast<uid_t>(uid), static_cast<gid_t>(gid),
                                      quota, 0) != 0,
          "create maildirsize", home);
}

void MaildirPPManager::removeMailboxQuota(std::string const& mailname,
                                          std::string const& domain) const
{
    path const home = getMailnameHome(domain, mailname);
    check(rm_mbox_quota(domain.c_str(), mailname.c_str()) != 0, "unable to remove quota", home);
}

void MaildirPPManager::setDomainQuota(std::string const& domain, sizequota_t size) const
{
    path const root = domainRoot(domain);
    check(store_domain_quota(domain.c_str(), size) != 0, "unable to store domain quota", root);
}

void MaildirPPManager::removeDomainQuota(std::string const& domain) const
{
    path const root = domainRoot(domain);
    check(rm_domain_quota(domain.c_str()) != 0, "unable to remove domain quota", root);
}

void MaildirPPManager::setDefaultMailboxQuota(std::string const& domain, sizequota_t size) const
{
    path const root = domainRoot(domain);
    check(store_default_mbox_quota(domain.c_str(), size) != 0, "unable to store default mbox quota",
          root);
}

void MaildirPPManager::removeDefaultMailboxQuota(std::string const& domain) const
{
    path const root = domainRoot(domain);
    check(rm_default_mbox_quota(domain.c_str()) != 0, "unable to remove default mbox quota", root);
}

} // namespace orvek::mail
