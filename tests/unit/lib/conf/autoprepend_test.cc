#include "lib/conf/autoprepend.h"

#include "lib/conf/read_configuration.h"
#include "lib/report/product_log.h"
#include "support/child_run.h"
#include "support/host_test.h"
#include "support/memory_faults.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

// Runs code in a child in which a file with this text counts as loaded.
ChildRun withLoaded(std::string const& text, std::function<int()> const& code)
{
    TempDir const dir;
    writeFile(dir / "conf", text);
    return inChild([&] {
        auto* const conf = static_cast<conf_data*>(calloc(1, sizeof(conf_data)));
        if (conf_read_file_r((dir / "conf").c_str(), conf) != 0)
            return 99;
        theOrvConfHash = conf;
        return code();
    });
}

bool same(char const* value, std::string const& expected)
{
    return value && value == expected;
}

constexpr char configuration[] = "/etc/orv/orv.conf";

// Gives every test a host without the file, and the host its file back.
class AutoprependOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        std::filesystem::create_directories("/etc/orv");
        if (std::filesystem::exists(configuration))
            std::filesystem::rename(configuration, aside);
        away = true;
    }
    void TearDown() override
    {
        if (!away)
            return;
        std::filesystem::remove(configuration);
        if (std::filesystem::exists(aside))
            std::filesystem::rename(aside, configuration);
    }

private:
    static constexpr char aside[] = "/etc/orv/orv.conf.before-test";
    bool away = false;
};

constexpr char missing_file[] =
    "unable to open configuration file /etc/orv/orv.conf: No such file or directory\n\n";

} // namespace

TEST(Autoprepend, DoesNothingOnceAFileIsLoaded)
{
    auto const run = withLoaded("NAME value\n", [] {
        conf_data const* const before = theOrvConfHash;
        return autoprepend() == 0 && theOrvConfHash == before ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(Autoprepend, ZeroesTheCacheBeforeItLoads)
{
    auto const run = inChild([] {
        theOrvConfArray.fill("stale");
        AllocationFailure const failure(1);
        autoprepend();
        for (char const* const value : theOrvConfArray)
            if (value)
                return 1;
        return arrayInitialized ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(Autoprepend, ReportsThatThereIsNoMemoryForTheConfiguration)
{
    auto const run = inChild([] {
        AllocationFailure const failure(1);
        int const result = autoprepend();
        return result == -1 && !theOrvConfHash ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Not enough memory to allocate Orvek runtime configuration structure\n"
                       "\nSystem error 12: Cannot allocate memory\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(OrvConfGet, GivesTheFilesValueOrNullWithoutDefault)
{
    auto const run = withLoaded("NO_RESTART_DAEMON 1\n", [] {
        return same(orvConfGet("NO_RESTART_DAEMON"), "1") && !orvConfGet("PRODUCT_ROOT_D") ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST(OrvConfGetByIndex, GivesTheValueOfTheFileOrNull)
{
    auto const run = withLoaded("PRODUCT_ROOT_D /opt/orv\n", [] {
        return same(orvConfGetByIndex(_PRODUCT_ROOT_D_INDEX), "/opt/orv") &&
                       !orvConfGetByIndex(_HTTPD_SERVICE_INDEX)
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(OrvConfGetByIndex, ZeroesTheCacheOnce)
{
    auto const run = withLoaded("PRODUCT_ROOT_D /opt/orv\n", [] {
        theOrvConfArray.fill("stale");
        if (!same(orvConfGetByIndex(_PRODUCT_ROOT_D_INDEX), "/opt/orv") || arrayInitialized == 0)
            return 1;
        theOrvConfArray[_DUMP_D_INDEX] = "cached";
        return same(orvConfGetByIndex(_DUMP_D_INDEX), "cached") ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(OrvConfGetByIndex, CachesAValueAndNotItsAbsence)
{
    auto const run = withLoaded("PRODUCT_ROOT_D /opt/orv\n", [] {
        char const* const value = orvConfGetByIndex(_PRODUCT_ROOT_D_INDEX);
        orvConfGetByIndex(_DUMP_D_INDEX);
        if (theOrvConfArray[_PRODUCT_ROOT_D_INDEX] != value || theOrvConfArray[_DUMP_D_INDEX])
            return 1;
        conf_set_r("DUMP_D", "/dumps", theOrvConfHash);
        return same(orvConfGetByIndex(_DUMP_D_INDEX), "/dumps") ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(OrvConfGetDefaultByIndex, FallsBackToTheDefault)
{
    auto const run = withLoaded("PRODUCT_ROOT_D /opt/orv\n", [] {
        return same(orvConfGetDefaultByIndex(_PRODUCT_ROOT_D_INDEX), "/opt/orv") &&
                       same(orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX),
                            "/var/qmail/mailnames")
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(OrvConfGetDefault, LooksUpAllNamesOfTheTableButTheLast)
{
    auto const run = withLoaded("PRODUCT_ROOT_D /opt/orv\n", [] {
        return same(orvConfGetDefault("PRODUCT_ROOT_D"), "/opt/orv") &&
                       same(orvConfGetDefault("NAMED_ZONES_CONF"),
                            "/etc/named.conf.include.orvek-zones") &&
                       same(orvConfGetDefault("_MIN_POSSIBLE_ORV_CONF_VAR_NAME"),
                            "_MIN_POSSIBLE_ORV_CONF_VAR_VALUE")
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");

    auto const last =
        withLoaded("", [] { return orvConfGetDefault("_MAX_POSSIBLE_ORV_CONF_VAR_NAME") ? 1 : 0; });
    EXPECT_EQ(last.status, 0);
    EXPECT_EQ(last.err, "variable '_MAX_POSSIBLE_ORV_CONF_VAR_NAME' isn't found neither in "
                        "/etc/orv/orv.conf nor in compile-time defaults\n");
}

TEST(OrvConfGetDefault, ReportsANameOutsideTheTableThoughConfigured)
{
    auto const run = withLoaded("NO_RESTART_DAEMON 1\n", [] {
        errno = 0;
        return orvConfGetDefault("NO_RESTART_DAEMON") ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "variable 'NO_RESTART_DAEMON' isn't found neither in /etc/orv/orv.conf nor "
                       "in compile-time defaults\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(AutoprependOnHost, LoadsTheFileAtTheFirstLookup)
{
    writeFile(configuration, "PRODUCT_ROOT_D /opt/orv\nORVEK_MAILNAMES_D /mail # here\n");
    auto const run = inChild([] {
        bool const before = theOrvConfHash == nullptr;
        return before && same(orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX), "/mail") &&
                       theOrvConfHash && autoprepend() == 0
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST_F(AutoprependOnHost, ReadsAGoodFileOnlyOnce)
{
    writeFile(configuration, "PRODUCT_ROOT_D /opt/orv\n");
    auto const run = inChild([] {
        orvConfGet("PRODUCT_ROOT_D");
        writeFile(configuration, "PRODUCT_ROOT_D /changed\nDUMP_D /changed\n");
        return same(orvConfGet("PRODUCT_ROOT_D"), "/opt/orv") && !orvConfGet("DUMP_D") ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(AutoprependOnHost, ReportsAMissingFileAtEachLookup)
{
    auto const run = inChild([] {
        LogLevel = 12;
        bool const right =
            autoprepend() == -1 && errno == ENOENT && !orvConfGet("PRODUCT_ROOT_D") &&
            !orvConfGetByIndex(_PRODUCT_ROOT_D_INDEX) &&
            same(orvConfGetDefaultByIndex(_PRODUCT_ROOT_D_INDEX), "/usr/local/orv") &&
            same(orvConfGetDefault("DUMP_TMP_D"), "/tmp") && !theOrvConfHash;
        return right ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    std::string reports;
    for (int i = 0; i < 5; ++i)
        reports += missing_file;
    EXPECT_EQ(run.err, reports);
    EXPECT_EQ(run.out, reports);
}

TEST_F(AutoprependOnHost, IsSilentAboutAMissingFileByDefault)
{
    auto const run = printedBy([] { orvConfGetDefaultByIndex(_PRODUCT_ROOT_D_INDEX); });
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "");
}

TEST_F(AutoprependOnHost, TriesAgainAfterAFailure)
{
    auto const run = inChild([] {
        if (orvConfGet("DUMP_D"))
            return 1;
        writeFile(configuration, "DUMP_D /dumps\n");
        return same(orvConfGetDefaultByIndex(_DUMP_D_INDEX), "/dumps") ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(AutoprependOnHost, LoadsAnEmptyFile)
{
    writeFile(configuration, "");
    auto const run = inChild([] {
        return autoprepend() == 0 && theOrvConfHash && theOrvConfHash->nmemb == 0 &&
                       !orvConfGet("DUMP_D")
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(AutoprependOnHost, TakesTheGoodLinesOfADamagedFile)
{
    writeFile(configuration, "DUMP_D=/x\nDUMP_TMP_D\nPRODUCT_ROOT_D /opt/orv\n");
    auto const run = inChild([] {
        return same(orvConfGetDefaultByIndex(_DUMP_D_INDEX), "/var/lib/orv/dumps") &&
                       same(orvConfGetDefaultByIndex(_DUMP_TMP_D_INDEX), "/tmp") &&
                       same(orvConfGetDefaultByIndex(_PRODUCT_ROOT_D_INDEX), "/opt/orv")
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}
