#include "postfix/master_cf/module_manager.h"

#include "support/call_faults.h"
#include "support/module_test.h"

#include <gtest/gtest.h>

#include <iostream>

using namespace orvek::mail::postfix;
using ModuleManagerOnHost = ModuleTest;

TEST_F(ModuleManagerOnHost, ReadsNothingButThePathAtFirstUse)
{
    postconf.run("exec $real \"$@\"");
    std::filesystem::remove(master_cf);
    EXPECT_EQ(outcomeOf([] {
                  ModuleManager const& manager = ModuleManager::getInstance();
                  std::cout << (&manager == &ModuleManager::getInstance());
              }),
              "1");
    EXPECT_EQ(postconf.journal(), "-h config_directory\n-h config_directory\n");
}

TEST_F(ModuleManagerOnHost, RaisesWithoutAConfigurationDirectoryAndTriesAgain)
{
    // The first answer is for MainCfManager. The second one is empty.
    postconf.run("[ $(wc -l < $dir/journal) = 2 ] || echo /etc/postfix");
    EXPECT_EQ(outcomeOf([] {
                  try {
                      ModuleManager::getInstance();
                  } catch (PostfixConfigurationError const& e) {
                      std::cout << e.what();
                  }
                  ModuleManager::getInstance().loadModules(false);
              }),
              "unable to determine Postfix config_directory parameter");
}

TEST_F(ModuleManagerOnHost, ReadsAndStoresInTheDirectoryThatPostconfNames)
{
    postconf.run("echo $dir");
    writeFile(postconf.dir / "master.cf", "other inet n - n - - smtpd");
    EXPECT_EQ(changed([](ModuleManager& m) { m.addModule(submission(), true); }), "1");
    EXPECT_EQ(readFile(postconf.dir / "master.cf"),
              "other inet n - n - - smtpd\n" + submission_text + "\n");
    EXPECT_EQ(readFile(master_cf), head + smtp + "\n" + relay + "\n");
}

TEST_F(ModuleManagerOnHost, RefusesEverythingBeforeTheLoad)
{
    std::string const refusal = "!logic_error: modules configuration isn't loaded yet";
    auto const before = [](auto const& code) {
        return outcomeOf([&] { code(ModuleManager::getInstance()); });
    };
    ModuleType const type = ModuleType::inet;
    EXPECT_EQ(before([&](ModuleManager& m) { m.storeModules(false); }), refusal);
    EXPECT_EQ(before([&](ModuleManager& m) { m.storeModules(true); }), refusal);
    EXPECT_EQ(before([&](ModuleManager& m) { m.hasModule("a", type, either); }), refusal);
    EXPECT_EQ(before([&](ModuleManager& m) { m.getModule("a", type, false); }), refusal);
    EXPECT_EQ(before([&](ModuleManager& m) { m.addModule(submission(), false); }), refusal);
    EXPECT_EQ(before([&](ModuleManager& m) { m.removeModule("a", type); }), refusal);
    EXPECT_EQ(before([&](ModuleManager& m) { m.disableModule("a", type); }), refusal);
    EXPECT_EQ(before([&](ModuleManager& m) { m.enableModule("a", type); }), refusal);
    EXPECT_FALSE(std::filesystem::exists(parking));
}

TEST_F(ModuleManagerOnHost, LoadsWithoutAParkingFile)
{
    EXPECT_EQ(loaded([](ModuleManager& manager) {
                  std::cout << manager.hasModule("smtp", ModuleType::inet, true)
                            << manager.hasModule("smtp", ModuleType::inet, false)
                            << manager.hasModule("smtp", ModuleType::unix, either);
              }),
              "100");
}

TEST_F(ModuleManagerOnHost, RefusesFilesThatCannotBeRead)
{
    writeFile(parking, "");
    EXPECT_EQ(loaded([](ModuleManager&) {}),
              "!PostfixConfigurationError: unable to open " + parking);
    writeFile(parking, "x");
    EXPECT_EQ(loaded([](ModuleManager&) {}),
              "!PostfixConfigurationError: unable to parse " + parking);
    writeFile(parking, std::string("#\0\n", 3) + submission_text + "\n");
    EXPECT_EQ(loaded([](ModuleManager&) {}),
              "!PostfixConfigurationError: unable to parse " + parking)
        << "a map of root's";
    writeFile(master_cf, "Smtp inet n - n - - smtpd\n"); // to which postconf has no objection
    EXPECT_EQ(loaded([](ModuleManager&) {}),
              "!PostfixConfigurationError: unable to parse " + master_cf);
    std::filesystem::remove(master_cf);
    EXPECT_EQ(loaded([](ModuleManager&) {}),
              "!PostfixConfigurationError: unable to open " + master_cf);
}

TEST_F(ModuleManagerOnHost, RaisesForAParkingFileThatCannotBeLookedAt)
{
    writeFile(parking, submission_text);
    EXPECT_EQ(changed([](ModuleManager& manager) {
                  CallFailure const failure("fstatat", EIO);
                  manager.loadModules(true);
              }),
              "!SystemError: " + parking + ": Input/output error");
    EXPECT_EQ(readFile(parking), submission_text);
}

TEST_F(ModuleManagerOnHost, LoadsOnceUnlessForced)
{
    EXPECT_EQ(loaded([&](ModuleManager& manager) {
                  writeFile(master_cf, std::string("x") + relay);
                  manager.loadModules(false);
                  std::cout << manager.hasModule("smtp", ModuleType::inet, true);
                  manager.loadModules(true);
                  std::cout << manager.hasModule("smtp", ModuleType::inet, true)
                            << manager.hasModule("xrelay", ModuleType::unix, true);
              }),
              "101");
}

TEST_F(ModuleManagerOnHost, ForgetsChangesButNotParkedAtAForcedLoad)
{
    EXPECT_EQ(changed([](ModuleManager& manager) {
                  manager.disableModule("smtp", ModuleType::inet);
                  manager.loadModules(true);
                  std::cout << manager.hasModule("smtp", ModuleType::inet, true)
                            << manager.hasModule("smtp", ModuleType::inet, false);
              }),
              "110");
    EXPECT_FALSE(std::filesystem::exists(parking));
}

TEST_F(ModuleManagerOnHost, ForgetsParkedAtAForcedLoadOfAParkingFile)
{
    writeFile(parking, submission_text);
    EXPECT_EQ(changed([&](ModuleManager& manager) {
                  manager.disableModule("smtp", ModuleType::inet);
                  writeFile(parking, "other inet n - n - - smtpd");
                  manager.loadModules(true);
                  for (char const* const name : {"smtp", "submission", "other"})
                      std::cout << manager.hasModule(name, ModuleType::inet, false);
              }),
              "0010");
    EXPECT_EQ(readFile(parking), "other inet n - n - - smtpd") << "nothing is left to store";
}

TEST_F(ModuleManagerOnHost, KeepsParkedAtAForcedLoadWithoutAParkingFile)
{
    writeFile(parking, submission_text);
    EXPECT_EQ(changed([&](ModuleManager& manager) {
                  std::filesystem::remove(parking);
                  manager.loadModules(true);
                  std::cout << manager.hasModule("submission", ModuleType::inet, false);
              }),
              "10");
    EXPECT_FALSE(std::filesystem::exists(parking));
}

TEST_F(ModuleManagerOnHost, KeepsEverythingAfterALoadThatFailed)
{
    EXPECT_EQ(changed([&](ModuleManager& manager) {
                  manager.disableModule("smtp", ModuleType::inet);
                  writeFile(master_cf, "bad");
                  EXPECT_THROW(manager.loadModules(true), PostfixConfigurationError);
                  std::cout << manager.hasModule("relay", ModuleType::unix, true);
              }),
              "11");
    EXPECT_EQ(readFile(master_cf), head + relay + "\n\n");
}

TEST_F(ModuleManagerOnHost, KeepsMasterCfWhenTheParkingFileIsBad)
{
    EXPECT_EQ(changed([&](ModuleManager& manager) {
                  manager.disableModule("smtp", ModuleType::inet);
                  writeFile(master_cf, std::string("x") + relay);
                  writeFile(parking, "bad");
                  EXPECT_THROW(manager.loadModules(true), PostfixConfigurationError);
                  std::cout << manager.hasModule("xrelay", ModuleType::unix, true);
              }),
              "11");
    EXPECT_EQ(readFile(parking), std::string(smtp) + "\n");
}

TEST_F(ModuleManagerOnHost, ParksAServiceAndBringsItBackAsItWas)
{
    EXPECT_EQ(changed([](ModuleManager& m) { m.disableModule("smtp", ModuleType::inet); }), "1");
    EXPECT_EQ(readFile(master_cf), head + relay + "\n\n");
    EXPECT_EQ(readFile(parking), std::string(smtp) + "\n");
    EXPECT_EQ(modeOf(parking), 0644U);
    EXPECT_EQ(changed([](ModuleManager& m) { m.enableModule("smtp", ModuleType::inet); }), "1");
    EXPECT_EQ(readFile(master_cf), head + relay + "\n\n\n" + smtp + "\n");
    EXPECT_EQ(readFile(parking), "\n");
    EXPECT_EQ(changed([](ModuleManager&) {}), "0") << "the emptied parking file is sound";
}

TEST_F(ModuleManagerOnHost, CannotReloadAParkingFileItEmptiedItself)
{
    EXPECT_EQ(changed([](ModuleManager& m) {
                  m.disableModule("smtp", ModuleType::inet);
                  m.enableModule("smtp", ModuleType::inet);
              }),
              "1");
    EXPECT_EQ(std::filesystem::file_size(parking), 0U);
    EXPECT_EQ(loaded([](ModuleManager&) {}),
              "!PostfixConfigurationError: unable to open " + parking);
}

TEST_F(ModuleManagerOnHost, DisablesNothingThatDoesNotRun)
{
    EXPECT_EQ(changed([](ModuleManager& m) { m.disableModule("nobody", ModuleType::inet); }), "0");
    EXPECT_EQ(changed([](ModuleManager& m) { m.disableModule("smtp", ModuleType::unix); }), "0");
    EXPECT_FALSE(std::filesystem::exists(parking));
    changed([](ModuleManager& m) { m.disableModule("smtp", ModuleType::inet); });
    ino_t const before = inode(parking);
    EXPECT_EQ(changed([](ModuleManager& m) { m.disableModule("smtp", ModuleType::inet); }), "0");
    EXPECT_EQ(inode(parking), before);
}

TEST_F(ModuleManagerOnHost, EnablesNothingThatRuns)
{
    ino_t const before = inode(master_cf);
    EXPECT_EQ(changed([](ModuleManager& m) { m.enableModule("smtp", ModuleType::inet); }), "0");
    EXPECT_EQ(inode(master_cf), before);
}

TEST_F(ModuleManagerOnHost, RaisesWhenAnUnknownServiceIsEnabled)
{
    auto const enable = [](ModuleManager& m) { m.enableModule("nobody", ModuleType::inet); };
    EXPECT_EQ(loaded(enable), "!out_of_range: no such module nobody");
    writeFile(parking, "# nothing\n");
    EXPECT_EQ(loaded(enable), "!out_of_range: no such module nobody");
}

TEST_F(ModuleManagerOnHost, PrefersMasterCfForAServiceInBothFiles)
{
    writeFile(parking, "smtp inet n - n - - parked");
    EXPECT_EQ(loaded([](ModuleManager& m) {
                  m.enableModule("smtp", ModuleType::inet);
                  std::cout << m.storeModules(false)
                            << m.hasModule("smtp", ModuleType::inet, either) << " "
                            << m.getModule("smtp", ModuleType::inet, either).second << " "
                            << m.getModule("smtp", ModuleType::inet, true).second << " "
                            << m.getModule("smtp", ModuleType::inet, false).second;
              }),
              std::string("01 ") + smtp + " " + smtp + " smtp inet n - n - - parked");
}

TEST_F(ModuleManagerOnHost, OverwritesAParkedTextInItsPlace)
{
    writeFile(parking, "smtp inet n - n - - parked\n# c");
    EXPECT_EQ(changed([](ModuleManager& m) { m.disableModule("smtp", ModuleType::inet); }), "1");
    EXPECT_EQ(readFile(parking), std::string(smtp) + "\n# c\n");
}

TEST_F(ModuleManagerOnHost, LooksWhereItIsTold)
{
    writeFile(parking, submission_text);
    EXPECT_EQ(loaded([](ModuleManager& m) {
                  for (boost::tribool const enabled :
                       {boost::tribool(true), boost::tribool(false), boost::tribool(either)})
                      std::cout << m.hasModule("smtp", ModuleType::inet, enabled)
                                << m.hasModule("submission", ModuleType::inet, enabled)
                                << m.hasModule("nobody", ModuleType::inet, enabled) << " ";
                  std::cout << m.getModule("submission", ModuleType::inet, either).first.name;
              }),
              "100 010 110 submission");
}

TEST_F(ModuleManagerOnHost, RaisesForAServiceThatIsNotWhereItLooks)
{
    std::string const refusal = "!out_of_range: no such module ";
    auto const get = [](char const* name, boost::tribool enabled) {
        return loaded([&](ModuleManager& m) { m.getModule(name, ModuleType::inet, enabled); });
    };
    EXPECT_EQ(get("smtp", false), refusal + "smtp") << "without a parking file";
    EXPECT_EQ(get("nobody", either), refusal + "nobody");
    EXPECT_EQ(get("relay", true), refusal + "relay") << "of another type";
    writeFile(parking, submission_text);
    EXPECT_EQ(get("submission", true), refusal + "submission");
    EXPECT_EQ(get("smtp", false), refusal + "smtp");
    EXPECT_EQ(get("nobody", either), refusal + "nobody");
}

TEST_F(ModuleManagerOnHost, AddsARunningServiceAtTheEnd)
{
    EXPECT_EQ(changed([](ModuleManager& m) { m.addModule(submission(), true); }), "1");
    EXPECT_EQ(readFile(master_cf), head + smtp + "\n" + relay + "\n\n" + submission_text + "\n");
    EXPECT_FALSE(std::filesystem::exists(parking));
}

TEST_F(ModuleManagerOnHost, AddsARunningServiceInPlaceAndUnparksIt)
{
    writeFile(parking, "# a\nsmtp inet n - n - - parked\n# c");
    ModuleInfo info = submission();
    info.name = "smtp";
    EXPECT_EQ(changed([&](ModuleManager& m) { m.addModule(info, true); }), "1");
    EXPECT_EQ(readFile(master_cf), head + "smtp inet n - n - - smtpd -o a=b\n" + relay + "\n\n");
    EXPECT_EQ(readFile(parking), "# a\n# c\n");
}

TEST_F(ModuleManagerOnHost, AddsAParkedServiceAndOutOfMasterCf)
{
    ModuleInfo info = submission();
    info.name = "smtp";
    EXPECT_EQ(changed([&](ModuleManager& m) { m.addModule(info, false); }), "1");
    EXPECT_EQ(readFile(master_cf), head + relay + "\n\n");
    EXPECT_EQ(readFile(parking), "smtp inet n - n - - smtpd -o a=b\n");
}

TEST_F(ModuleManagerOnHost, AddsAParkedServiceInItsPlace)
{
    writeFile(parking, "submission inet n - n - - parked\n# c");
    EXPECT_EQ(changed([](ModuleManager& m) { m.addModule(submission(), false); }), "0");
    EXPECT_EQ(readFile(parking), submission_text + "\n# c\n");
}

TEST_F(ModuleManagerOnHost, LeavesAParkingFileWithoutTheAddedServiceAlone)
{
    writeFile(parking, "# a");
    ino_t const before = inode(parking);
    EXPECT_EQ(changed([](ModuleManager& m) { m.addModule(submission(), true); }), "1");
    EXPECT_EQ(inode(parking), before);
}

TEST_F(ModuleManagerOnHost, RemovesAServiceFromBothFiles)
{
    writeFile(parking, "smtp inet n - n - - parked\n# c");
    EXPECT_EQ(changed([](ModuleManager& m) { m.removeModule("smtp", ModuleType::inet); }), "1");
    EXPECT_EQ(readFile(master_cf), head + relay + "\n\n");
    EXPECT_EQ(readFile(parking), "# c\n");
}

TEST_F(ModuleManagerOnHost, RemovesAServiceFromTheOneFileThatHasIt)
{
    writeFile(parking, submission_text + "\n# c");
    ino_t const running = inode(master_cf);
    EXPECT_EQ(changed([](ModuleManager& m) { m.removeModule("submission", ModuleType::inet); }),
              "0");
    EXPECT_EQ(inode(master_cf), running);
    EXPECT_EQ(readFile(parking), "# c\n");
    ino_t const parked = inode(parking);
    EXPECT_EQ(changed([](ModuleManager& m) { m.removeModule("smtp", ModuleType::inet); }), "1");
    EXPECT_EQ(readFile(master_cf), head + relay + "\n\n");
    EXPECT_EQ(inode(parking), parked);
}

TEST_F(ModuleManagerOnHost, RemovesAServiceByTheNameInItsRecord)
{
    std::string const name(100, 's');
    writeFile(master_cf, name + " inet n - n - - smtpd");
    writeFile(parking, name + " inet n - n - - parked\n#");
    EXPECT_EQ(changed([&](ModuleManager& m) {
                  ModuleInfo const& info = m.getModule(name, ModuleType::inet, true).first;
                  m.removeModule(info.name, info.type);
              }),
              "1");
    EXPECT_EQ(readFile(parking), "#\n");
}

TEST_F(ModuleManagerOnHost, RemovesAnUnknownServiceWithSuccess)
{
    EXPECT_EQ(changed([](ModuleManager& m) { m.removeModule("nobody", ModuleType::inet); }), "0");
    writeFile(parking, "# c");
    EXPECT_EQ(changed([](ModuleManager& m) { m.removeModule("nobody", ModuleType::inet); }), "0");
    EXPECT_EQ(readFile(parking), "# c");
}
