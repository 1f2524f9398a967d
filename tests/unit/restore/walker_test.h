// walker_test - base of the suites of the entity walker: a panel with entities, and callbacks
// that note their calls
//
// recording() has all sixteen callbacks set. A call is one text, "addDomain d.test 1". A call
// whose text is in raising is noted and then ends with an exception.

#ifndef MAILVEK_TESTS_UNIT_RESTORE_WALKER_TEST_H
#define MAILVEK_TESTS_UNIT_RESTORE_WALKER_TEST_H

#include "restore/entity_walker.h"
#include "support/captured_streams.h"
#include "support/panel_database_test.h"

#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

inline std::string paramQuery(std::string const& name)
{
    return "SELECT    val  FROM misc    WHERE param='" + name + "'";
}

// The text of an exception for a missing table.
inline std::string tableMissing(std::string const& table)
{
    return "Mysql error 1146: Table 'orv." + table + "' doesn't exist\n executing query";
}

inline std::string queryWarning(std::string const& context, std::string const& table)
{
    return "Warning: MySQL Query error on " + context + ": " + tableMissing(table) + ", ignored\n";
}

inline std::string rowWarning(std::string const& context, std::string const& text)
{
    return "Warning: MySQL Fetch Row Error on " + context + ": " + text + ", row ignored\n";
}

class WalkerTest : public PanelDatabaseTest
{
protected:
    using Callbacks = orvek::mail::restore::MailsrvEntitiesCallbacks;

    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        if (HasFatalFailure())
            return;
        unsetenv("ORVEK_INSTALLER_DEBUG");
        own_conn.emplace(true);
        spy.forget();
    }
    void TearDown() override
    {
        own_conn.reset();
        unsetenv("ORVEK_INSTALLER_DEBUG");
        PanelDatabaseTest::TearDown();
    }

    orvek::mysql::Connection& conn() { return *own_conn; }

    // Adds a domain with its mail service. Its parameters and limits have the domain's number.
    void addDomain(int id, std::string const& name, std::string const& nonexist_mail = "reject",
                   int status = 0, int service_status = 0)
    {
        std::string const number = std::to_string(id);
        run("INSERT INTO domains (id, name, status, limits_id) VALUES (" + number + ", '" + name +
            "', " + std::to_string(status) + ", " + number + ")");
        run("INSERT INTO DomainServices (dom_id, type, status, parameters_id) VALUES (" + number +
            ", 'mail', " + std::to_string(service_status) + ", " + number + ")");
        setCatchall(id, "nonexist_mail", nonexist_mail);
    }
    void setCatchall(int id, std::string const& parameter, std::string const& value)
    {
        run("REPLACE INTO Parameters VALUES (" + std::to_string(id) + ", '" + parameter + "', '" +
            value + "')");
    }
    void addMailname(int id, int domain, std::string const& name, std::string const& columns = "",
                     std::string const& values = "")
    {
        run("INSERT INTO mail (id, dom_id, mail_name" + columns + ") VALUES (" +
            std::to_string(id) + ", " + std::to_string(domain) + ", '" + name + "'" + values + ")");
    }
    void setParam(std::string const& name, std::string const& value)
    {
        run("REPLACE INTO misc VALUES ('" + name + "', '" + value + "')");
    }
    void run(std::string const& statement)
    {
        std::vector<std::string> const rows = panel.sql(statement);
        EXPECT_TRUE(rows.empty()) << statement << ": " << rows.at(0);
    }

    template<class... Values>
    void note(char const* callback, Values const&... values)
    {
        std::ostringstream call;
        call << callback;
        ((call << ' ' << values), ...);
        calls.push_back(call.str());
        if (raising.count(call.str()))
            throw std::runtime_error("boom at " + call.str());
    }

    static std::string listed(std::vector<std::string> const& texts)
    {
        std::string list = "[";
        for (std::string const& text : texts)
            list += "<" + text + ">";
        return list + "]";
    }

    Callbacks recording()
    {
        using orvek::mail::restore::DomainCatchallType;
        using orvek::mail::restore::MailRelayType;
        using Text = Callbacks::Text;
        using List = Callbacks::List;
        Callbacks all;
        all.addDomain = [this](Text d, bool on) { note("addDomain", d, on); };
        all.addDomainAlias = [this](Text d, Text a, bool on) { note("addDomainAlias", d, a, on); };
        all.setDomainCatchall = [this](Text d, DomainCatchallType type, Text parameter) {
            static char const* const names[] = {"bounce", "catch", "reject"};
            note("setDomainCatchall", d, names[static_cast<int>(type)], "<" + parameter + ">");
        };
        all.addMailname = [this](Text d, Text m) { note("addMailname", d, m); };
        all.addMailForward = [this](Text d, Text m, Text a) { note("addMailForward", d, m, a); };
        all.addMailGroup = [this](Text d, Text m, List a) {
            note("addMailGroup", d, m, listed(a));
        };
        all.addMailAlias = [this](Text d, Text m, Text a) { note("addMailAlias", d, m, a); };
        all.addWhitelistNetwork = [this](Text a, unsigned short bits) {
            note("addWhitelistNetwork", a, bits);
        };
        all.addBlacklistedDomain = [this](Text d) { note("addBlacklistedDomain", d); };
        all.setRblServers = [this](List servers) { note("setRblServers", listed(servers)); };
        all.setSubmission = [this](bool on) { note("setSubmission", on); };
        all.setMaxMessageSize = [this](long bytes) { note("setMaxMessageSize", bytes); };
        all.setRelay = [this](MailRelayType type, bool smtp, bool pop, short minutes) {
            static char const* const names[] = {"open", "closed", "auth"};
            note("setRelay", names[static_cast<int>(type)], smtp, pop, minutes);
        };
        all.setShortNames = [this](bool on) { note("setShortNames", on); };
        all.setMailbox = [this](Text d, Text m, bool on) { note("setMailbox", d, m, on); };
        all.setMailboxQuota = [this](Text d, Text m, long bytes) {
            note("setMailboxQuota", d, m, bytes);
        };
        return all;
    }

    // Walks with the callbacks and returns standard error.
    std::string walked(Callbacks callbacks)
    {
        CapturedStreams const streams;
        orvek::mail::restore::walkMailServerEntities(callbacks);
        EXPECT_EQ(streams.out(), streams.err());
        progress = streams.log();
        return streams.err();
    }

    // Walks with only this callback. Returns its calls and the warnings.
    template<class Member>
    std::string walkedWith(Member member)
    {
        calls.clear();
        Callbacks callbacks;
        callbacks.*member = recording().*member;
        return walked(callbacks);
    }

    // The calls of one callback.
    std::vector<std::string> callsOf(std::string const& callback) const
    {
        std::vector<std::string> found;
        for (std::string const& call : calls)
            if (call.compare(0, callback.size() + 1, callback + " ") == 0)
                found.push_back(call);
        return found;
    }

    std::optional<orvek::mysql::Connection> own_conn;
    std::vector<std::string> calls;
    std::set<std::string> raising;
    std::string progress;
};

#endif
