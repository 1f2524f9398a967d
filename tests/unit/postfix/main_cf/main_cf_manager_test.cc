#include "postfix/main_cf/main_cf_manager.h"

#include "support/lock_file.h"
#include "support/main_cf_test.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iostream>

#include <sys/stat.h>

using orvek::mail::postfix::MainCfManager;

using MainCfManagerOnHost = MainCfTest;

TEST_F(MainCfManagerOnHost, ReadsAValueByOneRun)
{
    postconf.run("exec $real \"$@\"");
    EXPECT_EQ(read("myhostname"), "mailhost.example.test");
    EXPECT_EQ(postconf.journal(), "-h config_directory\n-h myhostname\n");
}

TEST_F(MainCfManagerOnHost, ReadsADefault)
{
    shellRun("postconf -e mailbox_size_limit=7");
    postconf.run("exec $real \"$@\"");
    EXPECT_EQ(read("mailbox_size_limit"), "7");
    EXPECT_EQ(read("mailbox_size_limit", true), "51200000");
    EXPECT_NE(postconf.journal().find("\n-h -d mailbox_size_limit\n"), std::string::npos);
}

TEST_F(MainCfManagerOnHost, TrimsAValueAtBothEnds)
{
    pretend(" \t\v a  b, \r\n\n");
    EXPECT_EQ(read(parameter), "a  b,");
}

TEST_F(MainCfManagerOnHost, ReadsAnUnknownParameterAsEmpty)
{
    EXPECT_EQ(read("no_such_parameter"), "");
}

TEST_F(MainCfManagerOnHost, GivesPostconfAnEmptyStandardInput)
{
    pretend("x");
    postconf.run("echo /etc/postfix; readlink /proc/self/fd/0 > $dir/input");
    read(parameter);
    EXPECT_EQ(readFile(postconf.dir / "input"), "/dev/null\n");
}

TEST_F(MainCfManagerOnHost, KeepsNoValue)
{
    EXPECT_EQ(outcomeOf([] {
                  MainCfManager const& manager = MainCfManager::getInstance();
                  std::cout << manager.getStringValue(parameter, false) << "|";
                  manager.replaceStringValue(parameter, "permit");
                  std::cout << manager.getStringValue(parameter, false);
              }),
              "|permit");
}

TEST_F(MainCfManagerOnHost, RaisesWhatPostconfSaysWhenAReadFails)
{
    postconf.run("[ \"$2\" = config_directory ] && exec $real \"$@\"\n"
                 "echo value; echo 'postconf: odd %s' >&2; exit 1");
    EXPECT_EQ(read(parameter), "!PostfixConfigurationError: postconf: odd %s\n");
}

TEST_F(MainCfManagerOnHost, CallsAFailureInSilenceAnUnknownError)
{
    postconf.run("[ \"$2\" = config_directory ] && exec $real \"$@\"\nexit 3");
    EXPECT_EQ(read(parameter), "!PostfixConfigurationError: unknown error");
    EXPECT_EQ(replace(parameter, "x"), "!PostfixConfigurationError: unknown error");
}

TEST_F(MainCfManagerOnHost, TakesADeathByASignalForAFailure)
{
    postconf.run("[ \"$2\" = config_directory ] && exec $real \"$@\"\n"
                 "echo value; echo 'postconf: about to die' >&2; kill -9 $$");
    EXPECT_EQ(read(parameter), "!PostfixConfigurationError: postconf: about to die\n");
    EXPECT_EQ(replace(parameter, "x"), "!PostfixConfigurationError: postconf: about to die\n");
}

TEST_F(MainCfManagerOnHost, RaisesForAnEmptyValueWithAReportedFailure)
{
    for (std::string const word : {"panic", "fatal", "error"}) {
        postconf.run("[ \"$2\" = config_directory ] && exec $real \"$@\"\n"
                     "printf 'postconf: warning: w\\npostconf: " +
                     word + ": bad' >&2");
        EXPECT_EQ(read(parameter),
                  "!PostfixConfigurationError: postconf: warning: w\npostconf: " + word + ": bad");
    }
}

TEST_F(MainCfManagerOnHost, TakesOnlyWarningsForFailuresOfAnEmptyValue)
{
    postconf.run("[ \"$2\" = config_directory ] && exec $real \"$@\"\n"
                 "echo 'postconf: info: odd: thing' >&2");
    EXPECT_EQ(read(parameter), "");
}

TEST_F(MainCfManagerOnHost, DoesNotMindDiagnosticsBesideAValue)
{
    postconf.run("[ \"$2\" = config_directory ] && exec $real \"$@\"\n"
                 "echo value; echo 'postconf: fatal: bad' >&2");
    EXPECT_EQ(read(parameter), "value");
    postconf.run("[ \"$2\" = config_directory ] && exec $real \"$@\"\n"
                 "echo; echo 'postconf: fatal: bad' >&2");
    EXPECT_EQ(read(parameter), "");
}

TEST_F(MainCfManagerOnHost, TakesFloodsOnBothStreams)
{
    postconf.run("[ \"$2\" = config_directory ] && exec $real \"$@\"\n"
                 "head -c 3000000 /dev/zero | tr '\\0' e >&2; "
                 "head -c 3000000 /dev/zero | tr '\\0' o");
    EXPECT_EQ(read(parameter), std::string(3'000'000, 'o'));
}

TEST_F(MainCfManagerOnHost, RaisesWhatKeepsPostconfFromStarting)
{
    postconf.run("");
    shellRun("chmod 600 " + postconf.file);
    EXPECT_EQ(read(parameter), "!SystemError: execv: Permission denied");
}

TEST_F(MainCfManagerOnHost, RaisesPostconfsFailureAndReleasesTheLock)
{
    postconf.run("exec $real \"$@\"");
    EXPECT_EQ(outcomeOf([&] {
                  MainCfManager const& manager = MainCfManager::getInstance();
                  shellRun("chmod 600 " + postconf.file);
                  try {
                      manager.replaceStringValue(parameter, "x");
                  } catch (orvek::SystemError const&) {
                      EXPECT_FALSE(isLocked(main_cf));
                      throw;
                  }
              }),
              "!SystemError: execv: Permission denied");
}

TEST_F(MainCfManagerOnHost, IsMadeOnce)
{
    postconf.run("exec $real \"$@\"");
    EXPECT_EQ(outcomeOf([] {
                  MainCfManager const& first = MainCfManager::getInstance();
                  std::cout << (&first == &MainCfManager::getInstance());
              }),
              "1");
    EXPECT_EQ(postconf.journal(), "-h config_directory\n");
}

TEST_F(MainCfManagerOnHost, RaisesWithoutAConfigurationDirectoryAndTriesAgain)
{
    std::string const refusal = "!PostfixConfigurationError: unable to determine Postfix "
                                "config_directory parameter";
    postconf.run("echo ' '");
    EXPECT_EQ(read(parameter), refusal);
    EXPECT_EQ(outcomeOf([&] {
                  EXPECT_ANY_THROW(MainCfManager::getInstance());
                  postconf.run("exec $real \"$@\"");
                  std::cout << MainCfManager::getInstance().getStringValue("myhostname", false);
              }),
              "mailhost.example.test");
}

TEST_F(MainCfManagerOnHost, RaisesWhatMakesTheFirstUseFail)
{
    postconf.run("echo 'postconf: no' >&2; exit 1");
    EXPECT_EQ(read(parameter), "!PostfixConfigurationError: postconf: no\n");
}

TEST_F(MainCfManagerOnHost, WritesAValueByOneRunWithOneArgument)
{
    postconf.run("printf '<%s>' \"$@\" > $dir/arguments; exec $real \"$@\"");
    EXPECT_EQ(replace(parameter, "permit_mynetworks, 'a \"b' $x"), "");
    EXPECT_EQ(readFile(postconf.dir / "arguments"),
              "<-e><smtpd_client_restrictions=permit_mynetworks, 'a \"b' $x>");
    EXPECT_EQ(trueSetting(parameter), "permit_mynetworks, 'a \"b' $x\n");
}

TEST_F(MainCfManagerOnHost, OverwritesAValueAndWritesAnEmptyOne)
{
    EXPECT_EQ(replace("relayhost", "a"), "");
    EXPECT_EQ(replace("relayhost", "b"), "");
    EXPECT_EQ(trueSetting("relayhost"), "b\n");
    EXPECT_EQ(replace("relayhost", ""), "");
    EXPECT_EQ(trueSetting("relayhost"), "\n");
}

TEST_F(MainCfManagerOnHost, TakesAWriteThatExitsWithZeroForASuccess)
{
    postconf.run("[ $1 = -h ] && exec $real \"$@\"\necho 'postconf: fatal: bad' >&2; echo out");
    EXPECT_EQ(replace(parameter, "x"), "");
}

TEST_F(MainCfManagerOnHost, RaisesWhatPostconfSaysWhenAWriteFails)
{
    std::string const before = readFile(main_cf);
    postconf.run("[ $1 = -h ] && exec $real \"$@\"\necho 'postconf: fatal: bad' >&2; exit 1");
    EXPECT_EQ(replace(parameter, "x"), "!PostfixConfigurationError: postconf: fatal: bad\n");
    EXPECT_EQ(readFile(main_cf), before);
}

TEST_F(MainCfManagerOnHost, HoldsTheLockWhileWritingNotWhileReading)
{
    postconf.run("flock -n " + lockFileOf(main_cf) +
                 " true; printf '%s %s\\n' $1 $? >> $dir/lock; exec $real \"$@\"");
    EXPECT_EQ(append(parameter, "permit"), "");
    EXPECT_EQ(readFile(postconf.dir / "lock"), "-h 0\n-h 0\n-e 1\n");
    EXPECT_FALSE(isLocked(main_cf));
}

TEST_F(MainCfManagerOnHost, TakesTheLockOfTheDirectoryThatPostconfNames)
{
    postconf.run("[ $1 = -h ] && echo /etc/elsewhere && exit\n"
                 "flock -n " +
                 lockFileOf("/etc/elsewhere/main.cf") + " true || echo held > $dir/lock");
    EXPECT_EQ(replace(parameter, "permit"), "");
    EXPECT_EQ(readFile(postconf.dir / "lock"), "held\n");
}

TEST_F(MainCfManagerOnHost, LetsTheLockGoAfterAWriteThatFailed)
{
    postconf.run("[ $1 = -h ] && exec $real \"$@\"\nexit 1");
    EXPECT_EQ(outcomeOf([this] {
                  MainCfManager const& manager = MainCfManager::getInstance();
                  EXPECT_ANY_THROW(manager.replaceStringValue(parameter, "x"));
                  std::cout << isLocked(main_cf);
              }),
              "0");
}

TEST_F(MainCfManagerOnHost, WaitsForTheLock)
{
    lockBriefly(main_cf, "date +%s%N > " + postconf.dir / "free");
    postconf.run("[ $1 = -e ] && date +%s%N > $dir/begin; exec $real \"$@\"");
    EXPECT_EQ(replace(parameter, "permit"), "");
    EXPECT_LT(std::stoull(readFile(postconf.dir / "free")),
              std::stoull(readFile(postconf.dir / "begin")));
}

TEST_F(MainCfManagerOnHost, RaisesWithoutALockAndWritesNothing)
{
    pretend("a");
    shellRun("mv /var/lock/files /var/lock/files.away; touch /var/lock/files");
    std::string const outcome = outcomeOf([] {
        orvek::mail::postfix::MainCfManager const& manager = MainCfManager::getInstance();
        FILE* const devnull = freopen("/dev/null", "w", stderr);
        EXPECT_TRUE(devnull);
        manager.replaceStringValue(parameter, "x");
    });
    shellRun("rm /var/lock/files; mv /var/lock/files.away /var/lock/files");
    EXPECT_NE(outcome.find("!SystemError: lock() failed: Not a directory"), std::string::npos)
        << outcome;
    EXPECT_FALSE(wrote());
}

TEST_F(MainCfManagerOnHost, LeavesMainCfWholeWhenTheDiskIsFull)
{
    shellRun("mkdir " + postconf.dir / "etc" + " && cp -a /etc/postfix/. " + postconf.dir / "etc" +
             " && mount -t tmpfs -o size=64k t /etc/postfix && cp -a " + postconf.dir / "etc" +
             "/main.cf /etc/postfix");
    shellRun("cat /dev/zero > /etc/postfix/ballast 2> /dev/null || true");
    std::string const before = readFile(main_cf);
    std::string const outcome = replace(parameter, std::string(9000, 'x'));
    std::string const after = readFile(main_cf);
    shellRun("umount /etc/postfix");
    EXPECT_EQ(outcome.rfind("!PostfixConfigurationError: ", 0), 0U) << outcome;
    EXPECT_NE(outcome.find("No space left on device"), std::string::npos) << outcome;
    EXPECT_EQ(after, before);
}

// The true postconf waits for a main.cf that has changed in this second or the one before.
TEST_F(MainCfManagerOnHost, DoesNotWaitAfterItsOwnWrite)
{
    postconf.run("printf '%s %s\\n' $1 $(($(date +%s) - $(stat -c %Y /etc/postfix/main.cf) >= 2)) "
                 ">> $dir/cool; "
                 "exec $real \"$@\"");
    EXPECT_EQ(outcomeOf([] {
                  MainCfManager const& manager = MainCfManager::getInstance();
                  manager.replaceStringValue(parameter, "permit_mynetworks");
                  manager.appendCompoundStringValue(parameter, "check_client_access", "pcre:/x");
                  manager.appendStringValue(parameter, "reject");
                  std::cout << manager.getStringValue(parameter, false);
              }),
              "permit_mynetworks, check_client_access pcre:/x, reject");
    EXPECT_EQ(readFile(postconf.dir / "cool").find(" 0"), std::string::npos)
        << readFile(postconf.dir / "cool");
}

TEST_F(MainCfManagerOnHost, KeepsTheDateOfAMainCfLeftInPlace)
{
    postconf.run("[ $1 = -h ] && exec $real \"$@\"\ntouch /etc/postfix/main.cf; exit 1");
    replace(parameter, "x");
    struct stat info = {};
    ASSERT_EQ(stat(main_cf.c_str(), &info), 0);
    EXPECT_LT(time(nullptr) - info.st_mtim.tv_sec, 2);
}

TEST_F(MainCfManagerOnHost, KeepsAMainCfsDateWhileAnEditorWrites)
{
    postconf.run(
        "[ $1 = -h ] && exec $real \"$@\"\n$real \"$@\"\n"
        "exec 9>> /etc/postfix/main.cf\nsleep 60 > /dev/null 2>&1 & echo $! > $dir/editor");
    EXPECT_EQ(replace(parameter, "permit"), "");
    struct stat info = {};
    ASSERT_EQ(stat(main_cf.c_str(), &info), 0);
    EXPECT_LT(time(nullptr) - info.st_mtim.tv_sec, 2);
    shellRun("kill $(cat " + postconf.dir / "editor" + ")");
}

TEST_F(MainCfManagerOnHost, DatesMainCfTwoSecondsBackAndKeepsItsMode)
{
    EXPECT_EQ(replace(parameter, "permit"), "");
    struct stat info = {};
    ASSERT_EQ(stat(main_cf.c_str(), &info), 0);
    EXPECT_GE(time(nullptr) - info.st_mtim.tv_sec, 2);
    EXPECT_LE(time(nullptr) - info.st_mtim.tv_sec, 5);
    EXPECT_EQ(modeOf(main_cf), 0644U);
}

TEST_F(MainCfManagerOnHost, ShowsARunningServerEachValueAfterAReload)
{
    writeFile(postconf.dir / "greeting", R"(for try in {1..100}; do
        exec 3<> /dev/tcp/127.0.0.1/25 && read -t 20 line <&3 && [[ $line == "220 $1"* ]] && exit 0
        sleep 0.05
        done
        exit 1)");
    shellRun("postfix start 2> /dev/null");
    for (std::string const banner : {"one", "two", "three"}) {
        EXPECT_EQ(replace("smtpd_banner", banner), "");
        shellRun("postfix reload 2> /dev/null");
        shellRun("timeout 60 bash " + postconf.dir / "greeting" + " " + banner + " 2> /dev/null");
    }
    shellRun("postfix stop 2> /dev/null");
}
