// maildir_test - base of the suites that count and write in a Maildir of their own
//
// The Maildir is in a temporary directory, which is the working directory of the test. Pauses of
// the code under test take no time and are counted.

#ifndef MAILVEK_TESTS_SUPPORT_MAILDIR_TEST_H
#define MAILVEK_TESTS_SUPPORT_MAILDIR_TEST_H

#include "mail/lib/quota/maildirpp_types.h"
#include "support/pauses.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

inline void makeMaildir(std::string const& maildir)
{
    for (char const* const name : {"tmp", "new", "cur"})
        std::filesystem::create_directories(maildir + "/" + name);
}

// A path of more than 4095 characters. All its components are valid names.
inline std::string pathTooLong()
{
    std::string path;
    while (path.size() < 4096)
        path += std::string(200, 'x') + "/";
    return path;
}

inline void setTime(std::string const& path, time_t seconds)
{
    timespec const times[] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

inline time_t timeOf(std::string const& path)
{
    struct stat info = {};
    return stat(path.c_str(), &info) == 0 ? info.st_mtime : -1;
}

class MaildirTest : public ::testing::Test
{
protected:
    using Usage = std::pair<sizequota_t, fcount_t>;

    void SetUp() override
    {
        makeMaildir("Maildir");
        pauses_detail::pauses.clear();
        errno = 0;
    }
    void TearDown() override { std::filesystem::current_path(before); }

    static void letter(std::string const& path, size_t size)
    {
        writeFile("Maildir/" + path, std::string(size, 'x'));
    }
    static void folder(std::string const& name) { makeMaildir("Maildir/" + name); }

    // Sets the times of the root and of its folders.
    static void setTimes(time_t seconds, std::initializer_list<std::string> folders = {})
    {
        std::vector<std::string> directories = {"."};
        directories.insert(directories.end(), folders);
        for (std::string const& directory : directories)
            for (char const* const name : {"new", "cur"})
                setTime("Maildir/" + directory + "/" + name, seconds);
    }

    std::string here() const { return std::filesystem::current_path(); }

    std::vector<unsigned int> const& pauses = pauses_detail::pauses;

private:
    TempDir const dir;
    std::filesystem::path const before = enter(dir.path());

    static std::filesystem::path enter(std::string const& directory)
    {
        auto const left = std::filesystem::current_path();
        std::filesystem::current_path(directory);
        return left;
    }
};

#endif
