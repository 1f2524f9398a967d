// mysql_error - a failure of the panel's database
//
// The text is formed at construction, so the error may outlive its connection.

#ifndef MAILVEK_MYSQL_MYSQL_ERROR_H
#define MAILVEK_MYSQL_MYSQL_ERROR_H

#include <mysql.h>

#include <exception>
#include <string>

namespace orvek::mysql {

class mError : public std::exception
{
public:
    explicit mError(std::string const& text);

    // The handle's pending error, or "Unknown error", then a newline and the context. Contexts
    // begin with a blank, which is kept.
    mError(MYSQL* handle, std::string const& context);

    ~mError() override;
    char const* what() const noexcept override;

private:
    std::string text;
};

} // namespace orvek::mysql

#endif
