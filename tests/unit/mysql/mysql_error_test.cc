#include "mysql/mysql_error.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace {

struct CloseHandle
{
    void operator()(MYSQL* handle) const { mysql_close(handle); }
};

using Handle = std::unique_ptr<MYSQL, CloseHandle>;

} // namespace

TEST(MysqlError, SaysTheTextItWasGiven)
{
    EXPECT_STREQ(orvek::mysql::mError("connection failed").what(), "connection failed");
}

TEST(MysqlError, IsUnknownWithItsContextWithoutAPendingError)
{
    Handle const handle(mysql_init(nullptr));
    EXPECT_STREQ(orvek::mysql::mError(handle.get(), " executing query").what(),
                 "Unknown error\n executing query");
}

TEST(MysqlError, NamesThePendingErrorOverTheContext)
{
    Handle const handle(mysql_init(nullptr));
    mysql_real_connect(handle.get(), "localhost", "admin", "", "orv", 0, "/nonexistent/socket", 0);
    unsigned int const number = mysql_errno(handle.get());
    ASSERT_NE(number, 0U);
    EXPECT_EQ(orvek::mysql::mError(handle.get(), " fetching result").what(),
              "Mysql error " + std::to_string(number) + ": " + mysql_error(handle.get()) +
                  "\n fetching result");
}

TEST(MysqlError, IsReportedWithItsOwnNewlineAlone)
{
    EXPECT_EQ(orvek::mysql::reportedText(orvek::mysql::mError("one\ntwo")).text, "one\ntwo");
    EXPECT_EQ(orvek::mysql::reportedText(std::runtime_error("one\ntwo")).text, "one\\ntwo");
}

TEST(MysqlError, OutlivesTheConnectionItIsOf)
{
    Handle handle(mysql_init(nullptr));
    orvek::mysql::mError const error(handle.get(), " executing query");
    handle.reset();
    EXPECT_STREQ(error.what(), "Unknown error\n executing query");
}
