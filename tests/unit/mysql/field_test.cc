#include "mysql/field.h"

#include "mysql/mysql_error.h"

#include <gtest/gtest.h>

#include <climits>

using orvek::mysql::Field;
using orvek::mysql::mError;

namespace {

template<class Number>
Number as(char const* text)
{
    return Field(text);
}

template<class Number>
void expectNoNumberIn(std::string const& text)
{
    EXPECT_THROW(static_cast<void>(static_cast<Number>(Field(text))), mError) << text;
}

} // namespace

TEST(Field, ConvertsItsTextToEachKindOfNumber)
{
    EXPECT_EQ(as<long>("-9223372036854775808"), LONG_MIN);
    EXPECT_EQ(as<long>("9223372036854775807"), LONG_MAX);
    EXPECT_EQ(as<int>("-2147483648"), INT_MIN);
    EXPECT_EQ(as<int>("+2147483647"), INT_MAX);
    EXPECT_EQ(as<short>("-32768"), SHRT_MIN);
    EXPECT_EQ(as<short>("032767"), SHRT_MAX);
}

TEST(Field, IsTheTextItself)
{
    std::string const bytes("it's \xff\0`", 8);
    std::string const text = Field(bytes);
    EXPECT_EQ(text, bytes);
}

TEST(Field, HasNoNumberBeyondTheTypesRange)
{
    expectNoNumberIn<long>("9223372036854775808");
    expectNoNumberIn<int>("2147483648");
    expectNoNumberIn<short>("32768");
    expectNoNumberIn<short>("-32769");
}

TEST(Field, ReadsANumberFromTheWholeTextOrFails)
{
    for (char const* const text : {"", " ", "1 ", " 1", "1k", "0x10", "1.0", "--1", "-", "true"}) {
        expectNoNumberIn<long>(text);
        expectNoNumberIn<int>(text);
        expectNoNumberIn<short>(text);
    }
    expectNoNumberIn<long>(std::string("1\0", 2));
}

TEST(Field, SaysThatAConversionIsBad)
{
    try {
        as<long>("");
        ADD_FAILURE() << "converted";
    } catch (mError const& e) {
        EXPECT_STREQ(e.what(), "bad lexical cast: source type value could not be interpreted as "
                               "target");
    }
}
