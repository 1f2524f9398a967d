// mysql_error - a failure of the panel's database
//
// The text is formed at construction, so the error may outlive its connection.

#ifndef MAILVEK_MYSQL_MYSQL_ERROR_H
#define MAILVEK_MYSQL_MYSQL_ERROR_H

#include "util/uerr.h"

#include <mysql.h>

#include <exception>
#include <string>

namespace orvek::mysql {

class mError : public std::exception
{
public:
    explicit mError(std::string const& text);

    // The handle's pending error with its control bytes shown, or "Unknown error", then a newline
    // and the context. Contexts begin with a blank, which is kept.
    mError(MYSQL* handle, std::string const& context);

    ~mError() override;
    char const* what() const noexcept override;

private:
    std::string text;
};

// what() for a report. The newline of an mError stays; other exceptions have none of their own.
OwnLines reportedText(std::exception const& e);

} // namespace orvek::mysql

#endif
