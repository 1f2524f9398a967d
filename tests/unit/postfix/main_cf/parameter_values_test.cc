#include "postfix/main_cf/parameter_values.h"

#include "util/errors.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix;

namespace {

template<class Check>
std::string refusal(Check const& check, std::string const& value)
{
    try {
        check("name", value);
    } catch (PostfixConfigurationError const& e) {
        return e.what();
    }
    return "allowed";
}

} // namespace

TEST(ParameterValues, AllowPlainText)
{
    EXPECT_EQ(refusal(requireLiteral, "192.0.2.0/24"), "allowed");
    EXPECT_EQ(refusal(requireLiteral, ""), "allowed");
}

TEST(ParameterValues, RefuseANewline)
{
    EXPECT_EQ(refusal(requireOneLine, "a\nb = c"), "the value of name must not hold a newline");
    EXPECT_EQ(refusal(requireLiteral, "a\n"), "the value of name must not hold a newline");
}

TEST(ParameterValues, RefuseAReferenceThatIsNotTheToolsOwn)
{
    EXPECT_EQ(refusal(requireLiteral, "$mynetworks"),
              "the value '$mynetworks' for name must not hold a '$'");
    EXPECT_EQ(refusal(requireOneLine, "$mynetworks"), "allowed");
}
