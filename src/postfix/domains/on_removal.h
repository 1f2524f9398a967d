// on_removal - what becomes of the mailboxes when their domain or mailname goes
//
// Any other value than these two leaves them where they are.

#ifndef MAILVEK_POSTFIX_DOMAINS_ON_REMOVAL_H
#define MAILVEK_POSTFIX_DOMAINS_ON_REMOVAL_H

namespace orvek::mail {

enum class OnRemoval
{
    keep = 0,
    remove = 1,
    backup = 2, // renamed aside
};

} // namespace orvek::mail

#endif
