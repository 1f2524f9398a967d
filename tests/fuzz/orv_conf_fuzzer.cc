// orv_conf_fuzzer - compares the reader of the product configuration with a reference

#include "fuzz_target.h"
#include "lib/conf/read_configuration.h"

#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr char white_space[] = " \t\n\v\f\r";
constexpr char name_characters[] =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";

// The text from the first character that is not white space to the end or a NUL.
std::string textFrom(std::string const& line, std::size_t position)
{
    std::size_t const begin = line.find_first_not_of(white_space, position);
    return begin == std::string::npos ? "" : line.substr(begin).c_str();
}

bool isEmptyOrComment(std::string const& text)
{
    return text.empty() || text[0] == '#';
}

// A value without its comment, and without the last character of an odd run of white space.
std::string valueOf(std::string const& text)
{
    std::string value = text.substr(0, text.find('#', 1));
    std::size_t const visible = value.find_last_not_of(white_space) + 1;
    if ((value.size() - visible) % 2 == 1)
        value.pop_back();
    return value;
}

std::optional<std::pair<std::string, std::string>> definition(std::string const& line)
{
    std::string const text = textFrom(line.c_str(), 0);
    if (isEmptyOrComment(text))
        return std::nullopt;
    std::size_t const name_end = text.find_first_not_of(name_characters);
    if (name_end == std::string::npos || !strchr(white_space, text[name_end]))
        return std::nullopt;
    std::string const value = textFrom(text, name_end);
    if (isEmptyOrComment(value))
        return std::nullopt;
    return std::make_pair(text.substr(0, name_end), valueOf(value));
}

std::map<std::string, std::string> reference(std::string const& text)
{
    std::map<std::string, std::string> values;
    for (std::size_t begin = 0; begin < text.size();) {
        std::size_t const newline = text.find('\n', begin);
        std::size_t const end = newline == std::string::npos ? text.size() : newline + 1;
        if (auto const defined = definition(text.substr(begin, end - begin)))
            values[defined->first] = defined->second;
        begin = end;
    }
    return values;
}

conf_data* readText(std::string const& text)
{
    int const file = memfd_create("orv.conf", 0);
    require(file >= 0 && write(file, text.data(), text.size()) == ssize_t(text.size()),
            "there is no file to read");
    std::string const path = "/proc/self/fd/" + std::to_string(file);
    auto* const conf = static_cast<conf_data*>(calloc(1, sizeof(conf_data)));
    require(conf_read_file_r(path.c_str(), conf) == 0, "the file is not read");
    close(file);
    return conf;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string const text(reinterpret_cast<char const*>(data), size);
    auto const values = reference(text);
    conf_data* const conf = readText(text);
    require(conf->nmemb == values.size(), "the names differ");
    for (auto const& [name, value] : values) {
        char const* const found = conf_get_r(name.c_str(), conf);
        require(found && found == value, "a value differs");
    }
    conf_free_r(conf);
    return 0;
}
