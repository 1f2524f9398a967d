#include "lib/report/visible.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr char hex_digits[] = "0123456789abcdef";
// The longest form of a shown byte is "\xNN".
constexpr std::size_t longest_shown = 4;

unsigned char byte_of(char c)
{
    return static_cast<unsigned char>(c);
}

// Whether the byte at place must be shown as an escape. Looks at the byte before it for UTF-8.
bool is_control(std::string_view text, std::size_t place)
{
    unsigned char const byte = byte_of(text[place]);
    if (byte < 0x20 || byte == 0x7f)
        return byte != '\t';
    return byte >= 0x80 && byte < 0xa0 && place > 0 && byte_of(text[place - 1]) == 0xc2;
}

// Writes the escape for the byte and returns the end of it.
char* show(char* end, char c)
{
    *end++ = '\\';
    if (c == '\n' || c == '\r') {
        *end++ = c == '\n' ? 'n' : 'r';
        return end;
    }
    *end++ = 'x';
    *end++ = hex_digits[byte_of(c) >> 4];
    *end++ = hex_digits[byte_of(c) & 0xf];
    return end;
}

// result must have room for longest_shown bytes per byte of text. Returns the end of the output.
template<typename Keep>
char* show_all(std::string_view text, char* result, Keep keep)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool const opens_control =
            i + 1 < text.size() && byte_of(text[i]) == 0xc2 && is_control(text, i + 1);
        if (opens_control || (is_control(text, i) && !keep(i)))
            result = show(result, text[i]);
        else
            *result++ = text[i];
    }
    return result;
}

template<typename Keep>
std::string shown(std::string_view text, Keep keep)
{
    std::string result(longest_shown * text.size(), '\0');
    char const* const end = show_all(text, result.data(), keep);
    result.resize(static_cast<std::size_t>(end - result.data()));
    return result;
}

// Formats again with \v for each newline of fmt. Where the two texts differ, the newline came from
// fmt and not from an argument. Null without memory.
[[gnu::format(printf, 2, 0)]] CString marked(std::size_t length, char const* fmt, va_list args)
{
    CString changed(strdup(fmt));
    CString text(static_cast<char*>(malloc(length + 1)));
    if (!changed || !text)
        return nullptr;
    for (char* newline = changed.get(); (newline = strchr(newline, '\n'));)
        *newline = '\v';
    va_list copy;
    va_copy(copy, args);
// The format is the caller's except for its newlines.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    vsnprintf(text.get(), length + 1, changed.get(), copy);
#pragma GCC diagnostic pop
    va_end(copy);
    return text;
}

bool ends_in_whole_text(std::string_view fmt)
{
    return fmt == "%s" || fmt.ends_with("\n%s");
}

bool needs_showing(std::string_view text, std::string_view fmt)
{
    if (text.ends_with('\n') && fmt.ends_with('\n'))
        text.remove_suffix(1);
    for (std::size_t i = 0; i < text.size(); ++i)
        if (is_control(text, i))
            return true;
    return false;
}

void mask(char* printed, std::string_view fmt)
{
    std::string_view text = printed;
    if (text.ends_with('\n') && fmt.ends_with('\n'))
        text.remove_suffix(1);
    for (std::size_t i = 0; i < text.size(); ++i)
        if (is_control(text, i))
            printed[i] = '?';
}

} // namespace

std::string visible(std::string_view text)
{
    return shown(text, [](std::size_t) { return false; });
}

std::string visible_lines(std::string_view text)
{
    return shown(text, [=](std::size_t i) { return text[i] == '\n'; });
}

std::string visible_field(std::string_view text)
{
    std::string result = visible(text);
    for (std::size_t tab = 0; (tab = result.find('\t', tab)) != std::string::npos; ++tab)
        result.replace(tab, 1, "\\t");
    return result;
}

CString visible_arguments(char* printed, char const* fmt, va_list args)
{
    ErrnoKeeper const keeper;
    std::string_view const text = printed;
    if (!needs_showing(text, fmt))
        return nullptr;
    CString const mark = marked(text.size(), fmt, args);
    CString result(mark ? static_cast<char*>(malloc(longest_shown * text.size() + 1)) : nullptr);
    if (!result) {
        mask(printed, fmt);
        return nullptr;
    }
    auto const is_own = [&](std::size_t i) { return text[i] == '\n' && mark.get()[i] == '\v'; };
    std::size_t whole_text = text.size();
    if (ends_in_whole_text(fmt))
        while (whole_text > 0 && !is_own(whole_text - 1))
            --whole_text;
    char* const end = show_all(text, result.get(), [&](std::size_t i) {
        return text[i] == '\n' && (i >= whole_text || is_own(i));
    });
    *end = '\0';
    return result;
}
