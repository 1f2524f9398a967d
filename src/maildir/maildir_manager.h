// maildir_manager - the directories of domains and mailboxes
//
//   <root>/<domain>              the root of a domain, mode 0750
//   <root>/<domain>/<mailname>   the home of a mailname, mode 0700, with its Maildir, the
//                                folder .Spam in it, and @attachments
//
// <root> is ORVEK_MAILNAMES_D of the product configuration. Everything belongs to the user
// popuser and that user's primary group. Whether a mode comes out as said does not depend on
// the umask, and the umask is the caller's again on every way out.
//
// Failures are raised: FSError for owner, mode and a directory that cannot be looked at, and
// for a domain or mailname that is no name of a directory, such as an empty one or "..", which
// is refused before anything is touched; the error of the file system library for what that
// library does. Removing follows no symbolic link.

#ifndef MAILVEK_MAILDIR_MAILDIR_MANAGER_H
#define MAILVEK_MAILDIR_MAILDIR_MANAGER_H

#include <boost/filesystem/path.hpp>

#include <string>

#include <sys/types.h>

namespace orvek::mail {

class MaildirManager
{
public:
    // The one instance, which is that of MaildirPPManager. Each call looks popuser up, and
    // raises SystemError when there is no such user.
    static MaildirManager& getInstance();

    MaildirManager(MaildirManager const&) = delete;
    MaildirManager& operator=(MaildirManager const&) = delete;

    // <domain> and <domain>/<mailname>
    static boost::filesystem::path getDomainRelativeRoot(std::string const& domain);
    static boost::filesystem::path getMailnameRelativeHome(std::string const& domain,
                                                           std::string const& mailname);
    static boost::filesystem::path getMailnameHome(std::string const& domain,
                                                   std::string const& mailname);

    // What exists gets its owner and mode again.
    void createDomainRoot(std::string const& domain) const;
    // A home in which a directory cannot be made is removed, whatever it held.
    void createMailnameHome(std::string const& domain, std::string const& mailname) const;

    // A target with anything in it is an error, and nothing is merged.
    void renameDomainRoot(std::string const& oldDomain, std::string const& newDomain) const;
    void renameMailnameHome(std::string const& domain, std::string const& oldMailname,
                            std::string const& newMailname) const;

    // By backupRename. What does not exist needs no backup.
    void backupDomainRoot(std::string const& domain) const;
    void backupMailnameHome(std::string const& domain, std::string const& mailname) const;

    // A root goes out of the way, as a backup does, before its tree is removed; a removal that
    // fails leaves the rest under that name. What does not exist needs no removal.
    void removeDomainRoot(std::string const& domain) const;
    void removeMailnameHome(std::string const& domain, std::string const& mailname) const;

protected:
    MaildirManager();
    ~MaildirManager() = default;

    // Looks popuser up. Raises SystemError when there is no such user.
    void init();

    // Of popuser.
    int uid = 0;
    int gid = 0;

private:
    void setRights(boost::filesystem::path const& directory, mode_t mode) const;
    void fillHome(boost::filesystem::path const& home) const;
};

// Renames source to <source>.OrvekSaved.<inode number>, which target is set to. True, with an
// empty target, when there is no source; false, with errno set and target as it was, when the
// source cannot be looked at. A failing rename is raised.
bool backupRename(boost::filesystem::path const& source, boost::filesystem::path& target);

} // namespace orvek::mail

#endif
