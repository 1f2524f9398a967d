#include "restore/stored_number.h"

#include "support/captured_streams.h"

#include <gtest/gtest.h>

using namespace orvek::mail::restore;

namespace {

constexpr BadNumberWarning warning{"Warning: bad '", "', ignored"};

} // namespace

TEST(StoredNumber, IsTheNumberInTheText)
{
    CapturedStreams const streams;
    EXPECT_EQ(storedNumber<long>("-5368709120", warning), -5368709120L);
    EXPECT_EQ(storedNumber<short>("30", warning), short{30});
    EXPECT_EQ(streams.err(), "");
}

TEST(StoredNumber, IsNothingAfterAWarningWithTheText)
{
    CapturedStreams const streams;
    EXPECT_EQ(storedNumber<short>("99999", warning), std::nullopt);
    EXPECT_EQ(storedNumber<long>("", warning), std::nullopt);
    EXPECT_EQ(storedNumber<long>("%s%n", warning), std::nullopt);
    std::string const text = "Warning: bad '99999', ignored\n"
                             "Warning: bad '', ignored\n"
                             "Warning: bad '%s%n', ignored\n";
    EXPECT_EQ(streams.err(), text);
    EXPECT_EQ(streams.out(), text);
}
