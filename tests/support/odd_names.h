// odd_names - names that every layer must handle: quotes, formats, backslashes, odd bytes, empty

#ifndef MAILVEK_TESTS_SUPPORT_ODD_NAMES_H
#define MAILVEK_TESTS_SUPPORT_ODD_NAMES_H

#include <string>
#include <vector>

inline std::vector<std::string> const& oddNames()
{
    static std::vector<std::string> const names = {
        "o'brien",
        "'; DROP TABLE users; --",
        "\"quoted\"",
        "`back`",
        "100%",
        "%s%n%d",
        "back\\slash\\",
        "gr\xc3\xbc\xc3\x9f", // UTF-8
        "\xff\xfe\x80 no UTF-8",
        "two\nlines\r\n",
        "tab\tand \x01 control \x7f",
        "a?b:c$d",
        " blanks ",
        "NULL",
        "",
        std::string(5000, 'x'),
    };
    return names;
}

#endif
