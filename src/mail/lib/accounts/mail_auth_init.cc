#include "mail/lib/accounts/mail_auth_init.h"

#include "lib/files/libdir.h"
#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "mail/lib/accounts/account_log_files.h"
#include "mail/lib/accounts/mail_auth_connection.h"
#include "mail/lib/accounts/mail_auth_schema.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <string>

#include <fcntl.h>
#include <libgen.h>
#include <pwd.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr char postfix_user[] = "postfix";

__attribute__((format(printf, 1, 2))) int critical(char const* fmt, ...)
{
    ErrnoKeeper const keeper;
    va_list args;
    va_start(args, fmt);
    orvek_logv(LOG_CRIT, fmt, args);
    va_end(args);
    return -1;
}

// The directory of a path. get() is null, reported, without memory for it.
class Directory
{
public:
    explicit Directory(char const* path) : copy(strdup(path))
    {
        if (!copy) {
            errno = ENOMEM;
            critical("Memory allocation error");
            return;
        }
        name = dirname(copy.get());
        if (!name)
            critical("dirname(%s) failed: %s", path, strerror(errno));
    }
    char const* get() const { return name; }

private:
    CString copy;
    char const* name = nullptr;
};

bool is_below_root(char const* directory)
{
    return directory[0] == '/' && directory[strspn(directory, "/")];
}

struct Rights
{
    uid_t uid;
    gid_t gid;
    mode_t mode;
    mode_t reported_mode; // the mode that a failing chmod reports
};

// The mail server's user owns the directory. He can put a link there, or a second name of somebody
// else's file.
bool is_own(int fd, mode_t type)
{
    struct stat info = {};
    if (fstat(fd, &info) != 0)
        return false;
    bool const own = (info.st_mode & S_IFMT) == type && (type == S_IFDIR || info.st_nlink == 1);
    if (!own)
        errno = ELOOP;
    return own;
}

int set_rights(char const* path, mode_t type, Rights const& rights)
{
    OpenDescriptor const place(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (place.get() < 0 || !is_own(place.get(), type) ||
        fchownat(place.get(), "", rights.uid, rights.gid, AT_EMPTY_PATH) != 0)
        return critical("chown(\"%s\", %d, %d) failed: %s", path, static_cast<int>(rights.uid),
                        static_cast<int>(rights.gid), strerror(errno));
    // fchmod refuses a descriptor that was opened with O_PATH.
    std::string const held = "/proc/self/fd/" + std::to_string(place.get());
    if (chmod(held.c_str(), rights.mode) != 0)
        return critical("chmod(\"%s\", %04o) failed: %s", path, rights.reported_mode,
                        strerror(errno));
    return 0;
}

int create_schema()
{
    MailAuthConnection db;
    if (db.openForWriting() != 0)
        return -1;
    char* error = nullptr;
    if (db.execute(mail_auth_schema, &error) == SQLITE_OK)
        return db.finish();
    std::unique_ptr<char, decltype(&sqlite3_free)> const text(error, sqlite3_free);
    if (!text)
        return db.failure("Unable to re-create Mail Authentication Database");
    return db.failure("Unable to re-create Mail Authentication Database: %s", text.get());
}

int init_postfix_style()
{
    errno = 0;
    passwd const* const postfix = getpwnam(postfix_user);
    if (!postfix)
        return critical("Unable to get user id for \"%s\": %s", postfix_user, strerror(errno));
    uid_t const owner = postfix->pw_uid;
    if (mailAuthDBInit() != 0)
        return -1;
    // Deliberate: the owner may only read the file; the group may also write it.
    return mailAuthDBSetAccess(owner, 0, 0770, 0460);
}

int init_qmail_style()
{
    if (mailAuthDBInit() != 0)
        return -1;
    return mailAuthDBSetAccess(0, 0, 0750, 0600);
}

} // namespace

int mailAuthDBInit()
{
    Directory const directory(mailAuthDB);
    if (!directory.get())
        return -1;
    if (createNestedDirectory(directory.get()) != 1)
        return critical("recursive mkdir(%s) failed: %s", directory.get(), strerror(errno));
    for (char const* const suffix : {"", "-journal", "-wal", "-shm"})
        unlink((std::string(mailAuthDB) + suffix).c_str());
    return create_schema();
}

int mailAuthDBSetAccess(uid_t uid, gid_t gid, mode_t dirMode, mode_t dbMode)
{
    Directory const directory(mailAuthDB);
    if (!directory.get())
        return -1;
    if (!is_below_root(directory.get()))
        return critical("Invalid mail authentication DB path %s", mailAuthDB);
    if (set_rights(directory.get(), S_IFDIR, {uid, gid, dirMode, dirMode}) != 0)
        return -1;
    // Deliberate: the report of a failing chmod of the file names the directory's mode.
    if (set_rights(mailAuthDB, S_IFREG, {uid, gid, dbMode, dirMode}) != 0)
        return -1;
    mode_t const log_mode = account_log_mode(dbMode);
    for (char const* const suffix : {"-wal", "-shm"}) {
        std::string const file = std::string(mailAuthDB) + suffix;
        if (access(file.c_str(), F_OK) == 0 &&
            set_rights(file.c_str(), S_IFREG, {uid, gid, log_mode, log_mode}) != 0)
            return -1;
    }
    return 0;
}

int mailAuthDBInitStyle(MailAuthDBStyle style)
{
    mailAuthDBSelectStyle(style);
    switch (style) {
    case MAIL_AUTH_DB_QMAIL_STYLE:
        return init_qmail_style();
    case MAIL_AUTH_DB_POSTFIX_STYLE:
        return init_postfix_style();
    case MAIL_AUTH_DB_INVALID_STYLE:
        break;
    }
    return -1;
}
