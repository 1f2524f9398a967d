// mysql_error - a failure of the panel's database
//
// The text is formed at construction, so that the error outlives the connection it is of.

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

    // The handle's pending error over the context, or "Unknown error" where it has none. The
    // texts of the context begin with a blank, which is kept.
    mError(MYSQL* handle, std::string const& context);

    ~mError() override;
    char const* what() const noexcept override;

private:
    std::string text;
};

} // namespace orvek::mysql

#endif
