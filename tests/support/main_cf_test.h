// main_cf_test - base of the tests of the manager of main.cf

#ifndef MAILVEK_TESTS_SUPPORT_MAIN_CF_TEST_H
#define MAILVEK_TESTS_SUPPORT_MAIN_CF_TEST_H

#include "postfix/main_cf/main_cf_manager.h"
#include "support/config_test.h"

#include <iostream>
#include <string>
#include <vector>

// The parameter that most tests change; it is empty in the host.
inline constexpr char parameter[] = "smtpd_client_restrictions";

class MainCfTest : public ConfigTest
{
protected:
    void TearDown() override
    {
        for (std::string const& address : addresses)
            shellRun("ip address del " + address + "/32 dev lo");
        ConfigTest::TearDown();
    }

    static std::string read(std::string const& name, bool defaults = false)
    {
        return outcomeOf([&] {
            std::cout << orvek::mail::postfix::MainCfManager::getInstance().getStringValue(
                name, defaults);
        });
    }

    static std::string replace(std::string const& name, std::string const& value)
    {
        return outcomeOf([&] {
            orvek::mail::postfix::MainCfManager::getInstance().replaceStringValue(name, value);
        });
    }

    static std::string append(std::string const& name, std::string const& value)
    {
        return outcomeOf([&] {
            orvek::mail::postfix::MainCfManager::getInstance().appendStringValue(name, value);
        });
    }

    static std::string appendClause(std::string const& name, std::string const& key,
                                    std::string const& value)
    {
        return outcomeOf([&] {
            orvek::mail::postfix::MainCfManager::getInstance().appendCompoundStringValue(name, key,
                                                                                         value);
        });
    }

    static std::string removeElement(std::string const& name, std::string const& element)
    {
        return outcomeOf([&] {
            orvek::mail::postfix::MainCfManager::getInstance().removeListElement(name, element);
        });
    }

    // Installs a postconf that reads its parameter from a file, which -e changes, and the default
    // of mynetworks from another file. It does not touch main.cf.
    void pretend(std::string const& value, std::string const& standard = "")
    {
        writeFile(postconf.dir / "value", value);
        writeFile(postconf.dir / "default", standard);
        postconf.run(R"(case "$*" in
            '-h config_directory') echo /etc/postfix ;;
            '-h -d '*) cat $dir/default ;;
            -h*) cat $dir/value ;;
            -e*) printf '%s\n' "${2#*=}" > $dir/value ;;
            esac)");
    }

    // The value that the pretended parameter was set to.
    std::string pretended() const { return readFile(postconf.dir / "value"); }

    bool wrote() const { return postconf.journal().find("-e ") != std::string::npos; }

    void giveAddress(std::string const& address = "192.0.2.7")
    {
        shellRun("ip address add " + address + "/32 dev lo");
        addresses.push_back(address);
    }

private:
    std::vector<std::string> addresses;
};

#endif
