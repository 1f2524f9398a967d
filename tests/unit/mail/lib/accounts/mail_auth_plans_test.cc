#include "mail/lib/accounts/mail_authenticate.h"

#include "support/auth_database_test.h"
#include "support/auth_user_data.h"

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

int look(char const*, char const*, MailAuthFlagsT, void*)
{
    return 1;
}

class MailAuthPlans : public AuthDatabaseTest
{
protected:
    // All operations, and so all statements.
    static void operate()
    {
        mailAuthSet("joe", "a.com", "pw", 0);
        mailAuthSet("ann", "a.com", "pw", MAIL_AUTH_CRYPTED);
        mailAuthClone("joe", "a.com", "joe", "b.com");
        mailAuthRename("joe", "jim", "a.com");
        mailAuthRemove("jim", "a.com");
        mailAuthCheck("ann@a.com", look, nullptr);
        mailAuthCheckShort("ann", look, nullptr);
        mailAuthIterateAll(look, nullptr);
        mailAuthDisableDomain("a.com");
        mailAuthRenameDomain("a.com", "c.com");
        mailAuthRemoveDomain("c.com");
    }

    // Its last column says what is read and how.
    std::vector<std::string> planOf(std::string const& statement) const
    {
        return sql("EXPLAIN QUERY PLAN " + statement);
    }
};

} // namespace

TEST_F(MailAuthPlans, FindRowsOfEveryStatementByAnIndex)
{
    operate();
    EXPECT_THAT(reports(), IsEmpty());
    EXPECT_THAT(spy.prepared, SizeIs(14));
    for (std::string const& statement : spy.prepared) {
        std::vector<std::string> const plan = planOf(statement);
        for (std::string const& step : plan) {
            SCOPED_TRACE(statement + ": " + step);
            bool const reads =
                step.find("SCAN") != std::string::npos || step.find("SEARCH") != std::string::npos;
            bool const by_index = step.find("INDEX") != std::string::npos ||
                                  step.find("INTEGER PRIMARY KEY") != std::string::npos;
            EXPECT_TRUE(!reads || by_index);
        }
        EXPECT_EQ(plan.empty(), statement.starts_with("INSERT")) << statement;
    }
}

TEST_F(MailAuthPlans, FindTheUsersOfARemovedDomainByAnIndex)
{
    EXPECT_THAT(planOf("DELETE FROM users WHERE dom_id = 1"),
                Contains(HasSubstr("USING INDEX users_dom_id")));
}

TEST_F(MailAuthPlans, WouldShowAStatementWithoutAnIndex)
{
    EXPECT_THAT(planOf("SELECT name FROM users WHERE status=?"),
                Each(AllOf(HasSubstr("SCAN users"), ::testing::Not(HasSubstr("INDEX")))));
}
