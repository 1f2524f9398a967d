// account_wait - how long the tool waits for others who hold the account database
//
// An AccountWait belongs to one call to SQLite, which is repeated while the database is busy: at
// once, then after 10 microseconds, after 20, after 30, and so on.
//
// The readers of the database are strangers, and each of them can keep it locked. So all calls of
// one command that found it locked may take two minutes together. After that the database counts as
// locked to the end of the command: nothing is tried again.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_ACCOUNT_WAIT_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_ACCOUNT_WAIT_H

#include <ctime>

class AccountWait
{
public:
    AccountWait();
    ~AccountWait();
    AccountWait(AccountWait const&) = delete;
    AccountWait& operator=(AccountWait const&) = delete;

    // Waits after a call. False when nanosleep fails: a signal interrupts it, or the wait has grown
    // to a second, which nanosleep refuses.
    [[nodiscard]] bool pause();
    // To be called when a call found the database locked. Whether it may be repeated.
    [[nodiscard]] bool goesOn();

    // Whether the time of the command is over.
    static bool isOver();
    // Gives the command its time; a new database has been chosen.
    static void startAnew();

private:
    timespec wait = {};
    timespec const began;
    bool locked = false;
};

#endif
