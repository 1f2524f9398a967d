// pump_test - base of the tests that run pipelines of child_main and check the traffic

#ifndef MAILVEK_TESTS_SUPPORT_PUMP_TEST_H
#define MAILVEK_TESTS_SUPPORT_PUMP_TEST_H

#include "build_paths.h"
#include "process/pipe.h"
#include "support/launch_test.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

// A stage that runs child_main. As in any stage, the arguments end before the first empty one.
inline orvek::process::Parameters<orvek::process::PipeProcessFlags> stage(std::string const& mode,
                                                                          std::string const& a = "",
                                                                          std::string const& b = "",
                                                                          std::string const& c = "")
{
    return orvek::process::Parameters<orvek::process::PipeProcessFlags>(CHILD_MAIN, mode, a, b, c);
}

// A pipe without input, whose output and standard error are collected.
class PumpTest : public LaunchTest
{
protected:
    using Chunk = std::vector<char>;

    PumpTest()
    {
        pipe.stdinMode = orvek::process::DevNull;
        pipe.stdoutMode = pipe.stderrMode = orvek::process::Capture;
        pipe.stdoutReceiver = orvek::process::makeStringReceiver(out);
        pipe.stderrReceiver = orvek::process::makeStringReceiver(err);
    }

    // Feeds that many chunks of size bytes. The source returns false with the last one.
    void feed(int chunks, size_t size)
    {
        pipe.stdinMode = orvek::process::Capture;
        pipe.stdinSource = [=, this](Chunk& chunk) {
            EXPECT_TRUE(chunk.empty());
            ++calls;
            chunk.assign(size, char('a' + calls % 26));
            return calls < chunks;
        };
    }

    std::string out;
    std::string err;
    int calls = 0;
    orvek::process::Pipe pipe;
};

#endif
