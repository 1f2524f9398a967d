#include "mail/lib/mail_auth_domains.h"
#include "mail/lib/mail_auth_iterate.h"
#include "mail/lib/mail_auth_users.h"
#include "support/auth_database_test.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <functional>
#include <map>
#include <random>
#include <set>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr char domain[] = "example.com";

// A child that runs code with its reports in a file. It is killed if the test ends first; a fork
// that failed ends the test program, as there is nobody to kill then.
class Child
{
public:
    Child(std::string const& reports, std::function<int()> const& code) : reports(reports)
    {
        pid = fork();
        if (pid < 0)
            abort();
        if (pid > 0)
            return;
        int const file = open(reports.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, STDERR_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        orvek_log = _orvek_utility_log;
        orvek_logv = _orvek_utility_logv;
        _exit(code());
    }
    ~Child()
    {
        if (pid > 0)
            kill();
    }
    Child(Child&& other) noexcept : reports(other.reports), pid(std::exchange(other.pid, -1)) {}

    // The exit status, or -1 after a signal.
    int wait()
    {
        int status = 0;
        waitpid(std::exchange(pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void kill()
    {
        if (pid > 0)
            ::kill(pid, SIGKILL);
        wait();
    }
    std::string printed() const { return readFile(reports); }

private:
    std::string reports;
    pid_t pid = -1;
};

// A pipe whose reading end sees the end of file once everybody has let go of the other.
class Channel
{
public:
    Channel() { opened = pipe(ends.data()) == 0; }
    ~Channel()
    {
        closeReading();
        closeWriting();
    }
    Channel(Channel const&) = delete;
    Channel& operator=(Channel const&) = delete;

    void closeReading() { close(std::exchange(ends[0], -1)); }
    void closeWriting() { close(std::exchange(ends[1], -1)); }
    int reading() const { return ends[0]; }
    int writing() const { return ends[1]; }

    bool opened = false;

private:
    std::array<int, 2> ends = {-1, -1};
};

class MailAuthConcurrency : public AuthDatabaseTest
{
};

// One account's life: set, and then cloned, renamed or removed by its number.
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

// Every account that is set before the start stays in sight, whoever writes.
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

// What the database holds: its domains, and the passwords by domain and name.
struct Contents
{
    std::set<std::string> domains;
    std::map<std::pair<std::string, std::string>, std::string> passwords;

    bool operator==(Contents const&) const = default;
};

// One acknowledged call of a writer that is going to be killed.
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

    // What may be found when this change was cut short: as before, in between, or as after, which
    // is last. Only a set has something in between, the domain that it registers.
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

// The change with this number of a round, whose domain is its own: first an account, then away
// with an old domain, then accounts that are set and, in turn, stay, are renamed or are removed.
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
    std::vector<Child> writing;
    for (int writer = 0; writer < writers; ++writer)
        writing.emplace_back(directory / ("writer" + std::to_string(writer)), [&] {
            int failures = awaitEnd(start) ? 0 : 1;
            for (int number = 0; number < accounts_each; ++number)
                failures += liveOf(writer, number);
            return failures ? 1 : 0;
        });
    std::vector<Child> reading;
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
    for (Child& child : writing) {
        EXPECT_EQ(child.wait(), 0);
        EXPECT_EQ(child.printed(), "");
    }
    stop.closeWriting();
    for (Child& child : reading) {
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

TEST_F(MailAuthConcurrency, KeepsEveryAcknowledgedChangeWhenAWriterIsKilled)
{
    constexpr int rounds = 220;
    constexpr int longest_life = 6000; // microseconds after its first change
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
        Child writer(directory / "writer",
                     [&] { return writeUntilKilled(round, channel.writing()); });
        channel.closeWriting();
        pollfd begun{channel.reading(), POLLIN, 0};
        ASSERT_EQ(poll(&begun, 1, 10000), 1);
        usleep(std::uniform_int_distribution<useconds_t>(0, longest_life)(random));
        writer.kill();
        int const changes = bytesUntilTheEnd(channel.reading());
        ASSERT_EQ(writer.printed(), "");
        if (access((path + "-journal").c_str(), F_OK) == 0)
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
    EXPECT_GE(acknowledged, rounds);
    EXPECT_GT(interrupted, 0);
}
