#include "mail/lib/accounts/mail_auth_transaction.h"

#include "mail/lib/accounts/shared_accounts.h"

#include <utility>

MailAuthTransaction::MailAuthTransaction()
    : accounts(SharedAccounts::current() ? nullptr : std::make_unique<SharedAccounts>())
{
}

MailAuthTransaction::~MailAuthTransaction()
{
    static_cast<void>(commit());
}

int MailAuthTransaction::commit()
{
    std::unique_ptr<SharedAccounts> const ending = std::move(accounts);
    return ending ? ending->commit() : 0;
}
