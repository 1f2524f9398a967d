#include "mail/lib/quota/maildirpp_maildirsize.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/opened_file.h"
#include "lib/files/saved_directory.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/owned.h"
#include "mail/lib/home/mail_tree.h"
#include "mail/lib/quota/maildirpp_folders.h"
#include "mail/lib/quota/maildirpp_messages.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char maildirsize[] = "maildirsize";
constexpr mode_t new_file_mode = 0644;
constexpr int max_attempts = 5;
constexpr unsigned int pause_seconds = 2;

// More than 15 minutes: mail servers recount when the file is older than that.
constexpr time_t back_dating = 960;

using HostName = char[65];

struct Quota
{
    sizequota_t size;
    fcount_t count;
};

bool get_host_name(HostName& host)
{
    if (gethostname(host, sizeof host) != 0)
        return false;
    host[sizeof host - 1] = '\0';
    return true;
}

bool write_whole(int file, char const* text, std::size_t length)
{
    while (length > 0) {
        ssize_t const written = write(file, text, length);
        if (written < 0 && errno != EINTR && errno != EAGAIN)
            return false;
        if (written > 0) {
            text += written;
            length -= static_cast<std::size_t>(written);
        }
    }
    return true;
}

// The file that becomes maildirsize. The destructor removes it unless it is in place.
class NewFile
{
public:
    NewFile() = default;
    ~NewFile() { discard(); }
    NewFile(NewFile const&) = delete;
    NewFile& operator=(NewFile const&) = delete;

    bool create(HostName const& host);
    bool fill(Quota const& quota, Quota const& usage);
    bool commit();
    bool put_in_place();
    int descriptor() const { return file; }

private:
    bool attempt();
    void discard();

    char name[path_size] = "";
    int file = -1;
    bool exists = false;
};

// Fails if the name is taken by any file or link.
bool NewFile::attempt()
{
    file = make_file_beneath(AT_FDCWD, name, new_file_mode).release();
    exists = file >= 0;
    return exists;
}

void NewFile::discard()
{
    ErrnoKeeper const keeper;
    if (file >= 0)
        close(std::exchange(file, -1));
    if (std::exchange(exists, false))
        static_cast<void>(remove_file_beneath(AT_FDCWD, name));
}

bool NewFile::create(HostName const& host)
{
    for (int attempts = 0; attempts < max_attempts; ++attempts) {
        if (!form_path(name, "tmp/%lu.%u.%s-maildirsize", static_cast<unsigned long>(time(nullptr)),
                       static_cast<unsigned int>(getpid()), host)) {
            errno = ENAMETOOLONG;
            return failure(false, "host name is too long to be used in filename");
        }
        if (attempt())
            return true;
        discard();
        sleep(pause_seconds);
    }
    errno = EAGAIN;
    return failure(false,
                   "Maximal allowed number of attempts to create a maildirsize file exceeded");
}

bool NewFile::fill(Quota const& quota, Quota const& usage)
{
    char text[100];
    int const length = snprintf(text, sizeof text, "%lldS,%lluC\n%12lld%12llu\n", quota.size,
                                quota.count, usage.size, usage.count);
    if (length <= 0 || static_cast<std::size_t>(length) >= sizeof text) {
        errno = EINVAL;
        return false;
    }
    if (!write_whole(file, text, static_cast<std::size_t>(length)))
        return failure(false, "unable to write data to file");
    return true;
}

bool NewFile::commit()
{
    if (fsync(file) == 0 && close(std::exchange(file, -1)) == 0)
        return true;
    return failure(false, "unable to commit written data to file");
}

bool NewFile::put_in_place()
{
    if (rename_beneath(AT_FDCWD, name, AT_FDCWD, maildirsize) != 0)
        return false;
    exists = false;
    return true;
}

// Dates the file back if the Maildir has changed since the count or cannot be checked, so that mail
// servers recount. Deliberate: neither is a failure.
void date_back_if_changed(time_t counted)
{
    time_t latest = 0;
    if (get_maildirpp_latest_mtime(&latest) != 0 && latest <= counted)
        return;
    timespec const times[] = {{time(nullptr), 0}, {counted - back_dating, 0}};
    OpenDescriptor const file = open_file_beneath(AT_FDCWD, maildirsize, O_RDONLY, any_size);
    if (file.get() >= 0)
        futimens(file.get(), times);
    errno = 0;
}

// For the Maildir that is the working directory.
int write_maildirsize(uid_t owner, gid_t group, Quota const& quota)
{
    HostName host;
    if (!get_host_name(host))
        return failure(0, "Unable to receive hostname");
    NewFile file;
    Quota usage = {0, 0};
    time_t counted = 0;
    if (!file.create(host) || fchown(file.descriptor(), owner, group) != 0 ||
        get_maildirpp_messages_usage(&usage.size, &usage.count, &counted) == 0 ||
        !file.fill(quota, usage) || !file.commit() || !file.put_in_place())
        return 0;
    date_back_if_changed(counted);
    return 1;
}

} // namespace

int write_maildirpp_maildirsize(char const* maildir, uid_t owner, gid_t group, sizequota_t sq,
                                fcount_t cq)
{
    SavedDirectory before;
    if (!before.save())
        return 0;
    OpenDescriptor const opened = open_mail_directory(maildir);
    if (opened.get() < 0 || fchdir(opened.get()) != 0)
        return 0;
    if (write_maildirsize(owner, group, {sq, cq}) != 0)
        return 1;
    before.restore();
    return 0;
}
