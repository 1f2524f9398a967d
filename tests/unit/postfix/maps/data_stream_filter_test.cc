#include "postfix/maps/data_stream_filter.h"

#include "postfix/maps/domain_filters.h"
#include "postfix/maps/record_filters.h"
#include "process/flags.h"
#include "support/child_run.h"
#include "support/temp_dir.h"

#include <boost/bind/bind.hpp>
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

using orvek::mail::postfix::NotInDomainFilter;
using orvek::mail::postfix::database::DataStreamFilter;
using orvek::mail::postfix::database::ElementsFilter;
using orvek::mail::postfix::database::KeyValueFilter;

namespace {

struct Refuse
{
    std::string refused;

    bool operator()(std::string const& element) const { return element != refused; }
};

using RecordFilter = KeyValueFilter<Refuse, Refuse>;

RecordFilter const refusingB{{"b"}, {"b"}};

std::vector<char> bytesOf(std::string const& text)
{
    return {text.begin(), text.end()};
}

// The filter's output for a dump that arrives in chunks of the given size.
template<class Filter>
std::string filtered(Filter const& filter, std::string const& dump, std::size_t chunkSize)
{
    std::ostringstream file;
    DataStreamFilter<Filter> lines(filter, file);
    for (std::size_t at = 0; at < dump.size(); at += chunkSize)
        lines.filterChunk(bytesOf(dump.substr(at, chunkSize)));
    return file.str();
}

} // namespace

TEST(DataStreamFilter, PutsLinesTogetherFromChunksOfAnySize)
{
    ElementsFilter<NotInDomainFilter> const filter({"d.test", false});
    std::string const dump = "a@d.test\tx@e.test\nb@e.test\ta@d.test,b@e.test\n\nc@e.test\tc\n";
    for (std::size_t size = 1; size <= dump.size(); ++size) {
        ChildRun const run = printedBy([&] { std::cout << filtered(filter, dump, size); });
        EXPECT_EQ(run.out, "b@e.test b@e.test\nc@e.test c\n") << size;
        EXPECT_EQ(run.err, "invalid key/value ''\n") << size;
    }
}

TEST(DataStreamFilter, DropsALineWithoutABlankAndKeepsTheOthers)
{
    ChildRun const run =
        printedBy([] { std::cout << filtered(refusingB, "a\t1\nbroken\nc\t2\n", 1024); });
    EXPECT_EQ(run.out, "a 1\nc 2\n");
    EXPECT_EQ(run.err, "invalid key/value 'broken'\n");
}

TEST(DataStreamFilter, WritesEachKeptLineAtOnceAndHoldsTheRest)
{
    TempDir const dir;
    std::ofstream file(dir / "map");
    DataStreamFilter<RecordFilter> lines(refusingB, file);
    lines.filterChunk(bytesOf("a\t1\nc\t"));
    EXPECT_EQ(readFile(dir / "map"), "a 1\n");
    lines.filterChunk(bytesOf("2"));
    EXPECT_EQ(readFile(dir / "map"), "a 1\n");
    lines.filterChunk(bytesOf("\n"));
    EXPECT_EQ(readFile(dir / "map"), "a 1\nc 2\n");
}

TEST(DataStreamFilter, PassesALastLineWithoutNewlineWhenItIsFinished)
{
    std::ostringstream file;
    DataStreamFilter<RecordFilter> lines(refusingB, file);
    lines.filterChunk(bytesOf("a\t1"));
    EXPECT_EQ(file.str(), "");
    lines.finish();
    EXPECT_EQ(file.str(), "a 1\n");
    lines.filterChunk(bytesOf("b\t1"));
    lines.finish();
    EXPECT_EQ(file.str(), "a 1\n");
}

TEST(DataStreamFilter, HasNothingToFinishAfterANewline)
{
    ChildRun const run = printedBy([] {
        DataStreamFilter<RecordFilter> lines(refusingB, std::cout);
        lines.filterChunk(bytesOf("a\t1\n"));
        lines.finish();
        lines.finish();
    });
    EXPECT_EQ(run.out, "a 1\n");
    EXPECT_EQ(run.err, "");
}

TEST(DataStreamFilter, TakesAnEmptyChunkInTheMiddleOfALine)
{
    std::ostringstream file;
    DataStreamFilter<RecordFilter> lines(refusingB, file);
    lines.filterChunk(bytesOf("a\t"));
    lines.filterChunk({});
    lines.filterChunk(bytesOf("1\n"));
    EXPECT_EQ(file.str(), "a 1\n");
}

TEST(DataStreamFilter, PassesValuesOfAHundredKilobytes)
{
    std::string const value(100'000, 'v');
    std::string list;
    for (int i = 0; i < 10'000; ++i)
        list += (i ? ", a" : "a") + std::to_string(i) + "@e.test";
    std::string const kept = "k " + value + "\nl " + list + "\n";
    EXPECT_EQ(filtered(ElementsFilter<NotInDomainFilter>({"d.test", false}), kept, 1024), kept);
}

TEST(DataStreamFilter, ServesAsTheReceiverOfADump)
{
    std::ostringstream file;
    DataStreamFilter<RecordFilter> lines(refusingB, file);
    orvek::process::ReceiverFunction const receiver = boost::bind(
        &DataStreamFilter<RecordFilter>::filterChunk, boost::ref(lines), boost::placeholders::_1);
    receiver(bytesOf("a\t1\nc"));
    receiver(bytesOf("\t2\n"));
    EXPECT_EQ(file.str(), "a 1\nc 2\n");
}

TEST(DataStreamFilter, LetsAFailureOfTheStreamThrough)
{
    std::ofstream full("/dev/full");
    full.exceptions(std::ios::failbit | std::ios::badbit);
    DataStreamFilter<RecordFilter> lines(refusingB, full);
    EXPECT_THROW(lines.filterChunk(bytesOf("a\t1\n")), std::ios_base::failure);
    full.exceptions(std::ios::goodbit);
}
