// mail_auth_transaction - several changes of the account database as one transaction
//
// While a MailAuthTransaction is open, all operations of mail_authenticate.h but the iterations run
// on one connection, and the first change begins a transaction. It waits for other processes as
// MailAuthConnection does. commit() ends it; so does the destructor, for a caller that gives up. A
// change that fails undoes itself alone: the others are committed. Reads see the changes so far.
//
// One that is opened inside another is part of that: the outermost commits.
//
// A database in which no transaction can be begun, because it is damaged for example, is changed
// statement by statement, and the statements report why they fail.
//
// Do not start other programs inside one: other changes of the database wait for its end.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_TRANSACTION_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_TRANSACTION_H

#include <memory>

class SharedAccounts;

class MailAuthTransaction
{
public:
    MailAuthTransaction();
    ~MailAuthTransaction();
    MailAuthTransaction(MailAuthTransaction const&) = delete;
    MailAuthTransaction& operator=(MailAuthTransaction const&) = delete;

    // 0, or -1 reported by orvek_log at priority 3; no change is made then. Operations after it are
    // on their own again. A part of another one gives 0.
    [[nodiscard]] int commit();

private:
    std::unique_ptr<SharedAccounts> accounts; // null inside another one, and after the end
};

// The changes in one transaction. Result: theirs, or -1 when they cannot be committed.
template<class Changes>
int in_one_transaction(Changes changes)
{
    MailAuthTransaction transaction;
    int const result = changes();
    return transaction.commit() == -1 ? -1 : result;
}

#endif
