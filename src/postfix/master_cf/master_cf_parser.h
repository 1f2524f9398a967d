// master_cf_parser - reads the text of a master.cf
//
// parse fills the content and returns whether the whole text is one master.cf. When it is not,
// what has been filled in is useless. There is no recovery from a bad line.
//
//   file     line ( LF line )*
//   line     module | blanks comment | blanks
//   module   name type private unprivileged chroot wakeup maxproc command
//
// A separator stands between each two (see continuous_spaces_parser in text_parsers.h). It may be
// empty where two columns can be told apart without it. Names consist of lower-case letters,
// digits and "-_:.". The types are those of module_info.h. The next three columns are "y", "n" or
// "-". The two numbers are "-" or decimals of at most 32 bits; the wake-up time may have a "?".
// The words of the command are any printable ASCII characters but "#". The text of a service runs
// from its name to the blanks after its last word.
//
// Deliberate: there is one working record. It is cleared when the parser is made and never between
// two services. A "-" leaves the value of the latest service that had one, the "?" stays, and each
// command also holds the words of all earlier services. Only the raw text counts.

#ifndef MAILVEK_POSTFIX_MASTER_CF_MASTER_CF_PARSER_H
#define MAILVEK_POSTFIX_MASTER_CF_MASTER_CF_PARSER_H

#include "postfix/master_cf/master_cf_content.h"
#include "postfix/master_cf/text_parsers.h"

namespace orvek::mail::postfix {

// Adds the service of the working record under its text.
struct MasterCfModuleAppender
{
    MasterCfContent& content;
    ModuleInfo const& info;

    void operator()(parser::Position first, parser::Position last) const
    {
        content.addModule(info, {first, last});
    }
};

// Adds a text that is not a service. It may be empty.
struct MasterCfRawAppender
{
    MasterCfContent& content;

    void operator()(parser::Position first, parser::Position last) const
    {
        content.lines.emplace_back(first, last);
    }
};

class MasterCfParser
{
public:
    explicit MasterCfParser(MasterCfContent& content) : content(content) {}

    bool parse(parser::Position first, parser::Position last);

private:
    parser::Position line(parser::Position first, parser::Position last);
    parser::Position module(parser::Position first, parser::Position last);
    parser::Position command(parser::Position first, parser::Position last);

    MasterCfContent& content;
    ModuleInfo info;
};

} // namespace orvek::mail::postfix

#endif
