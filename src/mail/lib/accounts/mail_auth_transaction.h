// mail_auth_transaction - several changes of the account database as one transaction
//
// While a MailAuthTransaction is open, all operations of mail_authenticate.h except the iterations
// use one connection, and the first change begins a transaction. It waits for other processes as
// MailAuthConnection does. commit() ends it; so does the destructor, for a caller that gives up. A
// failing change undoes only itself: the others are committed. Reads see the changes so far.
//
// A MailAuthTransaction inside another one is part of it: the outermost one commits.
//
// SQLite itself rolls everything back when a statement is interrupted, or finds no memory or disk
// left. The changes before it are lost then, those after it are committed one by one, and commit()
// reports that there is no transaction.
//
// If no transaction can be begun, for example in a damaged database, the statements run one by one
// and report why they fail.
//
// Do not start other programs inside a transaction: other changes of the database wait for its end.

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

    // 0, or -1 reported by orvek_log at priority 3; then no change is made, except as told
    // above. Later operations have their own connections again. Inside another transaction it does
    // nothing and returns 0.
    [[nodiscard]] int commit();

private:
    std::unique_ptr<SharedAccounts> accounts; // null inside another one, and after the end
};

// Runs the changes in one transaction. Returns their result, or -1 when the commit fails.
template<class Changes>
int in_one_transaction(Changes changes)
{
    MailAuthTransaction transaction;
    int const result = changes();
    return transaction.commit() == -1 ? -1 : result;
}

#endif
