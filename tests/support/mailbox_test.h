// mailbox_test - base of the suites that set and count quotas of mailboxes
//
// Uses real paths: the mailbox info of example.com, which belongs to popuser and is made for each
// test and removed after it. Also uses the panel's database.

#ifndef MAILVEK_TESTS_SUPPORT_MAILBOX_TEST_H
#define MAILVEK_TESTS_SUPPORT_MAILBOX_TEST_H

#include "support/child_run.h"
#include "support/maildir_test.h"
#include "support/panel_database_test.h"
#include "support/rights.h"

#include <filesystem>
#include <functional>
#include <string>

#include <pwd.h>

class MailboxTest : public PanelDatabaseTest
{
protected:
    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        if (HasFatalFailure())
            return;
        std::filesystem::remove_all(domain);
        makeMailbox("info");
        errno = 0;
    }
    void TearDown() override
    {
        std::filesystem::current_path("/");
        PanelDatabaseTest::TearDown();
        if (!HasFatalFailure())
            std::filesystem::remove_all(domain);
    }

    void makeMailbox(std::string const& name) const
    {
        std::string const home = domain + "/" + name;
        makeMaildir(home + "/Maildir");
        ASSERT_EQ(
            system(("chmod -R 0700 " + home + " && chown -R popuser:popuser " + domain).c_str()),
            0);
    }

    // Makes a file in the mailbox info.
    void put(std::string const& name, size_t size) const
    {
        std::string const path = home + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        writeFile(path, std::string(size, 'x'));
    }

    std::string quotaOf(std::string const& name) const
    {
        std::string const text = readFile(domain + "/" + name + "/Maildir/maildirsize");
        return text.substr(0, text.find('\n'));
    }

    // The output on each stream of a call that must return result and keep the working directory.
    static std::string reportOf(int result, std::function<int()> const& call)
    {
        auto const run = inChild([&] {
            auto const before = std::filesystem::current_path();
            int const given = call();
            return given == result && std::filesystem::current_path() == before ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    void addDomain(std::string const& name, std::string const& limit = "")
    {
        panel.sql("INSERT INTO domains (id, name, limits_id) VALUES (7, '" + name + "', 3)");
        if (!limit.empty())
            panel.sql("INSERT INTO Limits VALUES (3, 'mbox_quota', " + limit + ")");
    }
    void addMailname(std::string const& name, long long quota)
    {
        panel.sql("INSERT INTO mail (mail_name, dom_id, mbox_quota) VALUES ('" + name + "', 7, " +
                  std::to_string(quota) + ")");
    }

    std::string const domain = "/var/qmail/mailnames/example.com";
    std::string const home = domain + "/info";
    std::string const file = home + "/Maildir/maildirsize";
};

#endif
