#include "maildir/dot_qmail_manager.h"

#include "mail/lib/home/mailname_delivery.h"
#include "mail/lib/home/mailname_forward.h"
#include "util/errors.h"

#include <cerrno>

namespace orvek::mail {

void DotQMailManager::check(int result) const
{
    int const code = errno;
    if (result != 0)
        throw SystemError("unable to modify " + path, code);
}

void DotQMailManager::addRedirect(std::string const& address, Position) const
{
    check(dotqmail_add_forward(path.c_str(), address.c_str()));
}

void DotQMailManager::removeRedirect(std::string const& address) const
{
    check(dotqmail_remove_forward(path.c_str(), address.c_str()));
}

void DotQMailManager::enableDelivery() const
{
    check(dotqmail_add_delivery(path.c_str()));
}

void DotQMailManager::disableDelivery() const
{
    check(dotqmail_remove_delivery(path.c_str()));
}

void DotQMailManager::reset() const
{
    check(dotqmail_reset(path.c_str()));
}

} // namespace orvek::mail
