#include "mysql/mysql_error.h"

#include "lib/report/visible.h"

namespace orvek::mysql {

namespace {

std::string pendingError(MYSQL* handle)
{
    unsigned int const number = mysql_errno(handle);
    if (number == 0)
        return "Unknown error";
    return "Mysql error " + std::to_string(number) + ": " + mysql_error(handle);
}

} // namespace

mError::mError(std::string const& text_) : text(text_)
{
}

mError::mError(MYSQL* handle, std::string const& context)
    : text(visible(pendingError(handle)) + "\n" + context)
{
}

mError::~mError() = default;

char const* mError::what() const noexcept
{
    return text.c_str();
}

OwnLines reportedText(std::exception const& e)
{
    bool const has_lines = dynamic_cast<mError const*>(&e) != nullptr;
    return {has_lines ? e.what() : visible(e.what())};
}

} // namespace orvek::mysql
