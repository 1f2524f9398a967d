// maildir_manager - the directories of domains and mailboxes
//
//   <root>/<domain>              the root of a domain, mode 0750
//   <root>/<domain>/<mailname>   the home of a mailname, mode 0700; holds its Maildir with the
//                                folder .Spam, and @attachments
//
// <root> is ORVEK_MAILNAMES_D of the product configuration. Everything belongs to the user
// popuser and that user's primary group. Modes ignore the umask.
//
// The tree belongs to others, so no link in it is followed (lib/beneath/place.h). A link in the
// place of a domain or home gives ELOOP; renaming, backing up and removing act on the link itself.
//
// Failures are raised. FSError: setting owner or mode, a directory whose stat fails, and a domain
// or mailname that is not a directory's name ("" or "..", for example), which is refused before
// anything is touched. The file system library's own error: making, renaming and removing.
//
// No command calls these, they are for callers to come: MaildirManager::renameDomainRoot,
// backupRename.

#ifndef MAILVEK_MAILDIR_MAILDIR_MANAGER_H
#define MAILVEK_MAILDIR_MAILDIR_MANAGER_H

#include <boost/filesystem/path.hpp>

#include <string>

#include <sys/types.h>

namespace orvek::mail {

class MaildirManager
{
public:
    // The only instance; MaildirPPManager's is the same. Each call looks popuser up and raises
    // SystemError when there is no such user.
    static MaildirManager& getInstance();

    MaildirManager(MaildirManager const&) = delete;
    MaildirManager& operator=(MaildirManager const&) = delete;

    // <domain> and <domain>/<mailname>
    static boost::filesystem::path getDomainRelativeRoot(std::string const& domain);
    static boost::filesystem::path getMailnameRelativeHome(std::string const& domain,
                                                           std::string const& mailname);
    static boost::filesystem::path getMailnameHome(std::string const& domain,
                                                   std::string const& mailname);

    // An existing directory gets its owner and mode again.
    void createDomainRoot(std::string const& domain) const;
    // When a directory in the home cannot be made, the directories that this call has made are
    // removed again; a home that was there before stays, with everything in it.
    void createMailnameHome(std::string const& domain, std::string const& mailname) const;

    // Whether there is anything of that name. Failures to look are raised as those of renaming.
    bool hasDomainRoot(std::string const& domain) const;
    bool hasMailnameHome(std::string const& domain, std::string const& mailname) const;

    // Nothing is merged: a target that is not empty is an error.
    void renameDomainRoot(std::string const& oldDomain, std::string const& newDomain) const;
    void renameMailnameHome(std::string const& domain, std::string const& oldMailname,
                            std::string const& newMailname) const;

    // By backupRename. A missing directory is not a failure.
    void backupDomainRoot(std::string const& domain) const;
    void backupMailnameHome(std::string const& domain, std::string const& mailname) const;

    // removeDomainRoot renames the root aside, as a backup does, and removes it there; when that
    // fails, the rest keeps the new name. A missing directory is not a failure.
    void removeDomainRoot(std::string const& domain) const;
    void removeMailnameHome(std::string const& domain, std::string const& mailname) const;

protected:
    MaildirManager();
    ~MaildirManager() = default;

    // Looks popuser up. Raises SystemError when there is no such user.
    void init();

    // The ids of popuser.
    int uid = 0;
    int gid = 0;

private:
    class MadeDirectories;

    void setRights(int directory, boost::filesystem::path const& where, mode_t mode) const;
    void fillHome(MadeDirectories& made, boost::filesystem::path const& home) const;
};

// Renames source to <source>.OrvekSaved.<inode number> and stores that path in target. Where that
// name is taken, a dot and six characters that nobody can foresee are added to it. A missing
// source gives true and an empty target. A source that cannot be looked at gives false, with
// errno set and target unchanged. A failing rename is raised.
bool backupRename(boost::filesystem::path const& source, boost::filesystem::path& target);

} // namespace orvek::mail

#endif
