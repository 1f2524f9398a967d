// Adds text records from standard input to a map: bench_add_records MAP

#include "postfix/maps/database_helper.h"

#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

namespace {

// Reads a record when it is asked for, so that no memory is needed for the others. One pass only.
class Reading
{
public:
    explicit Reading(FILE* source_) : source(source_) { ++*this; }

    std::pair<std::string, std::string> const* operator->() const { return &record; }
    bool operator!=(Reading const& other) const { return source != other.source; }
    bool operator==(Reading const& other) const { return source == other.source; }
    Reading& operator++()
    {
        ssize_t const length = source ? getline(&line, &size, source) : -1;
        if (length <= 0) {
            source = nullptr;
            return *this;
        }
        std::string_view const text(line, static_cast<size_t>(length) - 1);
        size_t const blank = text.find(' ');
        record.first = text.substr(0, blank);
        record.second = text.substr(blank + 1);
        return *this;
    }

private:
    FILE* source;
    std::pair<std::string, std::string> record;
    static inline char* line = nullptr;
    static inline size_t size = 0;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    orvek::mail::postfix::DatabaseHelper::addRecords(argv[1], Reading(stdin), Reading(nullptr));
}
