// master_cf_parser - reads the text of a master.cf
//
// parse fills the content and tells whether the whole text is one master.cf. When it is not, what
// has been filled in is of no use. There is no recovery from a bad line.
//
//   file     line ( LF line )*
//   line     module | blanks comment | blanks
//   module   name type private unprivileged chroot wakeup maxproc command
//
// with a separator between each two (see continuous_spaces_parser in text_parsers.h), which may
// be nothing where two columns can be told apart without one. Names are of lower-case letters,
// digits and "-_:.", the types are inet, unix and fifo, the next three columns are "y", "n" or
// "-", the two numbers "-" or decimals of at most 32 bits, the wake-up time with an optional "?",
// and the words of the command of any printable ASCII characters but "#". The text of a service
// goes from its name to the blanks behind its last word.
//
// Deliberate: there is one working record, cleared when the parser is made and never between two
// services. "-" leaves the value of the latest service that had one, the "?" stays, and each
// command holds the words of all services before it. The raw text is what counts.

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

// Adds a text that is no service, an empty one too.
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
