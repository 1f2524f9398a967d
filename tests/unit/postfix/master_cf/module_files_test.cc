#include "support/call_faults.h"
#include "support/fd_census.h"
#include "support/lock_file.h"
#include "support/module_test.h"
#include "support/syscall_faults.h"

#include <gtest/gtest.h>

#include <iostream>
#include <set>

#include <sys/mman.h>
#include <sys/stat.h>

using namespace orvek::mail::postfix;
using ModuleFilesOnHost = ModuleTest;

namespace {

std::string loadError(std::string const& path)
{
    MasterCfContent content;
    try {
        ModuleManager::loadMasterCf(path, content);
    } catch (PostfixConfigurationError const& e) {
        return e.what();
    }
    return "nothing was raised";
}

class LoadMasterCf : public ::testing::Test
{
protected:
    void SetUp() override { descriptors = openDescriptors(); }
    void TearDown() override { EXPECT_EQ(openDescriptors(), descriptors); }

    TempDir const dir;
    std::string const path = dir / "master.cf";

private:
    std::set<int> descriptors;
};

} // namespace

TEST_F(LoadMasterCf, FillsTheContentWithTheFile)
{
    writeFile(path, std::string("# c\n") + smtp);
    MasterCfContent content;
    ModuleManager::loadMasterCf(path, content);
    EXPECT_EQ(content.lines, (MasterCfContent::Lines{"# c", smtp}));
    EXPECT_TRUE(content.hasModule("smtp", ModuleType::inet));
}

TEST_F(LoadMasterCf, LoadsAFileOfExactlyOnePage)
{
    writeFile(path, "#" + std::string(static_cast<size_t>(getpagesize()) - 1, 'x'));
    EXPECT_EQ(loadError(path), "nothing was raised");
    writeFile(path, "a" + std::string(static_cast<size_t>(getpagesize()) - 1, 'x'));
    EXPECT_EQ(loadError(path), "unable to parse " + path);
}

TEST_F(LoadMasterCf, CannotOpenAFileThatIsNotThere)
{
    EXPECT_EQ(loadError(path), "unable to open " + path);
}

TEST_F(LoadMasterCf, CannotOpenAnEmptyFile)
{
    writeFile(path, "");
    EXPECT_EQ(loadError(path), "unable to open " + path);
}

TEST_F(LoadMasterCf, CannotOpenWhatIsNoRegularFile)
{
    EXPECT_EQ(loadError(dir.path()), "unable to open " + dir.path());
    EXPECT_EQ(loadError("/dev/zero"), "unable to open /dev/zero");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(loadError(path), "unable to open " + path);
}

TEST_F(LoadMasterCf, CannotOpenAFileThatCannotBeMapped)
{
    writeFile(path, smtp);
    ChildRun const run = printedBy([&] {
        failSystemCallWith(SYS_mmap, 2, PROT_READ, ENOMEM);
        std::cout << loadError(path);
    });
    EXPECT_EQ(run.out, "unable to open " + path);
}

TEST_F(LoadMasterCf, OpensAgainWhenASignalComesInBetween)
{
    writeFile(path, smtp);
    CallFailure const interrupted("open", EINTR);
    EXPECT_EQ(loadError(path), "nothing was raised");
}

TEST_F(LoadMasterCf, CannotParseWhatIsNoMasterCf)
{
    writeFile(path, "smtp inet\n");
    EXPECT_EQ(loadError(path), "unable to parse " + path);
}

TEST_F(LoadMasterCf, FollowsASymbolicLink)
{
    writeFile(dir / "target", smtp);
    std::filesystem::create_symlink(dir / "target", path);
    EXPECT_EQ(loadError(path), "nothing was raised");
}

TEST_F(ModuleFilesOnHost, CountNoParkingFileOfAnybodyElse)
{
    auto const parked = [] {
        return printedBy([] {
                   ModuleManager& manager = ModuleManager::getInstance();
                   manager.loadModules(false);
                   std::cout << manager.hasModule("smtps", ModuleType::inet, false);
               })
            .out;
    };
    std::string const file = "P=" + parking + "; ";
    writeFile(parking, "smtps inet n - n - - smtpd\n");
    EXPECT_EQ(parked(), "1");
    for (std::string const change :
         {"chown postfix $P", "chown root $P && chmod 664 $P", "chown root $P && chmod 600 $P",
          "chmod 646 $P", "chmod 644 $P && mv $P $P.x && ln -s $P.x $P", "rm $P $P.x && mkfifo $P",
          "rm $P && mkdir $P"}) {
        shellRun(file + change);
        EXPECT_EQ(parked(), "0") << change;
    }
    shellRun(file + "rm -r $P");
}

TEST_F(ModuleFilesOnHost, StoresNothingWithoutAChange)
{
    ino_t const before = inode(master_cf);
    EXPECT_EQ(changed([](ModuleManager&) {}), "0");
    EXPECT_EQ(inode(master_cf), before);
    EXPECT_FALSE(std::filesystem::exists(parking));
}

TEST_F(ModuleFilesOnHost, StoresWhatIsLoadedWhenForced)
{
    ino_t const before = inode(master_cf);
    EXPECT_EQ(loaded([](ModuleManager& manager) { std::cout << manager.storeModules(true); }), "1");
    EXPECT_NE(inode(master_cf), before);
    EXPECT_EQ(readFile(master_cf), head + smtp + "\n" + relay + "\n\n");
    EXPECT_FALSE(std::filesystem::exists(parking));
    writeFile(parking, "# parked");
    EXPECT_EQ(loaded([](ModuleManager& manager) { std::cout << manager.storeModules(true); }), "1");
    EXPECT_EQ(readFile(parking), "# parked\n");
}

TEST_F(ModuleFilesOnHost, StoresEachChangeOnce)
{
    for (bool const force : {false, true}) {
        EXPECT_EQ(changed([&](ModuleManager& manager) {
                      manager.addModule(submission(), true);
                      manager.disableModule("submission", ModuleType::inet);
                      std::cout << manager.storeModules(force);
                      ino_t const running = inode(master_cf);
                      ino_t const parked = inode(parking);
                      std::cout << manager.storeModules(false);
                      EXPECT_EQ(inode(master_cf), running);
                      EXPECT_EQ(inode(parking), parked);
                  }),
                  "100");
    }
}

TEST_F(ModuleFilesOnHost, StoresNothingByItself)
{
    std::string const before = readFile(master_cf);
    EXPECT_EQ(loaded([](ModuleManager& m) { m.disableModule("smtp", ModuleType::inet); }), "");
    EXPECT_EQ(readFile(master_cf), before);
    EXPECT_FALSE(std::filesystem::exists(parking));
}

TEST_F(ModuleFilesOnHost, LeavesMasterCfWhenOnlyTheParkingFileIsStored)
{
    ino_t const before = inode(master_cf);
    EXPECT_EQ(changed([](ModuleManager& m) { m.addModule(submission(), false); }), "0");
    EXPECT_EQ(inode(master_cf), before);
    EXPECT_EQ(readFile(parking), submission_text + "\n");
}

TEST_F(ModuleFilesOnHost, GivesTheFileModeWhateverTheOldOneHad)
{
    shellRun("chmod 600 " + master_cf);
    EXPECT_EQ(outcomeOf([] {
                  umask(077);
                  ModuleManager& manager = ModuleManager::getInstance();
                  manager.loadModules(false);
                  manager.storeModules(true);
              }),
              "");
    EXPECT_EQ(modeOf(master_cf), 0644U);
}

TEST_F(ModuleFilesOnHost, HoldsTheLockOfTheFileWhileItStores)
{
    lockBriefly(master_cf, "touch " + postconf.dir / "free");
    EXPECT_EQ(loaded([&](ModuleManager& manager) {
                  std::cout << std::filesystem::exists(postconf.dir / "free");
                  manager.storeModules(true);
                  std::cout << std::filesystem::exists(postconf.dir / "free");
              }),
              "01");
    EXPECT_FALSE(isLocked(master_cf));
}

TEST_F(ModuleFilesOnHost, HoldsTheLockUntilTheFileHasBeenReplaced)
{
    for (int const number : {1, 2}) {
        std::string const path = number == 1 ? master_cf : parking;
        EXPECT_EQ(loaded([&](ModuleManager& manager) {
                      manager.addModule(submission(), false);
                      BeforeCall const look("rename", number, [&] { std::cout << isLocked(path); });
                      manager.storeModules(true);
                  }),
                  "1");
    }
}

TEST_F(ModuleFilesOnHost, LeavesTheFileAloneWhenItCannotBeWritten)
{
    std::string const before = readFile(master_cf);
    EXPECT_EQ(loaded([](ModuleManager& manager) {
                  failSystemCall(SYS_write, ENOSPC);
                  failSystemCall(SYS_writev, ENOSPC);
                  try {
                      manager.storeModules(true);
                  } catch (std::ios_base::failure const&) {
                      _exit(0);
                  }
                  _exit(9);
              }),
              "");
    EXPECT_EQ(readFile(master_cf), before);
}

TEST_F(ModuleFilesOnHost, LeavesTheFileAloneWhenTheModeCannotBeSet)
{
    std::string const before = readFile(master_cf);
    std::string const outcome = loaded([](ModuleManager& manager) {
        failSystemCallWith(SYS_fchmod, 1, 0644, EPERM);
        manager.storeModules(true);
    });
    EXPECT_EQ(outcome.rfind("!FSError: chmod: Operation not permitted: \"" + master_cf, 0), 0U)
        << outcome;
    EXPECT_EQ(readFile(master_cf), before);
}

TEST_F(ModuleFilesOnHost, LeavesTheFileAloneWhenItCannotBeReplaced)
{
    std::string const before = readFile(master_cf);
    std::string const outcome = loaded([](ModuleManager& manager) {
        failSystemCall(SYS_rename, EXDEV);
        failSystemCall(SYS_renameat, EXDEV);
        failSystemCall(SYS_renameat2, EXDEV);
        manager.storeModules(true);
    });
    EXPECT_EQ(outcome.rfind("!FSError: rename: Invalid cross-device link: \"" + master_cf, 0), 0U)
        << outcome;
    EXPECT_NE(outcome.find(", \"" + master_cf + "\""), std::string::npos) << outcome;
    EXPECT_EQ(readFile(master_cf), before);
}

TEST_F(ModuleFilesOnHost, TellsWhyReplacingFailedThoughRemovalFailsToo)
{
    std::string const outcome = loaded([](ModuleManager& manager) {
        failSystemCall(SYS_rename, EXDEV);
        failSystemCall(SYS_unlink, EROFS);
        manager.storeModules(true);
    });
    EXPECT_EQ(outcome.rfind("!FSError: rename: Invalid cross-device link: \"" + master_cf, 0), 0U)
        << outcome;
    shellRun("rm " + master_cf + "??????");
}

TEST_F(ModuleFilesOnHost, RaisesWhenThereIsNoRoomForTheParkingFile)
{
    shellRun("mv /var/spool/postfix/orvek /var/spool/postfix/orvek.away");
    std::string const outcome =
        changed([](ModuleManager& m) { m.disableModule("smtp", ModuleType::inet); });
    shellRun("mv /var/spool/postfix/orvek.away /var/spool/postfix/orvek");
    EXPECT_EQ(outcome, "!SystemError: mkstemp() failed: : No such file or directory");
    EXPECT_EQ(readFile(master_cf), head + relay + "\n\n") << "master.cf is stored first";
}

TEST_F(ModuleFilesOnHost, KeepsTheChangeMarkedAfterAStoreThatFailed)
{
    shellRun("mv /var/spool/postfix/orvek /var/spool/postfix/orvek.away");
    EXPECT_EQ(changed([](ModuleManager& m) {
                  m.disableModule("smtp", ModuleType::inet);
                  EXPECT_ANY_THROW(m.storeModules(false));
                  shellRun("mv /var/spool/postfix/orvek.away /var/spool/postfix/orvek");
              }),
              "0");
    EXPECT_EQ(readFile(parking), std::string(smtp) + "\n");
}

TEST_F(ModuleFilesOnHost, StoresAFileThatTheMailServerReads)
{
    shellRun("cp -a /usr/share/postfix/master.cf.dist " + master_cf);
    EXPECT_EQ(changed([](ModuleManager& m) {
                  m.disableModule("smtp", ModuleType::inet);
                  m.addModule(submission(), true);
              }),
              "1");
    FILE* const pipe = popen("postconf -M smtp/inet submission/inet 2>&1", "r");
    std::string text;
    for (int c = getc(pipe); c != EOF; c = getc(pipe))
        text += static_cast<char>(c);
    pclose(pipe);
    EXPECT_NE(text.find("submission inet"), std::string::npos) << text;
    EXPECT_EQ(text.find("smtp "), std::string::npos) << text;
}
