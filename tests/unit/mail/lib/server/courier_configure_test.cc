#include "mail/lib/server/courier_configure.h"

#include "build_paths.h"
#include "lib/conf/autoprepend.h"
#include "lib/conf/read_configuration.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/host_test.h"
#include "support/init_scripts.h"
#include "support/pauses.h"
#include "support/report.h"
#include "support/rights.h"
#include "support/stand_in.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

std::vector<std::string> const names = {"imapd", "imapd-ssl", "pop3d", "pop3d-ssl"};

// How a temporary file is opened.
constexpr int making = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

constexpr EnvChange one_change[] = {{"A", ENV_ADD, "2"}, {nullptr, ENV_ADD, nullptr}};

// Courier's files in a directory of the test. No daemon is touched.
class CourierConfigure : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(root / "etc/courier-imap");
        for (std::string const& name : names)
            writeFile(pathOf(name), "A=1\n");
    }

    std::string pathOf(std::string const& name) const { return root / "etc/courier-imap/" + name; }

    static void configure(std::string const& courier_root)
    {
        static auto& kept = *new std::vector<conf_data*>; // a call may end the process
        auto* const conf = static_cast<conf_data*>(calloc(1, sizeof(conf_data)));
        kept.push_back(conf);
        conf_set_r("COURIER_IMAP_ROOT_D", courier_root.c_str(), conf);
        conf_set_r("NO_RESTART_DAEMON", "1", conf);
        theOrvConfHash = conf;
    }

    // The result of a call and its output on both streams.
    std::string outcomeOf(
        std::function<int()> const& call, std::function<void()> const& prepare = [] {}) const
    {
        ChildRun const run = inChild([&] {
            configure(root.path());
            prepare();
            errno = 0;
            return call() + 10;
        });
        EXPECT_EQ(run.out, run.err);
        return std::to_string(run.status - 10) + "|" + run.err;
    }

    std::string changed(std::function<void()> const& prepare = [] {}) const
    {
        return outcomeOf([] { return set_courier_params_list(one_change); }, prepare);
    }

    // The files' texts, and the names of all other files beside them.
    std::string left() const
    {
        std::string texts;
        for (std::string const& name : names)
            texts += std::filesystem::is_directory(pathOf(name)) ? "directory|"
                                                                 : readFile(pathOf(name)) + "|";
        for (auto const& entry : std::filesystem::directory_iterator(root / "etc/courier-imap"))
            if (std::find(names.begin(), names.end(), entry.path().filename()) == names.end())
                texts += entry.path().filename().string();
        return texts;
    }

    // The files after a call that finds this text in each of them.
    std::string leftBy(std::string const& before, std::function<int()> const& call)
    {
        for (std::string const& name : names)
            writeFile(pathOf(name), before);
        EXPECT_EQ(outcomeOf(call), "0|");
        std::string const text = readFile(pathOf("imapd"));
        EXPECT_EQ(left(), text + "|" + text + "|" + text + "|" + text + "|");
        return text;
    }

    TempDir const root;
};

} // namespace

TEST_F(CourierConfigure, ChangesAllFilesInSilence)
{
    EXPECT_EQ(changed(), "0|");
    EXPECT_EQ(left(), "A=2\n|A=2\n|A=2\n|A=2\n|");
}

TEST_F(CourierConfigure, LeavesNoDescriptor)
{
    std::filesystem::remove(pathOf("pop3d"));
    ChildRun const run = tidyRun([&] {
        configure(root.path());
        static_cast<void>(set_courier_params_list(one_change));
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(CourierConfigure, RewritesAFileInWhichNothingChanges)
{
    EnvChange const env[] = {{"B", ENV_DEL, nullptr}, {nullptr, ENV_ADD, nullptr}};
    chmod(pathOf("imapd").c_str(), 0644);
    EXPECT_EQ(outcomeOf([&] { return set_courier_params_list(env); }), "0|");
    EXPECT_EQ(left(), "A=1\n|A=1\n|A=1\n|A=1\n|");
    EXPECT_EQ(modeOf(pathOf("imapd")), 0600U);
}

TEST_F(CourierConfigure, PassesAFileOverThatIsNotThere)
{
    std::filesystem::remove(pathOf("imapd-ssl"));
    EXPECT_EQ(changed(), "0|" + withErrno("Unable to open " + pathOf("imapd-ssl") +
                                              ": No such file or directory\n",
                                          ENOENT));
    EXPECT_EQ(left(), "A=2\n||A=2\n|A=2\n|");
    EXPECT_FALSE(std::filesystem::exists(pathOf("imapd-ssl")));
}

TEST_F(CourierConfigure, SetsOrRemovesItsFourVariables)
{
    EXPECT_EQ(leftBy("", [] { return set_courier_params(1, 1, 20, 1); }),
              "RELAYCLIENT=\nPOPAUTH=1\nSHORTNAMES=1\nPOPLOCK_TIME=20\n");
    EXPECT_EQ(leftBy("", [] { return set_courier_params(-1, 2, 32767, 3); }),
              "RELAYCLIENT=\nPOPAUTH=1\nSHORTNAMES=1\nPOPLOCK_TIME=32767\n");
    std::string const all = "X=1\nRELAYCLIENT=1\nPOPAUTH=2\nSHORTNAMES=3\nPOPLOCK_TIME=4\n";
    EXPECT_EQ(leftBy(all, [] { return set_courier_params(0, 0, 0, 0); }), "X=1\n");
    EXPECT_EQ(leftBy(all, [] { return set_courier_params(0, 1, -1, 0); }),
              "X=1\nPOPAUTH=1\nPOPLOCK_TIME=4\n");
    EXPECT_EQ(leftBy(all, [] { return set_courier_params(1, 0, -32768, 1); }),
              "X=1\nRELAYCLIENT=\nSHORTNAMES=1\nPOPLOCK_TIME=4\n");
}

TEST_F(CourierConfigure, SetsOrRemovesOnlyShortNames)
{
    std::string const all = "RELAYCLIENT=1\nSHORTNAMES=3\n";
    EXPECT_EQ(leftBy(all, [] { return set_courier_shortnames_params(1); }),
              "RELAYCLIENT=1\nSHORTNAMES=1\n");
    EXPECT_EQ(leftBy(all, [] { return set_courier_shortnames_params(0); }), "RELAYCLIENT=1\n");
}

TEST_F(CourierConfigure, RefusesAPathThatIsTooLong)
{
    std::string const overlong(4080, 'x');
    std::string const path = overlong + "/etc/courier-imap/imapd";
    EXPECT_EQ(changed([&] { configure(overlong); }),
              "-1|File path too long " + path.substr(0, 4095) + "\n");
    // A path that fits, but not with a suffix.
    std::string const tail = "/etc/courier-imap/imapd";
    std::string const slashes(4090 - root.path().size() - tail.size(), '/');
    std::string const deep = root.path() + slashes;
    EXPECT_EQ(changed([&] { configure(deep); }),
              "-1|File path too long " + deep + tail + ".XXXX\n");
    EXPECT_EQ(left(), "A=1\n|A=1\n|A=1\n|A=1\n|");
}

TEST_F(CourierConfigure, ReportsThatATemporaryFileCannotBeCreated)
{
    EXPECT_EQ(changed([] { failSystemCallWith(SYS_openat, 2, making, EROFS); }),
              "-1|" + withErrno("Unable to create temporary file for " + pathOf("imapd") +
                                    ": Read-only file system\n",
                                EROFS));
    EXPECT_EQ(left(), "A=1\n|A=1\n|A=1\n|A=1\n|");
}

TEST_F(CourierConfigure, LeavesNoTemporaryFileThatCannotBeWrittenTo)
{
    EXPECT_EQ(changed([] { failSystemCallWith(SYS_fcntl, 1, F_GETFL, EMFILE); }),
              "-1|" + withErrno("Unable to create temporary file for " + pathOf("imapd") +
                                    ": Too many open files\n",
                                EMFILE));
    EXPECT_EQ(left(), "A=1\n|A=1\n|A=1\n|A=1\n|");
}

TEST_F(CourierConfigure, EndsAtAFileThatCannotBeRead)
{
    std::filesystem::remove(pathOf("pop3d"));
    std::filesystem::create_directory(pathOf("pop3d"));
    EXPECT_EQ(changed(), "-1|" + withErrno("Unable to write temporary file content for " +
                                               pathOf("pop3d") + ": Is a directory\n",
                                           EISDIR));
    EXPECT_EQ(left(), "A=2\n|A=2\n|directory|A=1\n|");
}

// The write fails long before the end.
TEST_F(CourierConfigure, EndsAtAFileThatCannotBeWritten)
{
    std::string const large = std::string(100000, 'x') + "\n" + std::string(3000, 'y') + "\n";
    writeFile(pathOf("imapd-ssl"), large);
    EXPECT_EQ(changed([] {
                  signal(SIGXFSZ, SIG_IGN);
                  rlimit const limit = {50000, 50000};
                  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
              }),
              "-1|" + withErrno("Unable to write temporary file content for " +
                                    pathOf("imapd-ssl") + ": File too large\n",
                                EFBIG));
    EXPECT_EQ(left(), "A=2\n|" + large + "|A=1\n|A=1\n|");
}

// Nothing is left for the close to write.
TEST_F(CourierConfigure, FailsWhenTheFilesBeginningIsNotWritten)
{
    std::string const blocks = std::string(8191, 'x') + "\n";
    writeFile(pathOf("imapd"), blocks);
    EnvChange const env[] = {{"A", ENV_DEL, nullptr}, {nullptr, ENV_ADD, nullptr}};
    auto const prepare = [] {
        signal(SIGXFSZ, SIG_IGN);
        rlimit const limit = {4096, 4096};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    };
    EXPECT_EQ(outcomeOf([&] { return set_courier_params_list(env); }, prepare),
              "-1|" + withErrno("Unable to write temporary file content for " + pathOf("imapd") +
                                    ": File too large\n",
                                EFBIG));
    EXPECT_EQ(left(), blocks + "|A=1\n|A=1\n|A=1\n|");
}

TEST_F(CourierConfigure, EndsAtAFileThatCannotBeClosed)
{
    std::optional<CallFailure> failure;
    std::string const text = "Unable to write temporary file content for " + pathOf("imapd");
    EXPECT_EQ(changed([&] { failure.emplace("fclose", EIO); }),
              "-1|" + withErrno(text + ": Input/output error\n", EIO));
    EXPECT_EQ(changed([&] { failure.emplace("fclose", 0); }), "-1|" + text + ": \n");
    EXPECT_EQ(left(), "A=1\n|A=1\n|A=1\n|A=1\n|");
}

TEST_F(CourierConfigure, EndsAtAFileThatCannotBeRenamed)
{
    std::optional<CallFailure> failure;
    EXPECT_EQ(changed([&] { failure.emplace("fclose", EIO, 2); }),
              "-1|" + withErrno("Unable to move changed file to its location " + pathOf("imapd") +
                                    ": Input/output error\n",
                                EIO));
    EXPECT_EQ(left(), "A=1\n|A=1\n|A=1\n|A=1\n|");
    EXPECT_EQ(changed([&] { failure.emplace("renameat", EBUSY, 3); }),
              "-1|" + withErrno("Unable to move changed file to its location " + pathOf("pop3d") +
                                    ": Device or resource busy\n",
                                EBUSY));
    EXPECT_EQ(left(), "A=2\n|A=2\n|A=1\n|A=1\n|");
}

namespace {

// Courier's real files, which are put back at the end.
class CourierConfigureOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (!HasFatalFailure())
            shellRun("cp -a /etc/courier " + saved.path());
    }

    void TearDown() override
    {
        if (HasFatalFailure())
            return;
        shellRun(std::string(HOST_SERVICE) + " stop courier");
        shellRun("rm -rf /etc/courier && cp -a " + saved.path() + "/courier /etc");
    }

    static std::string pathOf(std::string const& name) { return "/etc/courier-imap/" + name; }

    std::string before(std::string const& name) const
    {
        return readFile(saved.path() + "/courier/" + name);
    }

    TempDir const saved;
};

} // namespace

TEST_F(CourierConfigureOnHost, ChangesTheTrueFilesAndRestartsTheTrueService)
{
    // Courier's own programs print on standard error, which does not matter here.
    EXPECT_EQ(inChild([] { return set_courier_params(1, 1, 30, 0); }).status, 0);
    for (std::string const& name : names) {
        ASSERT_NE(before(name), "");
        EXPECT_EQ(readFile(pathOf(name)),
                  before(name) + "RELAYCLIENT=\nPOPAUTH=1\nPOPLOCK_TIME=30\n");
        EXPECT_EQ(rightsOf(pathOf(name)), "-rw------- root:root");
    }
    shellRun(std::string(HOST_SERVICE) + " status courier");
    EXPECT_EQ(inChild([] { return set_courier_params(0, 0, 0, 0); }).status, 0);
    for (std::string const& name : names)
        EXPECT_EQ(readFile(pathOf(name)), before(name));
    shellRun(std::string(HOST_SERVICE) + " status courier");
}

TEST_F(CourierConfigureOnHost, KeepsNeitherOwnerNorModeOfAFile)
{
    shellRun("chown popuser:popuser /etc/courier/imapd && chmod 0644 /etc/courier/imapd");
    InitScripts scripts;
    scripts.add("/etc/init.d/courier-imap", "exit 0");
    EXPECT_EQ(inChild([] { return set_courier_shortnames_params(0); }).status, 0);
    EXPECT_EQ(rightsOf(pathOf("imapd")), "-rw------- root:root");
}

TEST_F(CourierConfigureOnHost, ReplacesAVariableOfTheTrueFiles)
{
    EnvChange const env[] = {{"MAXDAEMONS", ENV_ADD, "7"}, {nullptr, ENV_ADD, nullptr}};
    EXPECT_EQ(inChild([&] { return set_courier_params_list(env); }).status, 0);
    std::string const text = readFile(pathOf("imapd"));
    size_t const place = before("imapd").find("\nMAXDAEMONS=");
    ASSERT_NE(place, std::string::npos);
    EXPECT_EQ(text.substr(0, place), before("imapd").substr(0, place));
    EXPECT_EQ(text.substr(place, 14), "\nMAXDAEMONS=7\n");
    EXPECT_EQ(text.substr(place + 14),
              before("imapd").substr(before("imapd").find('\n', place + 1) + 1));
}

TEST_F(CourierConfigureOnHost, RestartsTheServiceAlsoWhenFilesAreMissing)
{
    shellRun("rm /etc/courier/imapd* /etc/courier/pop3d*");
    InitScripts scripts;
    scripts.add("/etc/init.d/courier-imap", "exit 0");
    ChildRun const run = inChild([] { return set_courier_shortnames_params(0); });
    EXPECT_EQ(run.status, 0);
    std::string expected;
    for (std::string const& name : names)
        expected += withErrno(
            "Unable to open //etc/courier-imap/" + name + ": No such file or directory\n", ENOENT);
    EXPECT_EQ(run.err, expected);
    EXPECT_EQ(scripts.journal(), "courier-imap restart\n");
}

TEST_F(CourierConfigureOnHost, GivesTheResultOfTheRestart)
{
    InitScripts scripts;
    scripts.add("/etc/init.d/courier-imap", "exit 1");
    ChildRun const run = inChild([] { return set_courier_shortnames_params(0) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Service /etc/init.d/courier-imap failed to restart\n");
}

TEST_F(CourierConfigureOnHost, LeavesTheServiceAloneAfterAFailure)
{
    shellRun("rm /etc/courier/pop3d-ssl && mkdir /etc/courier/pop3d-ssl");
    InitScripts scripts;
    scripts.add("/etc/init.d/courier-imap", "exit 0");
    EXPECT_EQ(inChild([] { return set_courier_shortnames_params(1) == -1 ? 0 : 1; }).status, 0);
    EXPECT_EQ(scripts.journal(), "");
}
