// maildirsize_fuzzer - compares the reader of maildirsize with a reference
//
// The Maildir has one message, of a size that no maildirsize gives.

#include "fuzz_target.h"
#include "mail/lib/quota/maildirpp_usage.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

namespace {

struct Usage
{
    sizequota_t size = 0;
    fcount_t count = 0;
    bool operator==(Usage const&) const = default;
};

constexpr Usage counted = {777777777777, 1};
constexpr std::size_t longest = 5120;

bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Takes a number, and white space before it, from the beginning of the text. The number stops
// growing far above what fits.
std::optional<__int128> takeNumber(std::string_view& text)
{
    text.remove_prefix(std::find_if_not(text.begin(), text.end(), isSpace) - text.begin());
    bool const negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    if (text.empty() || !isDigit(text[0]))
        return std::nullopt;
    __int128 number = 0;
    for (; !text.empty() && isDigit(text[0]); text.remove_prefix(1))
        number = std::min(number * 10 + (text[0] - '0'), __int128(1) << 100);
    return negative ? -number : number;
}

std::optional<Usage> lineUsage(std::string_view line)
{
    auto const size = takeNumber(line);
    if (!size || *size <= LLONG_MIN || *size >= LLONG_MAX || line.empty() || !isSpace(line[0]))
        return std::nullopt;
    auto const count = takeNumber(line);
    // A negative count wraps to the top of the range, where the last value is a fault.
    if (!count || *count >= ULLONG_MAX || *count < -__int128(ULLONG_MAX) || *count == -1 ||
        !line.empty())
        return std::nullopt;
    return Usage{static_cast<sizequota_t>(*size), static_cast<fcount_t>(*count)};
}

std::optional<Usage> reference(std::string_view text)
{
    if (text.size() > longest || !text.ends_with('\n'))
        return std::nullopt;
    Usage sum;
    text.remove_prefix(text.find('\n') + 1);
    while (!text.empty()) {
        auto const line = lineUsage(text.substr(0, text.find('\n')));
        if (!line)
            return std::nullopt;
        add_size(&sum.size, line->size);
        sum.count += line->count;
        text.remove_prefix(text.find('\n') + 1);
    }
    return sum;
}

// Removed at the end.
struct Maildir
{
    Maildir()
    {
        std::string name = std::filesystem::temp_directory_path() / "maildirsize-fuzzer-XXXXXX";
        require(mkdtemp(name.data()) != nullptr, "there is no directory to count in");
        path = name;
        for (char const* const directory : {"cur", "new", "tmp"})
            std::filesystem::create_directory(path / directory);
        std::ofstream(path / ("cur/1.M1.host,S=" + std::to_string(counted.size) + ":2,S"));
    }
    ~Maildir() { std::filesystem::remove_all(path); }
    Maildir(Maildir const&) = delete;
    Maildir& operator=(Maildir const&) = delete;

    std::filesystem::path path;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static Maildir const maildir;
    std::string const text(reinterpret_cast<char const*>(data), size);
    std::ofstream(maildir.path / "maildirsize", std::ios::binary) << text;
    Usage usage;
    require(get_maildirpp_usage(maildir.path.c_str(), &usage.size, &usage.count) == 1,
            "there is no usage");
    require(usage == reference(text).value_or(counted), "the usage differs");
    return 0;
}
