#include "lib/conf/features.h"

#include "support/child_run.h"

#include <gtest/gtest.h>

namespace {

// The status of a call whose unbuffered output cannot be written.
int withoutOutput(std::function<int()> const& call)
{
    return inChild([&] {
               setvbuf(stdout, nullptr, _IONBF, 0);
               close(STDOUT_FILENO);
               return call() == -1 ? 0 : 1;
           })
        .status;
}

} // namespace

TEST(PrintFeature, PrintsTrueAndFalseAsPhpBooleans)
{
    auto const run = inChild([] {
        return print_feature("MailName_SetName", "true") + print_feature("Relay_Open", "false");
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "$features['MailName_SetName'] = true;\n$features['Relay_Open'] = false;\n");
    EXPECT_EQ(run.err, "");
}

TEST(PrintFeature, PrintsEveryOtherValueAsAPhpString)
{
    auto const run = printedBy([] {
        for (char const* const value : {"Postfix", "True", "true ", ""})
            print_feature("SMTP_Server", value);
    });
    EXPECT_EQ(run.out, "$features['SMTP_Server'] = \"Postfix\";\n"
                       "$features['SMTP_Server'] = \"True\";\n"
                       "$features['SMTP_Server'] = \"true \";\n"
                       "$features['SMTP_Server'] = \"\";\n");
}

TEST(PrintFeature, FailsWhenNothingIsPrinted)
{
    EXPECT_EQ(withoutOutput([] { return print_feature("Relay", "true"); }), 0);
    EXPECT_EQ(withoutOutput([] { return print_feature("SMTP_Server", "Postfix"); }), 0);
}

TEST(PrintFeatureArray, PrintsEachPair)
{
    auto const run = inChild([] {
        keyval const values[] = {{"a", "1"}, {"b", "true"}};
        return print_feature_array("List", 2, values);
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "$features['List'] = array('a'=>'1','b'=>'true',);\n");
    EXPECT_EQ(run.err, "");
}

TEST(PrintFeatureArray, PrintsAnEmptyArrayForNoPairs)
{
    EXPECT_EQ(printedBy([] { print_feature_array("List", 0, nullptr); }).out,
              "$features['List'] = array();\n");
}

TEST(PrintFeatureArray, FailsWhenNothingIsPrinted)
{
    EXPECT_EQ(withoutOutput([] { return print_feature_array("List", 0, nullptr); }), 0);
}
