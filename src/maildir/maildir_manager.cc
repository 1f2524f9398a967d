#include "maildir/maildir_manager.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/file_name.h"
#include "lib/beneath/made_directory.h"
#include "lib/beneath/place.h"
#include "lib/beneath/tree.h"
#include "lib/conf/autoprepend.h"
#include "mail/lib/home/mail_tree.h"
#include "maildir/maildirpp_manager.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <boost/system/error_code.hpp>

#include <cerrno>
#include <iterator>
#include <optional>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>

namespace orvek::mail {

namespace {

using boost::filesystem::path;

constexpr mode_t root_mode = 0750;
constexpr mode_t home_mode = 0700;
// Attempts at a name that nobody can foresee.
constexpr int most_names = 100;

constexpr char const* home_directories[] = {
    "Maildir",           "Maildir/tmp",       "Maildir/new",       "Maildir/cur",  "Maildir/.Spam",
    "Maildir/.Spam/tmp", "Maildir/.Spam/new", "Maildir/.Spam/cur", "@attachments",
};
static_assert(std::size(home_directories) == 9);

boost::system::error_code systemError(int code)
{
    return {code, boost::system::system_category()};
}

// Raises for anything but a plain name. Root renames and removes the paths built from it, and an
// empty name would be the root of all domains.
path directoryName(std::string const& name)
{
    if (!is_file_name(name.c_str()))
        throw FSError("not a name of a mail directory", name, systemError(EINVAL));
    return name;
}

// Keeps errno, since reports of a failure form their paths with it.
path mailRoot()
{
    ErrnoKeeper const keeper;
    return orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX);
}

path domainRoot(std::string const& domain)
{
    return mailRoot() / MaildirManager::getDomainRelativeRoot(domain);
}

[[noreturn]] void raiseOfLibrary(std::string const& step, path const& directory)
{
    throw LibraryError("boost::filesystem::" + step, directory, systemError(errno));
}

// Raises when the directory could not be made or opened. Another kind of file in its place gives
// EEXIST, as mkdir does; a link gives ELOOP.
int opened(OpenDescriptor const& directory, char const* step, path const& where)
{
    if (directory.get() >= 0)
        return directory.get();
    if (errno == ENOTDIR)
        errno = EEXIST;
    raiseOfLibrary(step, where);
}

// A new directory is root's alone until it gets its rights.
OpenDescriptor makeDirectory(int above, char const* name, Making& making)
{
    making = Making::there;
    return make_directory_beneath(above, name, mode_only(home_mode), &making);
}

// To the library a "/" at the end of a path is a last component ".".
path withoutLastDots(path directory)
{
    while (directory.filename() == "." && directory.has_parent_path())
        directory = directory.parent_path();
    return directory;
}

// Opens a directory of the configuration. Makes it and its parents when it is missing.
OpenDescriptor openOrMake(path const& configured)
{
    path const directory = withoutLastDots(configured);
    OpenDescriptor found = open_root(directory.c_str());
    if (found.get() >= 0 || errno != ENOENT || !directory.has_parent_path())
        return OpenDescriptor(found.release());
    OpenDescriptor const above = openOrMake(directory.parent_path());
    if (above.get() < 0)
        return OpenDescriptor(-1);
    Making making = Making::there;
    return makeDirectory(above.get(), directory.filename().c_str(), making);
}

// Opens the mail root for a rename. Raises when it is missing.
OpenDescriptor openRootFor(path const& from, path const& to)
{
    OpenDescriptor root = open_mail_root();
    if (root.get() < 0)
        throw LibraryError("boost::filesystem::rename", from, to, systemError(errno));
    return OpenDescriptor(root.release());
}

void renameDirectory(path const& from, path const& to)
{
    OpenDescriptor const root = openRootFor(mailRoot() / from, mailRoot() / to);
    if (rename_beneath(root.get(), from.c_str(), root.get(), to.c_str()) != 0)
        throw LibraryError("boost::filesystem::rename", mailRoot() / from, mailRoot() / to,
                           systemError(errno));
}

bool isThere(path const& beneath)
{
    OpenDescriptor const root = open_mail_root();
    struct stat info = {};
    if (root.get() >= 0 && look_beneath(root.get(), beneath.c_str(), info) == 0)
        return true;
    if (errno != ENOENT && errno != ENOTDIR)
        raiseOfLibrary("rename", beneath);
    return false;
}

// What somebody else has put at the name of a backup, which he can foresee.
bool isTaken(int code)
{
    return code == ENOTEMPTY || code == EEXIST || code == ENOTDIR;
}

// Renames beneath dir and returns what was added to the target for that: nothing, or what nobody
// can foresee when the target is taken. A failure is that of the target itself.
std::optional<std::string> renameAside(int dir, std::string const& from, std::string const& to)
{
    if (rename_beneath(dir, from.c_str(), dir, to.c_str()) == 0)
        return std::string();
    int const code = errno;
    for (int i = 0; isTaken(code) && i < most_names; ++i) {
        std::string const added = "." + unforeseeable_characters();
        if (rename_new_beneath(dir, from.c_str(), dir, (to + added).c_str()) == 0)
            return added;
    }
    errno = code;
    return {};
}

// As backupRename, for a source beneath dir. beneath is its path from dir.
bool backupBeneath(int dir, path const& beneath, path const& source, path& target)
{
    struct stat info = {};
    auto const look = [&] { return look_beneath(dir, beneath.c_str(), info); };
    if (dir < 0 || retryOnSignal(look) != 0) {
        bool const missing = errno == ENOENT || errno == ENOTDIR;
        if (missing)
            target.clear();
        return missing;
    }
    std::string const suffix = ".OrvekSaved." + std::to_string(info.st_ino);
    target = source.native() + suffix;
    auto const added = renameAside(dir, beneath.native(), beneath.native() + suffix);
    if (!added)
        throw LibraryError("boost::filesystem::rename", source, target, systemError(errno));
    target += *added;
    return true;
}

bool backupInRoot(path const& beneath, path& target)
{
    OpenDescriptor const root = open_mail_root();
    return backupBeneath(root.get(), beneath, mailRoot() / beneath, target);
}

void backup(path const& beneath)
{
    path target;
    if (!backupInRoot(beneath, target))
        throw FSError("rename", mailRoot() / beneath, target, systemError(errno));
}

// Succeeds also for a missing tree, and where a file stands in the path to it.
void removeTree(path const& beneath)
{
    OpenDescriptor const root = open_mail_root();
    bool const removed =
        root.get() >= 0 && remove_tree_beneath(root.get(), beneath.c_str(), TreeTop::with) == 0;
    if (!removed && errno != ENOENT && errno != ENOTDIR)
        raiseOfLibrary("remove_all", mailRoot() / beneath);
}

} // namespace

bool backupRename(path const& source, path& target)
{
    char const* name = nullptr;
    OpenDescriptor const directory = open_parent(source.c_str(), name);
    return backupBeneath(directory.get(), name, source, target);
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

void MaildirManager::setRights(int directory, path const& where, mode_t mode) const
{
    Rights const owner = {static_cast<uid_t>(uid), static_cast<gid_t>(gid), same_mode};
    if (retryOnSignal([&] { return set_rights(directory, owner); }) != 0)
        throw FSError("chown", where, systemError(errno));
    if (retryOnSignal([&] { return set_rights(directory, mode_only(mode)); }) != 0)
        throw FSError("chmod", where, systemError(errno));
}

void MaildirManager::createDomainRoot(std::string const& domain) const
{
    path const where = domainRoot(domain);
    OpenDescriptor const root = openOrMake(mailRoot());
    opened(root, "create_directories", where);
    Making making = Making::there;
    OpenDescriptor const directory = makeDirectory(root.get(), domain.c_str(), making);
    setRights(opened(directory, "create_directories", where), where, root_mode);
}

// The directories that one call has made beneath dir. Unless they are kept, the destructor removes
// the empty ones, the last one first. A directory that others have filled stays.
class MaildirManager::MadeDirectories
{
public:
    explicit MadeDirectories(int dir) : dir(dir) {}
    ~MadeDirectories()
    {
        ErrnoKeeper const keeper;
        for (auto name = names.rbegin(); name != names.rend(); ++name)
            static_cast<void>(remove_directory_beneath(dir, name->c_str()));
    }
    MadeDirectories(MadeDirectories const&) = delete;
    MadeDirectories& operator=(MadeDirectories const&) = delete;

    OpenDescriptor make(char const* name)
    {
        Making making = Making::there;
        OpenDescriptor directory = makeDirectory(dir, name, making);
        note(name, making);
        return OpenDescriptor(directory.release());
    }
    void note(char const* name, Making making)
    {
        if (making == Making::anew)
            names.emplace_back(name);
    }
    void keep() { names.clear(); }

private:
    int const dir;
    std::vector<std::string> names;
};

void MaildirManager::fillHome(MadeDirectories& made, path const& home) const
{
    for (char const* const name : home_directories) {
        path const where = home / name;
        OpenDescriptor const directory = made.make(name);
        setRights(opened(directory, "create_directory", where), where, home_mode);
    }
}

void MaildirManager::createMailnameHome(std::string const& domain,
                                        std::string const& mailname) const
{
    path const home = getMailnameHome(domain, mailname);
    OpenDescriptor const root = openOrMake(mailRoot());
    opened(root, "create_directories", home);
    Making making = Making::there;
    OpenDescriptor const above = makeDirectory(root.get(), domain.c_str(), making);
    opened(above, "create_directories", home);
    OpenDescriptor const directory = makeDirectory(above.get(), mailname.c_str(), making);
    setRights(opened(directory, "create_directories", home), home, home_mode);

    MadeDirectories itself(above.get());
    itself.note(mailname.c_str(), making);
    MadeDirectories inside(directory.get());
    fillHome(inside, home);
    inside.keep();
    itself.keep();
}

bool MaildirManager::hasDomainRoot(std::string const& domain) const
{
    return isThere(getDomainRelativeRoot(domain));
}

bool MaildirManager::hasMailnameHome(std::string const& domain, std::string const& mailname) const
{
    return isThere(getMailnameRelativeHome(domain, mailname));
}

void MaildirManager::renameDomainRoot(std::string const& oldDomain,
                                      std::string const& newDomain) const
{
    renameDirectory(getDomainRelativeRoot(oldDomain), getDomainRelativeRoot(newDomain));
}

void MaildirManager::renameMailnameHome(std::string const& domain, std::string const& oldMailname,
                                        std::string const& newMailname) const
{
    renameDirectory(getMailnameRelativeHome(domain, oldMailname),
                    getMailnameRelativeHome(domain, newMailname));
}

void MaildirManager::backupDomainRoot(std::string const& domain) const
{
    backup(getDomainRelativeRoot(domain));
}

void MaildirManager::backupMailnameHome(std::string const& domain,
                                        std::string const& mailname) const
{
    backup(getMailnameRelativeHome(domain, mailname));
}

void MaildirManager::removeDomainRoot(std::string const& domain) const
{
    path const root = getDomainRelativeRoot(domain);
    path target;
    if (!backupInRoot(root, target))
        target = root;
    if (!target.empty())
        removeTree(target.filename());
}

void MaildirManager::removeMailnameHome(std::string const& domain,
                                        std::string const& mailname) const
{
    removeTree(getMailnameRelativeHome(domain, mailname));
}

} // namespace orvek::mail
