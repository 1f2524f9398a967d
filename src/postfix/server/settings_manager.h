// settings_manager - the mail policy of the server as a whole
//
// The order of smtpd_recipient_restrictions says who may relay. A client of mynetworks passes at
// once. The panel's table no_relay.re is asked next, users of SMTP AUTH come after it, and the last
// element stops everybody else. POP before SMTP is a map of client addresses in mynetworks. The
// tool writes neither file. The map of black domains says whose letters are refused.
//
// Everything is written through MainCfManager and DatabaseHelper. Postfix sees a changed parameter
// at its next reload, which is the caller's task. Setting a relay mode takes three writes; when one
// fails, the earlier ones stay. Setting the mode again is safe, since the first write replaces the
// whole list.
//
// Failures: PostfixConfigurationError and PostfixDatabaseError of the layers below, and what they
// raise when a program cannot be started or the lock of main.cf cannot be taken.
//
// No command calls these; they are for callers to come: SettingsManager::setClosedRelay.

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
    // Anybody may relay, or only the clients of mynetworks. SMTP AUTH and mynetworks stay as they
    // are.
    static void setOpenRelay();
    static void setClosedRelay();

    // The clients of mynetworks may relay, and with smtpAuth also those who have logged in. An
    // indeterminate smtpAuth leaves the mode and SMTP AUTH as they are.
    // Deliberate: an indeterminate popBeforeSmtp takes the map out of mynetworks, as false does.
    static void setAuthRelay(boost::logic::tribool smtpAuth, boost::logic::tribool popBeforeSmtp);

    // In bytes; 0 means no limit. Raises boost::bad_lexical_cast for a value that is not a whole
    // number.
    static std::int64_t getMailboxSizeLimit();

    // Refuses letters of senders in the domain, from now on or from the batch's commit on.
    static void addBlackDomain(std::string const& domain);
    static void addBlackDomain(BatchDatabaseHelper& batch, std::string const& domain);

    // A missing domain is not a failure. A record that says anything but REJECT is not ours and
    // stays.
    static void removeBlackDomain(std::string const& domain);
};

} // namespace orvek::mail::postfix

#endif
