// panel_names - the statements of mail_database on one connection
//
// The connection is the caller's. When that is null, the first statement connects by db_connect and
// the connection is kept for the next ones; while a PanelSession lives, it is that of the session,
// for all PanelNames. A statement that fails on a kept connection is repeated on a new one, and
// only the second result is reported: so each statement behaves as if it had its own connection.
// Names are escaped for the connection before they go into a statement. No program that the tool
// starts inherits the connection.
//
// Result: 0, or -1 reported by orvek_log at priority 3, with the caller's variable left as it was.
// A list is null when there are no rows.

#ifndef MAILVEK_MAIL_LIB_ALIASES_PANEL_NAMES_H
#define MAILVEK_MAIL_LIB_ALIASES_PANEL_NAMES_H

#include "lib/panel/dbconnect.h"
#include "lib/report/owned.h"
#include "lib/text/string.h"

#include <string>
#include <unordered_map>
#include <vector>

struct KeptConnection
{
    OpenMysql my;
    bool used = false; // by a statement, since which it may have broken
};

// Do not nest.
class PanelSession
{
public:
    PanelSession();
    ~PanelSession();
    PanelSession(PanelSession const&) = delete;
    PanelSession& operator=(PanelSession const&) = delete;

    // The connection of the living session, or null.
    static KeptConnection* connection();

private:
    KeptConnection kept;
};

class PanelNames
{
public:
    using NamesByName = std::unordered_map<std::string, std::vector<std::string>>;

    explicit PanelNames(MYSQL* my);
    PanelNames(PanelNames const&) = delete;
    PanelNames& operator=(PanelNames const&) = delete;

    // The first column of all rows, without NULLs.
    [[nodiscard]] int read(char const* query, StringArray* names);

    [[nodiscard]] int get_domaliases_by_domain(char const* domain, StringArray* aliases);
    [[nodiscard]] int get_aliases_by_mailname(char const* mailname, char const* domain,
                                              StringArray* aliases);
    // The mail aliases of all mailnames of the domain. A failure is reported for mailname.
    [[nodiscard]] int get_aliases_by_domain(char const* mailname, char const* domain,
                                            NamesByName* aliases);
    [[nodiscard]] int get_mailnames_by_domain(char const* domain, StringArray* names);
    // *domain stays as it was when there is none.
    [[nodiscard]] int get_domain_by_domainalias(char const* alias, CString* domain);

private:
    // Null, reported, without a connection.
    MYSQL* connect();
    MYSQL* connection();
    CString escaped(char const* name);
    // Null, reported, after a failure.
    MysqlResult run(char const* query);

    MYSQL* const given;
    KeptConnection own;
    KeptConnection& kept; // its own, or that of the session
};

#endif
