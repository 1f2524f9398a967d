#include "mail/lib/accounts/mail_auth_detect.h"

#include "lib/conf/autoprepend.h"
#include "lib/conf/read_configuration.h"
#include "lib/report/owned.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/log_recorder.h"
#include "support/set_aside.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include <sys/resource.h>
#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

namespace {

class MailAuthDetect : public ::testing::Test
{
protected:
    MailAuthDBStyle styleOf(std::string const& report)
    {
        OpenFile const file(tmpfile());
        fputs(report.c_str(), file.get());
        rewind(file.get());
        return style_of_feature_report(file.get());
    }
    MailAuthDBStyle styleOfValue(std::string const& value)
    {
        return styleOf("$features['SMTP_Server'] = \"" + value + "\";\n");
    }
    std::vector<Report> const& reports() const { return LogRecorder::reports(); }

private:
    LogRecorder const recorder;
};

// Runs mailAuthDBDetectStyle in a child with root as the product's directory.
ChildRun detectBelow(
    std::string const& root, std::function<void()> const& prepare = [] {})
{
    TempDir const dir;
    writeFile(dir / "conf", "PRODUCT_ROOT_D " + root + "\n");
    return inChild([&] {
        auto* const conf = static_cast<conf_data*>(calloc(1, sizeof(conf_data)));
        if (conf_read_file_r((dir / "conf").c_str(), conf) != 0)
            return 99;
        theOrvConfHash = conf;
        prepare();
        return mailAuthDBDetectStyle() + 10;
    });
}

void writeTool(std::string const& root, std::string const& script)
{
    std::filesystem::create_directories(root + "/admin/sbin");
    writeFile(root + "/admin/sbin/mailvek", "#!/bin/sh\n" + script);
    chmod((root + "/admin/sbin/mailvek").c_str(), 0755);
}

constexpr char undetermined[] =
    "Unable to determine mail server type from ``mailvek --features''\n";

class MailAuthDetectOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        std::filesystem::create_directories("/usr/local/orv/admin/sbin");
        tool.emplace("/usr/local/orv/admin/sbin/mailvek");
    }

private:
    std::optional<SetAside> tool;
};

} // namespace

TEST_F(MailAuthDetect, FindsTheServerInTheReport)
{
    EXPECT_EQ(styleOf("$features['Relay'] = true;\n"
                      "$features['SMTP_Server'] = \"Postfix\";\n"
                      "$features['SMTP_Server_package'] = \"qmail\";\n"),
              MAIL_AUTH_DB_POSTFIX_STYLE);
    EXPECT_EQ(styleOf("$features['SMTP_Server'] = 'QMail';"), MAIL_AUTH_DB_QMAIL_STYLE);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthDetect, PassesOverOtherLinesInSilence)
{
    EXPECT_EQ(styleOf("$features['SMTP_Server_package'] = \"postfix\";\n"
                      " $features['SMTP_Server'] = \"postfix\";\n"
                      "$Features['SMTP_Server'] = \"postfix\";\n"
                      "\n$features"),
              MAIL_AUTH_DB_INVALID_STYLE);
    EXPECT_EQ(styleOf(""), MAIL_AUTH_DB_INVALID_STYLE);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthDetect, TakesQuotesOfEitherKind)
{
    EXPECT_EQ(styleOf("$features['SMTP_Server']'qmail\""), MAIL_AUTH_DB_QMAIL_STYLE);
    EXPECT_EQ(styleOf("$features['SMTP_Server'] \"qmail'"), MAIL_AUTH_DB_QMAIL_STYLE);
    EXPECT_EQ(styleOf("$features['SMTP_Server'] = x\"qmail' \"postfix\""),
              MAIL_AUTH_DB_QMAIL_STYLE);
}

TEST_F(MailAuthDetect, SkipsALineWithoutAValue)
{
    EXPECT_EQ(styleOf("$features['SMTP_Server'] = true;\n"
                      "$features['SMTP_Server'] = \"%s\n"
                      "$features['SMTP_Server']\n"
                      "$features['SMTP_Server'] = \"qmail\";\n"),
              MAIL_AUTH_DB_QMAIL_STYLE);
    EXPECT_THAT(
        reports(),
        ElementsAre(Pair(6, "Unparseable line \"$features['SMTP_Server'] = true;\", skipped"),
                    Pair(6, "Unparseable line \"$features['SMTP_Server'] = \"%s\", skipped"),
                    Pair(6, "Unparseable line \"$features['SMTP_Server']\", skipped")));
}

TEST_F(MailAuthDetect, ComparesAllButTheLastCharacterOfTheValue)
{
    for (char const* const value :
         {"postfix", "POSTFIX", "postfiy", "postfi", "postfixx", "post", "pp", "q", "x"})
        EXPECT_EQ(styleOfValue(value), MAIL_AUTH_DB_POSTFIX_STYLE) << value;
    for (char const* const value : {"qmail", "QMAIL", "qmaix", "qmails", "qq"})
        EXPECT_EQ(styleOfValue(value), MAIL_AUTH_DB_QMAIL_STYLE) << value;
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthDetect, SkipsAnUnknownServerByItsShortenedName)
{
    EXPECT_EQ(styleOf("$features['SMTP_Server'] = \"exim\";\n"
                      "$features['SMTP_Server'] = \"postfixed\";\n"
                      "$features['SMTP_Server'] = \"qmail\";\n"),
              MAIL_AUTH_DB_QMAIL_STYLE);
    EXPECT_THAT(reports(), ElementsAre(Pair(6, "Unknown server style \"exi\", skipped"),
                                       Pair(6, "Unknown server style \"postfixe\", skipped")));
}

TEST_F(MailAuthDetect, ComparesAnEmptyValueWithoutABound)
{
    EXPECT_EQ(styleOfValue(""), MAIL_AUTH_DB_INVALID_STYLE);
    EXPECT_THAT(reports(), ElementsAre(Pair(6, "Unknown server style \"\";\", skipped")));
}

TEST_F(MailAuthDetect, ReadsNoFurtherThanTheLineThatDecides)
{
    OpenFile const file(tmpfile());
    fputs("$features['SMTP_Server'] = \"qmail\";\nrest", file.get());
    rewind(file.get());
    EXPECT_EQ(style_of_feature_report(file.get()), MAIL_AUTH_DB_QMAIL_STYLE);
    char rest[16] = "";
    EXPECT_STREQ(fgets(rest, sizeof rest, file.get()), "rest");
}

TEST_F(MailAuthDetect, ReadsLinesOfAnyLength)
{
    EXPECT_EQ(styleOf(std::string(100000, 'x') +
                      "\n$features['SMTP_Server'] = " + std::string(100000, ' ') + "\"qmail\";\n"),
              MAIL_AUTH_DB_QMAIL_STYLE);
}

TEST(MailAuthDetectStyle, AsksTheToolOfTheProduct)
{
    TempDir const root;
    writeTool(root.path(), "test \"$*\" = --features || exit 1\n"
                           "echo '$features['\\''SMTP_Server'\\''] = \"qmail\";'\n");
    ChildRun const run = detectBelow(root.path());
    EXPECT_EQ(run.status, 10 + MAIL_AUTH_DB_QMAIL_STYLE);
    EXPECT_EQ(run.err, "");
}

TEST(MailAuthDetectStyle, SaysThatNothingWasFound)
{
    TempDir const root;
    writeTool(root.path(), "echo '$features['\\''SMTP_Server'\\''] = \"exim\";'\n");
    ChildRun const run = detectBelow(root.path());
    EXPECT_EQ(run.status, 10 + MAIL_AUTH_DB_INVALID_STYLE);
    EXPECT_EQ(run.err, std::string("Unknown server style \"exi\", skipped\n") + undetermined);
    EXPECT_EQ(run.out, run.err);
}

TEST(MailAuthDetectStyle, SaysThatNothingWasFoundWithoutATool)
{
    TempDir const root;
    ChildRun const run = detectBelow(root.path());
    EXPECT_EQ(run.status, 10 + MAIL_AUTH_DB_INVALID_STYLE);
    EXPECT_EQ(run.out, undetermined);
    EXPECT_THAT(run.err, ::testing::EndsWith(undetermined)) << "the shell's own word comes first";
}

TEST(MailAuthDetectStyle, RefusesAPathThatDoesNotFit)
{
    std::string const end = "/admin/sbin/mailvek --features";
    std::string const fits = "/" + std::string(4095 - 1 - end.size(), 'x');
    EXPECT_EQ(detectBelow(fits).out, undetermined);
    ChildRun const run = detectBelow(fits + "x");
    EXPECT_EQ(run.status, 10 + MAIL_AUTH_DB_INVALID_STYLE);
    EXPECT_EQ(run.out, "path to mailvek is too long, check PRODUCT_ROOT_D (" + fits + "x)\n");
    EXPECT_EQ(run.err, run.out);
}

TEST(MailAuthDetectStyle, ReportsAToolThatCannotBeStarted)
{
    ChildRun const run = detectBelow("/root/of/product", [] {
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        rlimit const none = {0, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        MailAuthDBStyle const style = mailAuthDBDetectStyle();
        setrlimit(RLIMIT_NOFILE, &limit);
        exit(style + 10);
    });
    EXPECT_EQ(run.status, 10 + MAIL_AUTH_DB_INVALID_STYLE);
    EXPECT_EQ(run.err, "unable to execute /root/of/product/admin/sbin/mailvek --features: Too many "
                       "open files\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(MailAuthDetectStyle, WaitsForTheToolAndLeavesNothingOpen)
{
    TempDir const root;
    writeTool(root.path(), "echo '$features['\\''SMTP_Server'\\''] = \"qmail\";'\n"
                           "exec >/dev/null\nsleep 0.1\ntouch \"$0.ended\"\n");
    ChildRun const run = detectBelow(root.path(), [] {
        std::set<int> const before = openDescriptors();
        if (mailAuthDBDetectStyle() != MAIL_AUTH_DB_QMAIL_STYLE || openDescriptors() != before)
            _exit(98);
    });
    EXPECT_EQ(run.status, 10 + MAIL_AUTH_DB_QMAIL_STYLE);
    EXPECT_TRUE(std::filesystem::exists(root / "admin/sbin/mailvek.ended"));
}

TEST_F(MailAuthDetectOnHost, AsksTheToolInItsDefaultPlace)
{
    writeTool("/usr/local/orv", "echo '$features['\\''SMTP_Server'\\''] = \"Postfix\";'\n");
    ChildRun const run = inChild([] { return mailAuthDBDetectStyle() + 10; });
    EXPECT_EQ(run.status, 10 + MAIL_AUTH_DB_POSTFIX_STYLE);
}
