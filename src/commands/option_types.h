// option_types - types of option values with their own validation
//
// The option library finds each type's validate function. A bad value raises the library's
// invalid_option_value with the word. A netmask that is not a number raises
// boost::bad_lexical_cast, which is not an option error.

#ifndef MAILVEK_COMMANDS_OPTION_TYPES_H
#define MAILVEK_COMMANDS_OPTION_TYPES_H

#include <boost/any.hpp>

#include <string>
#include <vector>

namespace orvek::mail::postfix::mailvek_commands {

// The account format: "compound" is false, "both" is true. Given once.
struct ShortnameFormat
{
    bool value = false;
};

// A prefix length from 0 to 32. Given once.
struct IPv4Mask
{
    unsigned short value = 0;
};

// A set of components, 0 for none. The option may be given several times: the sets add up.
struct SelectedMailComponents
{
    enum MailComponents : unsigned int
    {
        mta = 0x1,
        smtp = 0x2,
        smtps = 0x4,
        submission = 0x8,
        pop3 = 0x10,
        imap = 0x20,
        pop3s = 0x40,
        imaps = 0x80,
        all = 0xffff
    };

    unsigned int mask = 0;
};

void validate(boost::any& value, std::vector<std::string> const& tokens, ShortnameFormat*, int);
void validate(boost::any& value, std::vector<std::string> const& tokens, IPv4Mask*, int);
void validate(boost::any& value, std::vector<std::string> const& tokens, SelectedMailComponents*,
              int);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
