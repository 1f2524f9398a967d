#include "mail/lib/accounts/mail_auth_domains.h"
#include "mail/lib/accounts/mail_auth_iterate.h"
#include "mail/lib/accounts/mail_auth_users.h"
#include "support/auth_database_test.h"
#include "support/worker.h"

#include <set>

#include <fcntl.h>

using ::testing::ElementsAre;

namespace {

constexpr char domain[] = "example.com";

class MailAuthConcurrency : public AuthDatabaseTest
{
};

// The name of an account that is set and then, by its number, cloned, renamed or removed.
std::string nameOf(int writer, int number, char const* suffix = "")
{
    return "w" + std::to_string(writer) + "-" + std::to_string(number) + suffix;
}

int liveOf(int writer, int number)
{
    std::string const name = nameOf(writer, number);
    std::string const other = nameOf(writer, number, "'%");
    int failures = mailAuthSet(name.c_str(), domain, name.c_str(), 0);
    failures += mailAuthSet("everybody", domain, name.c_str(), MAIL_AUTH_CRYPTED);
    if (number % 4 == 1)
        failures += mailAuthRename(name.c_str(), other.c_str(), domain);
    else if (number % 4 == 2)
        failures += mailAuthRemove(name.c_str(), domain);
    else if (number % 4 == 3)
        failures += mailAuthClone(name.c_str(), domain, other.c_str(), domain);
    return failures;
}

void expectLife(std::set<std::string>* accounts, int writer, int number)
{
    std::string const name = nameOf(writer, number);
    std::string const other = nameOf(writer, number, "'%");
    if (number % 4 == 0 || number % 4 == 3)
        accounts->insert(name + "|" + name);
    if (number % 4 == 1 || number % 4 == 3)
        accounts->insert(other + "|" + name);
}

int count(char const*, char const*, MailAuthFlagsT, void* data)
{
    return ++*static_cast<int*>(data);
}

// Expects to see every account that was set before the start, whoever writes.
int readAll()
{
    int seen = 0;
    if (mailAuthIterateAll(count, &seen) < 1 || seen < 1)
        return -1;
    if (mailAuthCheck("everybody@example.com", count, &seen) < 1)
        return -1;
    passwd_type_t data = {};
    if (get_user_data(&data, "everybody", domain) != 1)
        return -1;
    free(data.name);
    free(data.passwd);
    return 0;
}

} // namespace

TEST_F(MailAuthConcurrency, LosesNothingToEightWritersBesideReaders)
{
    constexpr int writers = 8;
    constexpr int accounts_each = 24;
    constexpr int readers = 3;
    ASSERT_EQ(mailAuthSet("everybody", domain, "pw", MAIL_AUTH_CRYPTED), 0);
    Channel start;
    Channel stop;
    auto const awaitEnd = [](Channel& channel) {
        char byte = 0;
        channel.closeWriting();
        return read(channel.reading(), &byte, 1) == 0;
    };
    std::vector<Worker> writing;
    writing.reserve(writers);
    for (int writer = 0; writer < writers; ++writer)
        writing.emplace_back(directory / ("writer" + std::to_string(writer)), [&] {
            int failures = awaitEnd(start) ? 0 : 1;
            for (int number = 0; number < accounts_each; ++number)
                failures += liveOf(writer, number);
            return failures ? 1 : 0;
        });
    std::vector<Worker> reading;
    reading.reserve(readers);
    for (int reader = 0; reader < readers; ++reader)
        reading.emplace_back(directory / ("reader" + std::to_string(reader)), [&] {
            awaitEnd(start);
            stop.closeWriting();
            fcntl(stop.reading(), F_SETFL, O_NONBLOCK);
            char byte = 0;
            int failures = 0;
            while (read(stop.reading(), &byte, 1) != 0)
                failures += readAll();
            return failures ? 1 : 0;
        });
    start.closeWriting();
    for (Worker& child : writing) {
        EXPECT_EQ(child.wait(), 0);
        EXPECT_EQ(child.printed(), "");
    }
    stop.closeWriting();
    for (Worker& child : reading) {
        EXPECT_EQ(child.wait(), 0);
        EXPECT_EQ(child.printed(), "");
    }

    std::set<std::string> expected;
    for (int writer = 0; writer < writers; ++writer)
        for (int number = 0; number < accounts_each; ++number)
            expectLife(&expected, writer, number);
    std::vector<std::string> const rows =
        sql("SELECT name, userPassword FROM users WHERE name<>'everybody'");
    EXPECT_EQ(std::set<std::string>(rows.begin(), rows.end()), expected);
    EXPECT_EQ(rows.size(), expected.size());
    EXPECT_THAT(sql("PRAGMA integrity_check"), ElementsAre("ok"));
}
