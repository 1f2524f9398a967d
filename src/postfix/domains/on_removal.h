// on_removal - what happens to the mailboxes when their domain or mailname is removed
//
// Any value but remove and backup leaves them in place.

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
