#include "mail/lib/quota/maildirpp_usage.h"

#include "support/call_faults.h"
#include "support/maildir_test.h"

#include <climits>

namespace fs = std::filesystem;

namespace {

class MaildirppUsage : public MaildirTest
{
protected:
    // Makes one message of 1000 bytes for the count.
    void SetUp() override
    {
        MaildirTest::SetUp();
        letter("cur/1,S=1000", 0);
    }

    Usage usage()
    {
        Usage found = {-7, 7};
        result = get_maildirpp_usage("Maildir", &found.first, &found.second);
        return found;
    }
    Usage usageBy(std::string const& maildirsize)
    {
        writeFile("Maildir/maildirsize", maildirsize);
        return usage();
    }

    Usage const counted = {1000, 1};
    int result = -1;
};

} // namespace

TEST_F(MaildirppUsage, SumsTheLinesAfterTheFirst)
{
    EXPECT_EQ(usageBy("5000S,0C\n         100           2\n"), Usage(100, 2));
    EXPECT_EQ(usageBy("5000S\n100 2\n20 1\n-40 0\n"), Usage(80, 3));
    EXPECT_EQ(usageBy("anything\n1\t2\n"), Usage(1, 2));
    EXPECT_EQ(usageBy("\n-5 1\n"), Usage(-5, 1));
    EXPECT_EQ(result, 1);
}

TEST_F(MaildirppUsage, NothingAfterTheFirstLineIsNoUsage)
{
    EXPECT_EQ(usageBy("5000S,0C\n"), Usage(0, 0));
    EXPECT_EQ(usageBy("\n"), Usage(0, 0));
    EXPECT_EQ(result, 1);
}

TEST_F(MaildirppUsage, TakesAwayWhatServersTakeAway)
{
    EXPECT_EQ(usageBy("0S,0C\n100 5\n-20 -2\n"), Usage(80, 3));
}

TEST_F(MaildirppUsage, CountsWhenThereIsNoFile)
{
    EXPECT_EQ(usage(), counted);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(errno, 0);
}

TEST_F(MaildirppUsage, CountsWhenALineIsFaulty)
{
    for (char const* const text : {"",
                                   "5000S,0C",
                                   "0S,0C\n5 1",
                                   "0S,0C\n5 1\n6 1",
                                   "0S,0C\n\n",
                                   "0S,0C\n5\n",
                                   "0S,0C\n5\n6 1\n",
                                   "0S,0C\n5 1 \n",
                                   "0S,0C\n5 1 1\n",
                                   "0S,0C\nx 1\n",
                                   "0S,0C\n5 x\n",
                                   "0S,0C\n5x1\n",
                                   "0S,0C\n5 1x\n",
                                   "0S,0C\n5 1\r\n",
                                   "0S,0C\n9223372036854775807 1\n",
                                   "0S,0C\n9223372036854775808 1\n",
                                   "0S,0C\n-9223372036854775808 1\n",
                                   "0S,0C\n-9223372036854775809 1\n",
                                   "0S,0C\n5 18446744073709551615\n",
                                   "0S,0C\n5 18446744073709551616\n",
                                   "0S,0C\n5 -1\n"}) {
        EXPECT_EQ(usageBy(text), counted) << text;
        EXPECT_EQ(result, 1);
    }
    EXPECT_EQ(usageBy(std::string("0S,0C\n5 1\0\n", 11)), counted);
    EXPECT_EQ(usageBy(std::string("0S,0C\n5\0 1\n", 11)), counted);
}

TEST_F(MaildirppUsage, TakesNumbersNextToTheEndsOfTheirRanges)
{
    EXPECT_EQ(usageBy("0S,0C\n9223372036854775806 18446744073709551614\n"),
              Usage(LLONG_MAX - 1, ULLONG_MAX - 1));
    EXPECT_EQ(usageBy("0S,0C\n-9223372036854775807 0\n"), Usage(-LLONG_MAX, 0));
    EXPECT_EQ(usageBy("0S,0C\n9223372036854775806 1\n9223372036854775806 1\n"),
              Usage(LLONG_MAX, 2));
}

TEST_F(MaildirppUsage, TakesAFileOf5120BytesAndNoLongerOne)
{
    std::string const line = "1 1\n";
    std::string exact = "0S";
    exact += std::string((5120 - 3) % 4, 'C') + "\n";
    while (exact.size() < 5120)
        exact += line;
    ASSERT_EQ(exact.size(), 5120U);
    fcount_t const lines = (5120 - 3) / 4;
    EXPECT_EQ(usageBy(exact), Usage(static_cast<sizequota_t>(lines), lines));
    EXPECT_EQ(usageBy("X" + exact), counted);
    EXPECT_EQ(usageBy(exact + line), counted);
}

TEST_F(MaildirppUsage, CountsWhenTheFileCannotBeRead)
{
    fs::create_directory("Maildir/maildirsize");
    EXPECT_EQ(usage(), counted);
    EXPECT_EQ(result, 1);
}

TEST_F(MaildirppUsage, CountsWhenTheFileIsIrregularOrDoublyNamed)
{
    std::string const file = "Maildir/maildirsize";
    writeFile("other", "0S,0C\n42 1\n");
    fs::create_symlink("../other", file);
    EXPECT_EQ(usage(), counted);
    fs::remove(file);
    fs::create_hard_link("other", file);
    EXPECT_EQ(usage(), counted);
    fs::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0666), 0);
    EXPECT_EQ(usage(), counted);
    fs::remove(file);
    writeFile(file, "0S,0C\n42 1\n");
    ASSERT_EQ(truncate(file.c_str(), off_t{8} << 40), 0);
    EXPECT_EQ(usage(), counted);
    EXPECT_EQ(result, 1);
}

TEST_F(MaildirppUsage, EntersNoMaildirThatIsALinkOrAFifo)
{
    fs::rename("Maildir", "Other");
    fs::create_directory_symlink("Other", "Maildir");
    EXPECT_EQ(usage(), Usage(-7, 7));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(errno, ELOOP);
    fs::remove("Maildir");
    ASSERT_EQ(mkfifo("Maildir", 0666), 0);
    EXPECT_EQ(usage(), Usage(-7, 7));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(MaildirppUsage, ComesBackToTheWorkingDirectory)
{
    std::string const before = here();
    usage();
    EXPECT_EQ(here(), before);
    writeFile("Maildir/new/1", "");
    CallFailure const failing("fstatat", EIO);
    usage();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(here(), before);
}

TEST_F(MaildirppUsage, FailsWithoutAMaildirOrAWayBack)
{
    {
        CallFailure const failing("open", EMFILE);
        EXPECT_EQ(usage(), Usage(-7, 7));
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(errno, EMFILE);
    fs::rename("Maildir", "Other");
    EXPECT_EQ(usage(), Usage(-7, 7));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(errno, ENOENT);
}
