// maildir_manager_test - base of the suites that make and remove directories of mailboxes
//
// Uses the real mailbox root, which is empty before and after each test. The umask is 0027 in a
// test, and the code under test must not change it. fchownat and fchmod fail where chown_fault and
// chmod_fault say. popuser is unknown while without_popuser is set. Link the test program with
// --wrap for fchownat, fchmod and getpwnam.

#ifndef MAILVEK_TESTS_SUPPORT_MAILDIR_MANAGER_TEST_H
#define MAILVEK_TESTS_SUPPORT_MAILDIR_MANAGER_TEST_H

#include "maildir/maildir_manager.h"
#include "support/host_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace maildir_manager_test {

// The calls of one function that fail, counted from 1, and their error; the others are made. With
// error 0 these calls are made too. before runs right before each of these calls.
struct Fault
{
    int first = 0;
    int last = -1;
    int error = 0;
    int calls = 0;
    std::function<void()> before = nullptr;

    bool fails()
    {
        ++calls;
        if (calls < first || calls > last)
            return false;
        if (before)
            before();
        errno = error != 0 ? error : errno;
        return error != 0;
    }
};

inline Fault chown_fault;
inline Fault chmod_fault;
inline bool without_popuser = false;

} // namespace maildir_manager_test

extern "C" {

int __real_fchownat(int dir, char const* name, uid_t uid, gid_t gid, int flags);
int __real_fchmod(int fd, mode_t mode);
passwd* __real_getpwnam(char const* name);

[[gnu::used]] inline int __wrap_fchownat(int dir, char const* name, uid_t uid, gid_t gid, int flags)
{
    return maildir_manager_test::chown_fault.fails() ? -1
                                                     : __real_fchownat(dir, name, uid, gid, flags);
}

[[gnu::used]] inline int __wrap_fchmod(int fd, mode_t mode)
{
    return maildir_manager_test::chmod_fault.fails() ? -1 : __real_fchmod(fd, mode);
}

[[gnu::used]] inline passwd* __wrap_getpwnam(char const* name)
{
    return maildir_manager_test::without_popuser ? nullptr : __real_getpwnam(name);
}

} // extern "C"

namespace maildir_manager_test {

inline std::string const root = "/var/qmail/mailnames";

// The rights with popuser as owner: "drwx------ popuser:popuser".
inline std::string popusers(std::string const& kindAndMode)
{
    return kindAndMode + " popuser:popuser";
}

inline void makeDirectory(std::string const& path)
{
    std::filesystem::create_directories(path);
}

inline mode_t currentMask()
{
    mode_t const mask = umask(0);
    umask(mask);
    return mask;
}

// The names in a directory.
inline std::vector<std::string> namesIn(std::string const& directory)
{
    std::vector<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename());
    return names;
}

// The text of the error that code raises, or empty when it raises none.
template<typename Error>
std::string errorOf(std::function<void()> const& code)
{
    try {
        code();
    } catch (Error const& e) {
        EXPECT_EQ(typeid(e), typeid(Error));
        return e.what();
    }
    return "";
}

inline std::string fsErrorOf(std::function<void()> const& code)
{
    return errorOf<orvek::mail::FSError>(code);
}

inline std::string libraryErrorOf(std::function<void()> const& code)
{
    return errorOf<orvek::mail::LibraryError>(code);
}

inline std::string inodeOf(std::string const& path)
{
    struct stat info = {};
    EXPECT_EQ(stat(path.c_str(), &info), 0);
    return std::to_string(info.st_ino);
}

// An instance of the test's own: tests of getInstance need that the only instance does not exist.
class Manager : public orvek::mail::MaildirManager
{
public:
    Manager() = default;
    int userId() const { return uid; }
    int groupId() const { return gid; }
};

class MaildirManagerTest : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        mask = umask(0027);
        chown_fault = {};
        chmod_fault = {};
        std::filesystem::remove_all(root);
        makeDirectory(root);
        ready = true;
    }
    void TearDown() override
    {
        if (!ready)
            return;
        EXPECT_EQ(currentMask(), mode_t{0027}) << "the umask did not come back";
        umask(mask);
        chown_fault = {};
        chmod_fault = {};
        std::filesystem::remove_all(root);
        makeDirectory(root);
    }

    static Manager const& manager()
    {
        static Manager const instance;
        return instance;
    }

    std::string const domain = root + "/example.com";
    std::string const home = domain + "/info";

private:
    mode_t mask = 0;
    bool ready = false;
};

} // namespace maildir_manager_test

#endif
