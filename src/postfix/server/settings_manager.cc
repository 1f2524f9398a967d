#include "postfix/server/settings_manager.h"

#include "postfix/main_cf/main_cf_manager.h"
#include "postfix/main_cf/parameter_names.h"
#include "postfix/maps/batch_database_helper.h"
#include "postfix/maps/map_names.h"

#include <boost/lexical_cast.hpp>

namespace orvek::mail::postfix {

namespace {

constexpr char poplock_map[] = "hash:/var/spool/postfix/orvek/poplock";
constexpr char refused[] = "REJECT";

struct RelayMode
{
    char const* first;
    char const* closing;
};

// Deliberate: "permit" of the open mode ends the evaluation, so what follows it never counts.
constexpr RelayMode open_relay = {"permit", "reject"};
constexpr RelayMode closed_relay = {"permit_mynetworks", "reject_unauth_destination"};
constexpr RelayMode users_relay = {"permit_mynetworks",
                                   "permit_sasl_authenticated, reject_unauth_destination"};

// The second part of a mode may be two elements. It is appended as one text.
void rebuildRestrictions(RelayMode const& mode)
{
    MainCfManager const& main_cf = MainCfManager::getInstance();
    main_cf.replaceStringValue(parameter::recipient_restrictions, mode.first);
    main_cf.appendCompoundStringValue(parameter::recipient_restrictions, "check_client_access",
                                      "pcre:/var/spool/postfix/orvek/no_relay.re");
    main_cf.appendStringValue(parameter::recipient_restrictions, mode.closing);
}

void setSmtpAuth(bool enabled)
{
    MainCfManager::getInstance().replaceStringValue(parameter::sasl_auth_enable,
                                                    enabled ? "yes" : "no");
    rebuildRestrictions(enabled ? users_relay : closed_relay);
}

} // namespace

void SettingsManager::setOpenRelay()
{
    rebuildRestrictions(open_relay);
}

void SettingsManager::setClosedRelay()
{
    rebuildRestrictions(closed_relay);
}

void SettingsManager::setAuthRelay(boost::logic::tribool smtpAuth,
                                   boost::logic::tribool popBeforeSmtp)
{
    if (!boost::logic::indeterminate(smtpAuth))
        setSmtpAuth(static_cast<bool>(smtpAuth));
    MainCfManager const& main_cf = MainCfManager::getInstance();
    if (popBeforeSmtp)
        main_cf.appendStringValue(parameter::my_networks, poplock_map);
    else
        main_cf.removeListElement(parameter::my_networks, poplock_map);
}

std::int64_t SettingsManager::getMailboxSizeLimit()
{
    return boost::lexical_cast<std::int64_t>(MainCfManager::getInstance().getStringValue(
        parameter::mailbox_size_limit, /*defaults=*/false));
}

void SettingsManager::addBlackDomain(std::string const& domain)
{
    AtOnce batch;
    addBlackDomain(batch, domain);
}

void SettingsManager::addBlackDomain(BatchDatabaseHelper& batch, std::string const& domain)
{
    batch.addChange(blacklists_map, domain, refused);
}

void SettingsManager::removeBlackDomain(std::string const& domain)
{
    DatabaseHelper::removeRecord(blacklists_map,
                                 std::pair<std::string, std::string>(domain, refused));
}

} // namespace orvek::mail::postfix
