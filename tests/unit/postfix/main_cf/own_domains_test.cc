#include "postfix/main_cf/own_domains.h"

#include "support/main_cf_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <unistd.h>

using namespace orvek::mail::postfix;

namespace {

class OwnDomainsOnHost : public MainCfTest
{
protected:
    // Sets postconf's answers for the two parameters.
    void answer(std::string const& destination, std::string const& name)
    {
        postconf.run("printf '%s\\n%s\\n' '" + destination + "' '" + name + "'");
    }
};

} // namespace

TEST_F(OwnDomainsOnHost, AreTheLocalDomainAndTheHostsName)
{
    answer("", "");

    EXPECT_TRUE(isOwnDomain("localhost.localdomain"));
    EXPECT_TRUE(isOwnDomain("LOCALHOST.localdomain"));
    char name[256] = {};
    gethostname(name, sizeof name);
    EXPECT_TRUE(isOwnDomain(name));
    EXPECT_FALSE(isOwnDomain("d.test"));
}

TEST_F(OwnDomainsOnHost, AreWhatMydestinationAndMyhostnameExpandTo)
{
    answer("a.test, b.test localhost", "mx.test");

    for (char const* const own : {"a.test", "b.test", "localhost", "mx.test", "A.Test"})
        EXPECT_TRUE(isOwnDomain(own)) << own;
    EXPECT_FALSE(isOwnDomain("xa.test"));
    EXPECT_FALSE(isOwnDomain("test"));
    EXPECT_NE(postconf.journal().find("-h -x mydestination myhostname"), std::string::npos);
}

TEST_F(OwnDomainsOnHost, AreLocalWhenMydestinationHoldsThem)
{
    postconf.run("echo 'a.test, b.test localhost'");

    for (char const* const local : {"a.test", "b.test", "A.Test", "localhost.localdomain"})
        EXPECT_TRUE(isLocalDomain(local)) << local;
    char name[256] = {};
    gethostname(name, sizeof name);
    EXPECT_FALSE(isLocalDomain(name));
    EXPECT_FALSE(isLocalDomain("mx.test"));
}

TEST_F(OwnDomainsOnHost, AreWhatATableOfMydestinationHolds)
{
    answer("inline:{a.test=1}", "mx.test");

    EXPECT_TRUE(isOwnDomain("a.test"));
    EXPECT_FALSE(isOwnDomain("b.test"));
}

TEST_F(OwnDomainsOnHost, CannotBeToldWithoutPostconf)
{
    postconf.run("echo 'postconf: fatal: no' >&2; exit 1");

    EXPECT_THROW(isOwnDomain("d.test"), orvek::mail::postfix::PostfixConfigurationError);
}
