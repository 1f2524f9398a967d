// mailnames_root - another root for all mailboxes, as an administrator may configure it
//
// While a MailnamesRoot lives, ORVEK_MAILNAMES_D is the given directory, which exists and is empty
// at first. At the end the directory is removed and the old value is restored.

#ifndef MAILVEK_TESTS_SUPPORT_MAILNAMES_ROOT_H
#define MAILVEK_TESTS_SUPPORT_MAILNAMES_ROOT_H

#include "lib/conf/autoprepend.h"
#include "lib/conf/read_configuration.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

class MailnamesRoot
{
public:
    explicit MailnamesRoot(std::string directory) : path(std::move(directory))
    {
        std::filesystem::create_directories(path);
        set(path);
    }
    ~MailnamesRoot()
    {
        set(before);
        std::filesystem::remove_all(path);
    }
    MailnamesRoot(MailnamesRoot const&) = delete;
    MailnamesRoot& operator=(MailnamesRoot const&) = delete;

private:
    static void set(std::string const& root)
    {
        ASSERT_EQ(autoprepend(), 0);
        ASSERT_EQ(conf_set_r("ORVEK_MAILNAMES_D", root.c_str(), theOrvConfHash), 0);
        theOrvConfArray[_ORVEK_MAILNAMES_D_INDEX] = nullptr; // the value before is freed
    }

    std::string const path;
    std::string const before = orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX);
};

#endif
