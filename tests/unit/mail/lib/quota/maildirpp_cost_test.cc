// The cost of a count in system calls.

#include "mail/lib/quota/maildirpp_usage.h"
#include "support/host_test.h"
#include "support/maildir_test.h"
#include "support/system_calls.h"

namespace {

class MaildirppCostOnHost : public MaildirTest
{
protected:
    void SetUp() override
    {
        requireHost();
        if (!HasFatalFailure())
            MaildirTest::SetUp();
    }

    static std::map<std::string, long> callsOfACount(fcount_t messages)
    {
        return systemCalls([messages] {
            sizequota_t size = 0;
            fcount_t count = 0;
            if (get_maildirpp_usage("Maildir", &size, &count) != 1 || count != messages)
                _exit(1);
        });
    }
    static long looks(std::map<std::string, long> calls)
    {
        return calls["stat"] + calls["lstat"] + calls["newfstatat"] + calls["statx"];
    }
};

} // namespace

TEST_F(MaildirppCostOnHost, LooksAtNoMessageWhoseNameHoldsItsSize)
{
    for (int i = 0; i < 20000; ++i)
        letter("cur/" + std::to_string(1700000000 + i) + ".M1P2.mail.example.com,S=100:2,S", 0);
    auto calls = callsOfACount(20000);
    ASSERT_GT(calls["getdents64"], 0);
    EXPECT_LT(looks(calls), 20);
    EXPECT_LT(calls["getdents64"], 100);
}

TEST_F(MaildirppCostOnHost, LooksOnceAtEachOther)
{
    for (int i = 0; i < 500; ++i)
        letter("cur/" + std::to_string(i), 1);
    auto const calls = callsOfACount(500);
    EXPECT_GE(looks(calls), 500);
    EXPECT_LT(looks(calls), 520);
}
