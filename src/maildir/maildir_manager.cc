#include "maildir/maildir_manager.h"

#include "lib/beneath/file_name.h"
#include "lib/conf/autoprepend.h"
#include "lib/files/umask_guard.h"
#include "lib/report/owned.h"
#include "maildir/maildirpp_manager.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <system_error>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvek::mail {

namespace {

using boost::filesystem::path;

constexpr mode_t private_mask = 077;
constexpr mode_t root_mode = 0750;
constexpr mode_t home_mode = 0700;

constexpr char const* home_directories[] = {
    "Maildir",           "Maildir/tmp",       "Maildir/new",       "Maildir/cur",  "Maildir/.Spam",
    "Maildir/.Spam/tmp", "Maildir/.Spam/new", "Maildir/.Spam/cur", "@attachments",
};
static_assert(std::size(home_directories) == 9);

boost::system::error_code systemError(int code)
{
    return {code, boost::system::system_category()};
}

// Root renames and removes the paths that are made here, and an empty domain would be the root
// of all domains.
path directoryName(std::string const& name)
{
    if (!is_file_name(name.c_str()))
        throw FSError("not a name of a mail directory", name, systemError(EINVAL));
    return name;
}

path mailRoot()
{
    return orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX);
}

path domainRoot(std::string const& domain)
{
    return mailRoot() / MaildirManager::getDomainRelativeRoot(domain);
}

// The standard library opens each directory beneath its parent and follows no link. Boost's
// function walks whole paths, in which the mail user could swap a directory for a link.
void removeTree(path const& tree)
{
    std::error_code error;
    std::filesystem::remove_all(tree.native(), error);
    // A file in the way means that there is no tree.
    if (error && error != std::errc::not_a_directory)
        throw boost::filesystem::filesystem_error("boost::filesystem::remove_all", tree,
                                                  systemError(error.value()));
}

void backup(path const& directory)
{
    path target;
    if (!backupRename(directory, target))
        throw FSError("rename", directory, target, systemError(errno));
}

} // namespace

bool backupRename(path const& source, path& target)
{
    struct stat info = {};
    if (retryOnSignal([&] { return stat(source.c_str(), &info); }) != 0) {
        bool const missing = errno == ENOENT || errno == ENOTDIR;
        if (missing)
            target.clear();
        return missing;
    }
    target = source.native() + ".OrvekSaved." + std::to_string(info.st_ino);
    boost::filesystem::rename(source, target);
    return true;
}

MaildirManager& MaildirManager::getInstance()
{
    return MaildirPPManager::getInstance();
}

MaildirManager::MaildirManager()
{
    init();
}

void MaildirManager::init()
{
    errno = 0;
    passwd const* const user = getpwnam("popuser");
    // Deliberate: the words have no blank between them.
    if (!user)
        throw SystemError("user popusernot found", errno);
    uid = static_cast<int>(user->pw_uid);
    gid = static_cast<int>(user->pw_gid);
}

path MaildirManager::getDomainRelativeRoot(std::string const& domain)
{
    return directoryName(domain);
}

path MaildirManager::getMailnameRelativeHome(std::string const& domain, std::string const& mailname)
{
    return getDomainRelativeRoot(domain) / directoryName(mailname);
}

path MaildirManager::getMailnameHome(std::string const& domain, std::string const& mailname)
{
    return mailRoot() / getMailnameRelativeHome(domain, mailname);
}

void MaildirManager::setRights(path const& directory, mode_t mode) const
{
    auto const giveAway = [&] {
        return chown(directory.c_str(), static_cast<uid_t>(uid), static_cast<gid_t>(gid));
    };
    if (retryOnSignal(giveAway) != 0)
        throw FSError("chown", directory, systemError(errno));
    if (retryOnSignal([&] { return chmod(directory.c_str(), mode); }) != 0)
        throw FSError("chmod", directory, systemError(errno));
}

void MaildirManager::createDomainRoot(std::string const& domain) const
{
    path const root = domainRoot(domain);
    UmaskGuard const guard(private_mask);
    boost::filesystem::create_directories(root);
    setRights(root, root_mode);
}

void MaildirManager::fillHome(path const& home) const
{
    for (char const* const name : home_directories) {
        path const directory = home / name;
        boost::filesystem::create_directory(directory);
        setRights(directory, home_mode);
    }
}

void MaildirManager::createMailnameHome(std::string const& domain,
                                        std::string const& mailname) const
{
    path const home = getMailnameHome(domain, mailname);
    UmaskGuard const guard(private_mask);
    boost::filesystem::create_directories(home);
    setRights(home, home_mode);
    try {
        fillHome(home);
    } catch (...) {
        // Deliberate: an old home goes too. Half a home never stays.
        ErrnoKeeper const keeper;
        std::error_code ignored;
        std::filesystem::remove_all(home.native(), ignored);
        throw;
    }
}

void MaildirManager::renameDomainRoot(std::string const& oldDomain,
                                      std::string const& newDomain) const
{
    boost::filesystem::rename(domainRoot(oldDomain), domainRoot(newDomain));
}

void MaildirManager::renameMailnameHome(std::string const& domain, std::string const& oldMailname,
                                        std::string const& newMailname) const
{
    boost::filesystem::rename(getMailnameHome(domain, oldMailname),
                              getMailnameHome(domain, newMailname));
}

void MaildirManager::backupDomainRoot(std::string const& domain) const
{
    backup(domainRoot(domain));
}

void MaildirManager::backupMailnameHome(std::string const& domain,
                                        std::string const& mailname) const
{
    backup(getMailnameHome(domain, mailname));
}

void MaildirManager::removeDomainRoot(std::string const& domain) const
{
    path const root = domainRoot(domain);
    path target;
    if (!backupRename(root, target))
        target = root;
    if (!target.empty())
        removeTree(target);
}

void MaildirManager::removeMailnameHome(std::string const& domain,
                                        std::string const& mailname) const
{
    removeTree(getMailnameHome(domain, mailname));
}

} // namespace orvek::mail
