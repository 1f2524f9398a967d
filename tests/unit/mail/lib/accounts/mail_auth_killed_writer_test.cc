#include "mail/lib/accounts/mail_auth_domains.h"
#include "mail/lib/accounts/mail_auth_users.h"
#include "support/auth_database_test.h"
#include "support/worker.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>

#include <poll.h>

using ::testing::ElementsAre;

namespace {

// Keeps the temporary files in memory if possible: what a killed process leaves does not depend on
// the disk, but the time for hundreds of rounds does.
class FilesInMemory
{
protected:
    FilesInMemory()
    {
        if (access(memory, W_OK) == 0)
            setenv("TMPDIR", memory, 1);
    }
    ~FilesInMemory()
    {
        if (first.empty())
            unsetenv("TMPDIR");
        else
            setenv("TMPDIR", first.c_str(), 1);
    }

private:
    static constexpr char memory[] = "/dev/shm";
    std::string const first = getenv("TMPDIR") ? getenv("TMPDIR") : "";
};

class MailAuthKilledWriter : private FilesInMemory, public AuthDatabaseTest
{
};

// The content of the database: its domains, and the passwords by domain and name.
struct Contents
{
    std::set<std::string> domains;
    std::map<std::pair<std::string, std::string>, std::string> passwords;

    bool operator==(Contents const&) const = default;
};

// One acknowledged call of a writer that will be killed.
struct Change
{
    enum class Kind
    {
        set,
        rename,
        remove,
        removeDomain
    };

    Kind kind;
    std::string domain;
    std::string name;

    std::string renamed() const { return name + "-renamed"; }

    int make() const
    {
        switch (kind) {
        case Kind::set:
            return mailAuthSet(name.c_str(), domain.c_str(), name.c_str(), 0);
        case Kind::rename:
            return mailAuthRename(name.c_str(), renamed().c_str(), domain.c_str());
        case Kind::remove:
            return mailAuthRemove(name.c_str(), domain.c_str());
        case Kind::removeDomain:
            return mailAuthRemoveDomain(domain.c_str());
        }
        return -1;
    }

    // The possible contents when this change was cut short: before, in between, and last after.
    // Only a set has a content in between: the domain that it registers.
    std::vector<Contents> stages(Contents const& before) const
    {
        Contents after = before;
        switch (kind) {
        case Kind::set: {
            after.domains.insert(domain);
            Contents const registered = after;
            after.passwords[{domain, name}] = name;
            return {before, registered, after};
        }
        case Kind::rename:
            after.passwords.erase({domain, name});
            after.passwords[{domain, renamed()}] = name;
            break;
        case Kind::remove:
            after.passwords.erase({domain, name});
            break;
        case Kind::removeDomain:
            after.domains.erase(domain);
            std::erase_if(after.passwords,
                          [&](auto const& entry) { return entry.first.first == domain; });
            break;
        }
        return {before, after};
    }
};

// The nth change of a round, in the round's own domain: first set an account, then remove an old
// domain, then set accounts that in turn stay, are renamed or are removed.
Change changeOf(int round, int number)
{
    auto const domain_of = [](int of) { return "d" + std::to_string(of) + ".com"; };
    if (number == 1)
        return {Change::Kind::removeDomain, domain_of(round - 3), ""};
    std::string const name = "u" + std::to_string(number / 2);
    if (number % 2 == 1 && number % 3 == 1)
        return {Change::Kind::rename, domain_of(round), name};
    if (number % 2 == 1 && number % 3 == 2)
        return {Change::Kind::remove, domain_of(round), name};
    return {Change::Kind::set, domain_of(round), number % 2 == 1 ? name + "'%" : name};
}

// Makes the changes of a round for ever, and acknowledges each with a byte.
int writeUntilKilled(int round, int acknowledgements)
{
    for (int number = 0;; ++number)
        if (changeOf(round, number).make() != 0 || write(acknowledgements, "+", 1) != 1)
            return 1;
}

int bytesUntilTheEnd(int descriptor)
{
    char block[256];
    int bytes = 0;
    while (ssize_t const got = read(descriptor, block, sizeof block)) {
        if (got < 0)
            return -1;
        bytes += static_cast<int>(got);
    }
    return bytes;
}

Contents contentsOf(std::string const& path)
{
    Contents contents;
    for (std::string const& name : rowsOf(path, "SELECT name FROM domains"))
        contents.domains.insert(name);
    for (std::string const& row : rowsOf(path, "SELECT d.name, u.name, u.userPassword FROM users u "
                                               "LEFT JOIN domains d ON u.dom_id=d.id")) {
        size_t const first = row.find('|');
        size_t const second = row.find('|', first + 1);
        contents.passwords[{row.substr(0, first), row.substr(first + 1, second - first - 1)}] =
            row.substr(second + 1);
    }
    return contents;
}

} // namespace

TEST_F(MailAuthKilledWriter, LeavesASoundDatabaseWithEveryAcknowledgedChange)
{
    constexpr int rounds = 220;
    constexpr int longest_life = 4000; // microseconds after the writer's first change
    unsigned const seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Contents contents;
    int acknowledged = 0;
    int interrupted = 0;
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Channel channel;
        ASSERT_TRUE(channel.opened);
        Worker writer(directory / "writer",
                      [&] { return writeUntilKilled(round, channel.writing()); });
        channel.closeWriting();
        pollfd begun{channel.reading(), POLLIN, 0};
        ASSERT_EQ(poll(&begun, 1, 300000), 1);
        usleep(std::uniform_int_distribution<useconds_t>(0, longest_life)(random));
        writer.kill();
        int const changes = bytesUntilTheEnd(channel.reading());
        ASSERT_EQ(writer.printed(), "");
        if (std::error_code none; std::filesystem::file_size(path + "-wal", none) > 0 && !none)
            ++interrupted;

        ASSERT_THAT(sql("PRAGMA integrity_check"), ElementsAre("ok"));
        for (int number = 0; number < changes; ++number)
            contents = changeOf(round, number).stages(contents).back();
        Contents const found = contentsOf(path);
        std::vector<Contents> const stages = changeOf(round, changes).stages(contents);
        ASSERT_NE(std::find(stages.begin(), stages.end(), found), stages.end())
            << "after " << changes << " acknowledged changes";
        contents = found;
        acknowledged += changes;
    }
    RecordProperty("acknowledged", acknowledged);
    RecordProperty("interrupted", interrupted);
    EXPECT_GE(acknowledged, rounds);
    EXPECT_GT(interrupted, 0);
}
