// domain_keys_fixture - shared by the tests of domain keys
//
// Has domains with the longest possible paths, the reports for longer ones, and a host whose store
// of keys is set aside: it is missing at first and restored after the test.

#ifndef MAILVEK_TESTS_UNIT_MAIL_LIB_SERVER_DOMAIN_KEYS_FIXTURE_H
#define MAILVEK_TESTS_UNIT_MAIL_LIB_SERVER_DOMAIN_KEYS_FIXTURE_H

#include "mail/lib/server/domain_keys.h"
#include "support/child_run.h"
#include "support/host_test.h"
#include "support/memory_faults.h"
#include "support/rights.h"
#include "support/set_aside.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

inline constexpr char keys[] = "/etc/domainkeys";
inline constexpr char no_memory[] = "\nSystem error 12: Cannot allocate memory\n";

// The longest domain of x whose path, with the text behind after it, has at most 4095 characters.
inline std::string longestDomain(std::string const& behind)
{
    return std::string(4095 - std::string(keys).size() - 1 - behind.size(), 'x');
}

inline std::string fileTooLong(std::string const& domain)
{
    return "File name 'default' is too long to be stored in /etc/domainkeys/" + domain + "\n";
}

inline std::string domainTooLong(std::string const& domain)
{
    return "Domain name '" + domain + "' is too long to be stored in /etc/domainkeys\n";
}

// Runs on a host whose store is missing at first.
class DomainKeysOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        store.emplace(keys);
        writeFile(source, "key\n");
    }

    static std::string keyOf(std::string const& domain)
    {
        return keys + ("/" + domain) + "/default";
    }
    static void makeKey(std::string const& domain, std::string const& key)
    {
        std::filesystem::create_directories(keys + ("/" + domain));
        writeFile(keyOf(domain), key);
    }

    // The names in a directory, sorted.
    static std::vector<std::string> namesIn(std::string const& directory)
    {
        std::vector<std::string> names;
        for (auto const& entry : std::filesystem::directory_iterator(directory))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    // Runs the call in a child and expects this result and output.
    void expect(int result, std::function<int()> const& call, std::string const& printed)
    {
        ChildRun const run = inChild([&] { return call() == result ? 0 : 99; });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, printed);
        EXPECT_EQ(run.out, printed);
    }

    int install(std::string const& domains) const
    {
        return set_domain_key(domains.c_str(), source.c_str());
    }

    TempDir const directory;
    std::string const source = directory / "uploaded";

private:
    std::optional<SetAside> store;
};

#endif
