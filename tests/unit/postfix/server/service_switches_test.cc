#include "postfix/server/service_manager.h"

#include "support/module_test.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using namespace orvek::mail::postfix;

namespace {

std::string const smtps_text = "smtps inet n - n - - smtpd -o smtpd_proxy_filter=127.0.0.1:10025 "
                               "-o smtpd_tls_wrappermode=yes";
std::string const submission_entry =
    "submission inet n - n - - smtpd -o smtpd_enforce_tls=yes "
    "-o smtpd_tls_security_level=encrypt -o smtpd_sasl_auth_enable=yes "
    "-o smtpd_client_restrictions=permit_sasl_authenticated,reject "
    "-o smtpd_sender_restrictions= -o smtpd_proxy_filter=127.0.0.1:10025";

struct Service
{
    void (*enable)(ModuleManager& manager);
    void (*disable)(ModuleManager& manager);
    std::string entry;
};

Service const services[] = {
    {ServiceManager::enableSmtpd, ServiceManager::disableSmtpd,
     "smtp inet n - n - - smtpd -o smtpd_proxy_filter=127.0.0.1:10025"},
    {ServiceManager::enableSmtpsd, ServiceManager::disableSmtpsd, smtps_text},
    {ServiceManager::enableSubmission, ServiceManager::disableSubmission, submission_entry},
};

class ServiceSwitchesOnHost : public ModuleTest
{
protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        if (!HasFatalFailure())
            postconf.run("exec $real \"$@\"");
    }

    // master.cf without its empty lines, because each store adds one at the end.
    std::string entries() const
    {
        std::istringstream text(readFile(master_cf));
        std::string result;
        for (std::string line; getline(text, line);)
            if (!line.empty())
                result += line + "\n";
        return result;
    }

    void masterIs(std::string const& services_text) { writeFile(master_cf, head + services_text); }
};

} // namespace

TEST_F(ServiceSwitchesOnHost, AddTheEntryOfAServiceThatIsNowhere)
{
    for (Service const& service : services) {
        masterIs(std::string(relay) + "\n");
        EXPECT_EQ(changed(service.enable), "1");
        EXPECT_EQ(entries(), "# head\n" + std::string(relay) + "\n" + service.entry + "\n");
        EXPECT_FALSE(std::filesystem::exists(parking));
    }
}

TEST_F(ServiceSwitchesOnHost, LeaveAServiceThatRunsAsItIs)
{
    for (Service const& service : services) {
        std::string const name = service.entry.substr(0, service.entry.find(' '));
        std::string const text = head + name + " inet n - y - - smtpd\n  -o own=yes\n";
        writeFile(master_cf, text);
        EXPECT_EQ(changed(service.enable), "0");
        EXPECT_EQ(readFile(master_cf), text);
    }
}

TEST_F(ServiceSwitchesOnHost, ParkAServiceAndBringItsOwnTextBack)
{
    for (Service const& service : services) {
        std::filesystem::remove(parking);
        masterIs(std::string(relay) + "\n");
        EXPECT_EQ(changed(service.enable), "1");
        EXPECT_EQ(changed(service.disable), "1");
        EXPECT_EQ(entries(), "# head\n" + std::string(relay) + "\n");
        EXPECT_NE(readFile(parking).find(service.entry), std::string::npos);
        EXPECT_EQ(changed(service.enable), "1");
        EXPECT_EQ(entries(), "# head\n" + std::string(relay) + "\n" + service.entry + "\n");
    }
}

TEST_F(ServiceSwitchesOnHost, KeepWhatAnAdministratorHasChanged)
{
    std::string const edited = "submission inet n - n - 30 smtpd\n  -o own=yes";
    masterIs(edited + "\n" + relay + "\n");
    EXPECT_EQ(changed(ServiceManager::disableSubmission), "1");
    EXPECT_EQ(entries(), "# head\n" + std::string(relay) + "\n");
    EXPECT_EQ(changed(ServiceManager::enableSubmission), "1");
    EXPECT_EQ(entries(), "# head\n" + std::string(relay) + "\n" + edited + "\n");
}

TEST_F(ServiceSwitchesOnHost, DoNothingToDisableWhatIsNowhere)
{
    masterIs(std::string(relay) + "\n");
    std::string const before = readFile(master_cf);
    ino_t const file = inode(master_cf);
    for (Service const& service : services)
        EXPECT_EQ(changed(service.disable), "0");
    EXPECT_EQ(readFile(master_cf), before);
    EXPECT_EQ(inode(master_cf), file);
    EXPECT_FALSE(std::filesystem::exists(parking));
}

TEST_F(ServiceSwitchesOnHost, DoNotTouchAServiceOfAnotherType)
{
    for (Service const& service : services) {
        std::string entry = service.entry;
        entry.replace(entry.find("inet"), 4, "unix");
        masterIs(entry + "\n");
        EXPECT_EQ(changed(service.disable), "0");
        EXPECT_EQ(readFile(master_cf), head + entry + "\n");
        EXPECT_EQ(changed(service.enable), "1");
        EXPECT_EQ(entries(), "# head\n" + entry + "\n" + service.entry + "\n");
    }
}

TEST_F(ServiceSwitchesOnHost, StoreNothingThemselves)
{
    std::string const before = readFile(master_cf);
    EXPECT_EQ(loaded([](ModuleManager& manager) {
                  for (Service const& service : services)
                      service.enable(manager);
                  ServiceManager::disableSmtpd(manager);
              }),
              "");
    EXPECT_EQ(readFile(master_cf), before);
    EXPECT_FALSE(std::filesystem::exists(parking));
}

TEST_F(ServiceSwitchesOnHost, RefuseAManagerThatIsNotLoaded)
{
    for (Service const& service : services)
        for (auto* const operation : {service.enable, service.disable})
            EXPECT_EQ(outcomeOf([=] { operation(ModuleManager::getInstance()); }),
                      "!logic_error: modules configuration isn't loaded yet");
}
