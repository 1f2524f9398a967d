// settings_manager - the mail policy of the server as a whole
//
// Who may relay is the order of smtpd_recipient_restrictions: a client of mynetworks passes at
// once, the panel's table no_relay.re is asked next, users of SMTP AUTH come after that table, and
// the last word stops everybody else. POP before SMTP is a map of client addresses that stands in
// mynetworks. Neither file is written here. Whose letters are refused is the map of black domains.
//
// All is written through MainCfManager and DatabaseHelper; Postfix sees a changed parameter at its
// next reload, which is the caller's. A relay mode is set in three steps, and each is a write of
// its own: one that fails leaves what the steps before it have written. To set the mode again is
// safe, for the first step writes the list anew.
//
// Failures: PostfixConfigurationError and PostfixDatabaseError of the layers below, and what they
// raise when a program cannot be started or the lock of main.cf cannot be had.

#ifndef MAILVEK_POSTFIX_SERVER_SETTINGS_MANAGER_H
#define MAILVEK_POSTFIX_SERVER_SETTINGS_MANAGER_H

#include <boost/logic/tribool.hpp>

#include <cstdint>
#include <string>

namespace orvek::mail::postfix {

class BatchDatabaseHelper;

class SettingsManager
{
public:
    // Anybody may relay, or the clients of mynetworks alone. Whether there is SMTP AUTH, and
    // mynetworks, stay as they are.
    static void setOpenRelay();
    static void setClosedRelay();

    // The clients of mynetworks may relay, and with smtpAuth who has logged in; an indeterminate
    // one leaves the mode and SMTP AUTH as they are.
    // Deliberate: popBeforeSmtp has no way to leave things as they are, an indeterminate one
    // takes the map out of mynetworks as false does.
    static void setAuthRelay(boost::logic::tribool smtpAuth, boost::logic::tribool popBeforeSmtp);

    // In bytes; 0 is no limit to Postfix. Raises boost::bad_lexical_cast for a value that is no
    // whole number.
    static std::int64_t getMailboxSizeLimit();

    // Letters of senders in the domain are refused from now on, or from the batch's commit on.
    static void addBlackDomain(std::string const& domain);
    static void addBlackDomain(BatchDatabaseHelper& batch, std::string const& domain);

    // To remove a domain that is not there is no failure. A record of the domain that says
    // anything but to refuse it is not ours, and stays.
    static void removeBlackDomain(std::string const& domain);
};

} // namespace orvek::mail::postfix

#endif
