// captured_streams - captures the output of the code under test on each C++ stream
//
// While one lives, std::cout, std::cerr and std::clog write to it. orvek::uerr shows up on the
// first two.

#ifndef MAILVEK_TESTS_SUPPORT_CAPTURED_STREAMS_H
#define MAILVEK_TESTS_SUPPORT_CAPTURED_STREAMS_H

#include <iostream>
#include <sstream>
#include <string>

class CapturedStreams
{
public:
    std::string out() const { return out_stream.text.str(); }
    std::string err() const { return err_stream.text.str(); }
    std::string log() const { return log_stream.text.str(); }

private:
    struct Captured
    {
        explicit Captured(std::ostream& captured)
            : stream(captured), original(captured.rdbuf(text.rdbuf()))
        {
        }
        ~Captured() { stream.rdbuf(original); }
        Captured(Captured const&) = delete;
        Captured& operator=(Captured const&) = delete;

        std::ostringstream text;
        std::ostream& stream;
        std::streambuf* const original;
    };

    Captured out_stream{std::cout};
    Captured err_stream{std::cerr};
    Captured log_stream{std::clog};
};

#endif
