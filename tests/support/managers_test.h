// managers_test - base of the tests of the domain and mailname managers
//
// Uses real maps, real directories and the panel's real database. Each test starts with all of them
// empty, and must leave no descriptor and no child.

#ifndef MAILVEK_TESTS_SUPPORT_MANAGERS_TEST_H
#define MAILVEK_TESTS_SUPPORT_MANAGERS_TEST_H

#include "build_paths.h"
#include "postfix/maps/database_helper.h"
#include "postfix/maps/map_names.h"
#include "support/fd_census.h"
#include "support/host_test.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/wait.h>

class ManagersTest : public HostTest
{
protected:
    using Content = std::map<std::string, std::string>;

    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        run(HOST_SERVICE " start mariadb");
        empty();
        descriptors = openDescriptors();
    }

    void TearDown() override
    {
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
        EXPECT_EQ(errno, ECHILD);
        run(HOST_SERVICE " start mariadb");
        empty();
    }

    static void run(std::string const& command)
    {
        EXPECT_EQ(system(command.c_str()), 0) << command;
    }

    static void panel(std::string const& statements)
    {
        FILE* const client = popen("mariadb orv", "w");
        fputs(statements.c_str(), client);
        EXPECT_EQ(pclose(client), 0) << statements;
    }

    static void panelDomain(std::string const& name, std::vector<std::string> const& aliases)
    {
        panel("INSERT INTO domains (name) VALUES ('" + name + "')");
        for (auto const& alias : aliases)
            panel("INSERT INTO domainaliases (dom_id, name) SELECT id, '" + alias +
                  "' FROM domains WHERE name = '" + name + "'");
    }

    static void panelMailname(std::string const& mailname, std::vector<std::string> const& aliases)
    {
        panel("INSERT INTO mail (mail_name, dom_id) SELECT '" + mailname +
              "', MAX(id) FROM domains");
        for (auto const& alias : aliases)
            panel("INSERT INTO mail_aliases (mn_id, alias) SELECT MAX(id), '" + alias +
                  "' FROM mail");
    }

    static void fill(char const* map, Content const& records)
    {
        orvek::mail::postfix::DatabaseHelper::replaceRecords(map, records.begin(), records.end());
    }

    static Content contentOf(std::string const& map)
    {
        Content content;
        char line[8192];
        FILE* const dump = popen(("/usr/sbin/postmap -s " + map).c_str(), "r");
        while (fgets(line, sizeof line, dump)) {
            std::string const record(line);
            auto const tab = record.find('\t');
            content[record.substr(0, tab)] = record.substr(tab + 1, record.size() - tab - 2);
        }
        pclose(dump);
        return content;
    }

    static constexpr char mailnames[] = "/var/qmail/mailnames";

private:
    static void empty()
    {
        using namespace orvek::mail::postfix;
        for (auto const map : {virtual_domains_map, virtual_map, vmailbox_map, aliases_map})
            fill(map, {});
        for (auto const& entry : std::filesystem::directory_iterator(mailnames))
            std::filesystem::remove_all(entry);
        for (auto const table : {"mail_aliases", "mail", "domainaliases", "domains"})
            panel(std::string("DELETE FROM ") + table);
    }

    std::set<int> descriptors;
};

#endif
