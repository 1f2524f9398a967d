// Counting and writing while the mailbox changes all the time.

#include "mail/lib/quota/maildirpp_maildirsize.h"
#include "mail/lib/quota/maildirpp_usage.h"
#include "support/child_run.h"
#include "support/maildir_test.h"
#include "support/worker.h"

#include <sstream>
#include <string>

#include <sys/prctl.h>

namespace {

using MaildirppChurn = MaildirTest;

void deliver(int number)
{
    std::string const name = "Maildir/tmp/" + std::to_string(number);
    writeFile(name, "letter");
    std::string const target = "Maildir/new/" + std::to_string(number % 50);
    rename(name.c_str(), (number % 2 == 0 ? target + ",S=6" : target).c_str());
}

// Delivers, reads and expunges letters and renames a folder, until it is killed.
int churn()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (int number = 0;; ++number) {
        deliver(number);
        std::string const letter = std::to_string((number + 25) % 50);
        rename(("Maildir/new/" + letter).c_str(), ("Maildir/cur/" + letter).c_str());
        unlink(("Maildir/cur/" + std::to_string((number + 10) % 50)).c_str());
        unlink(("Maildir/new/" + letter + ",S=6").c_str());
        rename("Maildir/.One", "Maildir/.Two");
        rename("Maildir/.Two", "Maildir/.One");
    }
}

} // namespace

TEST_F(MaildirppChurn, NeverFailsAWriteAndDatesTheFileCorrectly)
{
    folder(".One");
    for (int number = 0; number < 40; ++number)
        letter(".One/cur/" + std::to_string(number), 10);
    Worker worker("reports", churn);
    int dated_back = 0;
    // A busy machine may need more of them until a count is overtaken by a change.
    time_t const patience = time(nullptr) + 45;
    for (int i = 0; i < 150 || (dated_back == 0 && time(nullptr) < patience); ++i) {
        time_t const start = time(nullptr);
        // In a child, to capture the reports of folders that vanish during the count.
        auto const run = inChild([] {
            return write_maildirpp_maildirsize("Maildir", getuid(), getgid(), 5000, 0) == 1 ? 0 : 1;
        });
        ASSERT_EQ(run.status, 0) << run.err;
        time_t const end = time(nullptr);
        time_t const dated = timeOf("Maildir/maildirsize");
        bool const back = dated < start - 500;
        dated_back += back ? 1 : 0;
        if (back) {
            // Dated by the last change that the count has seen.
            EXPECT_GE(dated, start - 960 - 5);
            EXPECT_LE(dated, end - 960);
        } else {
            EXPECT_GE(dated, start - 1);
            EXPECT_LE(dated, end + 1);
        }
        long long size = -1;
        unsigned long long count = 0;
        std::string quota;
        std::istringstream text(readFile("Maildir/maildirsize"));
        ASSERT_TRUE(text >> quota >> size >> count);
        EXPECT_EQ(quota, "5000S,0C");
        EXPECT_LE(count, 200U);
    }
    EXPECT_GT(dated_back, 0);
}

TEST_F(MaildirppChurn, NeverFailsACount)
{
    folder(".One");
    Worker worker("reports", churn);
    for (int i = 0; i < 300; ++i) {
        sizequota_t size = -1;
        fcount_t count = 0;
        ASSERT_EQ(get_maildirpp_usage("Maildir", &size, &count), 1) << errno;
        EXPECT_GE(size, 0);
    }
}
