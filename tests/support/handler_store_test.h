// handler_store_test - the real handler store, empty for each test
//
// Reports of the product log are recorded. refresher() puts a program in the place of
// handlers-tmpfs that notes each call and the state of the store at that time.

#ifndef MAILVEK_TESTS_SUPPORT_HANDLER_STORE_TEST_H
#define MAILVEK_TESTS_SUPPORT_HANDLER_STORE_TEST_H

#include "lib/report/owned.h"
#include "mail/lib/handlers/handler_control.h"
#include "mail/lib/handlers/handler_lookup.h"
#include "mail/lib/handlers/handler_parameters.h"
#include "mail/lib/handlers/mail_handlers.h"
#include "support/child_run.h"
#include "support/host_test.h"
#include "support/log_recorder.h"
#include "support/report.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

class HandlerStoreTest : public HostTest
{
protected:
    using Tree = std::map<std::string, std::string>;
    using Reports = std::vector<Report>;

    static constexpr char root[] = "/usr/local/orv/handlers";
    static constexpr char tmpfs[] = "/usr/lib64/orvek-9.0/handlers-tmpfs";
    static constexpr char journal[] = "/run/handlers-tmpfs-journal";
    static constexpr char lock_directory[] = "/var/lock/files";
    static constexpr char address[] = "someone@example.com";

    void SetUp() override
    {
        HostTest::SetUp();
        if (!HasFatalFailure())
            empty();
        errno = 0;
    }
    void TearDown() override
    {
        if (!HasFatalFailure())
            empty();
    }

    // Puts a file in the place of the lock directory.
    static void barLocks()
    {
        std::filesystem::remove_all(lock_directory);
        writeFile(lock_directory, "");
    }

    static std::string info(std::string const& name)
    {
        return std::string(handlers_info) + "/" + name;
    }
    static std::string at(std::string const& path) { return std::string(root) + "/" + path; }

    // The content of a directory, by relative path: "d 0755 0:0", "f 0644 0:0 content",
    // "l target". The name is replaced by NAME.
    static Tree tree(std::string const& top, std::string const& name = "")
    {
        Tree found;
        for (auto const& entry : std::filesystem::recursive_directory_iterator(top)) {
            std::string path = entry.path().lexically_relative(top);
            if (size_t const place = path.find(name); !name.empty() && place != std::string::npos)
                path.replace(place, name.size(), "NAME");
            found[path] = described(entry.path());
        }
        return found;
    }

    // The store without the programs.
    static Tree store(std::string const& name = "")
    {
        Tree all = tree(root, name);
        std::erase_if(all, [](auto const& entry) { return entry.first.starts_with("hooks"); });
        return all;
    }

    // Each descriptor's name, sorted.
    static std::vector<std::string> names()
    {
        std::vector<std::string> all;
        for (auto const& entry : std::filesystem::directory_iterator(handlers_info))
            all.push_back(entry.path().filename());
        std::sort(all.begin(), all.end());
        return all;
    }

    // The first descriptor's name. Without one the test fails and the result is "".
    static std::string first()
    {
        auto const all = names();
        if (all.empty())
            ADD_FAILURE() << "there is no handler";
        return all.empty() ? "" : all.front();
    }

    // Adds a handler and returns its full name.
    static std::string add(std::string const& name_template, char const* type = "recipient",
                           char const* value = address, char const* hook = "before-local",
                           handler_control_t action = HOOK_ENABLE)
    {
        auto const before = names();
        EXPECT_EQ(mail_handler_add(name_template.c_str(), type, value, "/bin/true", "the context",
                                   hook, "10", action),
                  0);
        for (auto const& name : names())
            if (!std::binary_search(before.begin(), before.end(), name))
                return name;
        ADD_FAILURE() << "no handler was added";
        return "";
    }

    static bool active(std::string const& name)
    {
        return control_handler_queue(name.c_str(), nullptr, HOOK_CHECK) == 1;
    }

    static std::string lookup(char const* name_template, char const* type = "recipient",
                              char const* value = address, char const* hook = "before-local")
    {
        CString const name(get_handler_name(name_template, type, value, hook));
        return name ? name.get() : "(null)";
    }

    // Makes a descriptor by hand, "recipient" at "before-local" unless files say otherwise.
    static void descriptor(std::string const& name, std::map<std::string, std::string> files = {},
                           std::vector<std::string> const& without = {})
    {
        std::filesystem::create_directory(info(name));
        files.insert({{"hook", "before-local\n"},
                      {"handler-type", "recipient\n"},
                      {"recipient", std::string(address) + "\n"},
                      {"context", "made by hand\n"}});
        for (auto const& file : without)
            files.erase(file);
        for (auto const& [file, content] : files)
            writeFile(info(name) + "/" + file, content);
        std::filesystem::create_symlink("/bin/true", info(name) + "/executable");
    }

    static void refresher(std::string const& more = "", mode_t mode = 0755)
    {
        writeFile(tmpfs, "#!/bin/sh\n"
                         "{ echo \"$0 $*\"; cd " +
                             std::string(root) +
                             "; find info before-* -type d | sed 's/-[A-Za-z0-9]\\{6\\}$//' | "
                             "sort; } >>" +
                             journal + " 2>/dev/null\n" + more);
        chmod(tmpfs, mode);
    }

    static int refreshes()
    {
        std::string const all = readFile(journal);
        int count = 0;
        for (size_t place = 0; (place = all.find(tmpfs, place)) != std::string::npos; ++place)
            ++count;
        return count;
    }

    // Runs the code in a child, whose failed expectations count, and returns its output.
    static ChildRun printed(std::function<void()> const& code)
    {
        auto run = inChild([&] {
            code();
            return HasFailure() ? 1 : 0;
        });
        EXPECT_EQ(run.status, 0) << run.out;
        return run;
    }

    static Reports& reports() { return LogRecorder::reports(); }
    static Report error(std::string const& text) { return {3, text}; }

    LogRecorder const recorder;

private:
    static std::string described(std::filesystem::path const& path)
    {
        struct stat status = {};
        lstat(path.c_str(), &status);
        if (S_ISLNK(status.st_mode))
            return "l " + std::filesystem::read_symlink(path).string();
        char text[64];
        snprintf(text, sizeof text, "%c %04o %u:%u", S_ISDIR(status.st_mode) ? 'd' : 'f',
                 status.st_mode & 07777U, status.st_uid, status.st_gid);
        return S_ISDIR(status.st_mode) ? text : text + (" " + readFile(path));
    }

    static void empty()
    {
        namespace fs = std::filesystem;
        for (auto const& entry : fs::directory_iterator(root))
            if (entry.path().filename() != "hooks")
                fs::remove_all(entry.path());
        fs::create_directory(handlers_info);
        fs::remove_all(tmpfs);
        fs::remove_all(journal);
        fs::remove_all(lock_directory);
        fs::create_directory(lock_directory);
    }
};

#endif
