#include "postfix/domains/domain_manager.h"

#include "support/managers_test.h"
#include "util/errors.h"

using namespace orvek::mail::postfix;

using RenamedAliasDomainOnHost = ManagersTest;

TEST_F(RenamedAliasDomainOnHost, CompletesAnInterruptedRenameOfAnAliasDomain)
{
    panelDomain("d.test", {});
    panelMailname("a", {});
    Content const renamed = {{"y.test", "1"}, {"a@y.test", "a@d.test"}};
    fill(virtual_map, renamed);
    DomainManager::renameDomainAlias("d.test", "x.test", "y.test");
    EXPECT_EQ(contentOf(virtual_map), renamed);
}

TEST_F(RenamedAliasDomainOnHost, RenamesNoAliasDomainToANameThatExists)
{
    panelDomain("d.test", {});
    panelMailname("a", {});
    auto const rename = [] { DomainManager::renameDomainAlias("d.test", "x.test", "y.test"); };
    for (Content const& records : {Content{{"x.test", "1"}, {"y.test", "1"}},
                                   Content{{"y.test", "1"}, {"a@y.test", "a@other.test"}}}) {
        fill(virtual_map, records);
        EXPECT_THROW(rename(), PostfixDatabaseError);
        EXPECT_EQ(contentOf(virtual_map), records);
    }
    fill(virtual_map, {{"x.test", "1"}});
    fill(virtual_domains_map, {{"y.test", "y.test/"}});
    EXPECT_THROW(rename(), PostfixDatabaseError);
    fill(virtual_domains_map, {});
    std::filesystem::create_directory(std::string(mailnames) + "/y.test");
    EXPECT_THROW(rename(), PostfixDatabaseError);
    EXPECT_EQ(contentOf(virtual_map), (Content{{"x.test", "1"}}));
}
