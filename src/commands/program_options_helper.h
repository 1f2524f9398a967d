// program_options_helper - the options of one command
//
// It adds to the option library a usage text for the command, "--help" on every command, and
// mandatory options with one uniform error. standardOptionsParse ends a bad command line with
// its message on orvek::uerr, the usage on standard output and exit status 1.

#ifndef MAILVEK_COMMANDS_PROGRAM_OPTIONS_HELPER_H
#define MAILVEK_COMMANDS_PROGRAM_OPTIONS_HELPER_H

#include <boost/program_options/errors.hpp>
#include <boost/program_options/options_description.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <boost/program_options/variables_map.hpp>

#include <forward_list>
#include <ostream>
#include <string>

namespace orvek::mail::postfix::mailvek_commands {

// A mandatory option is missing. During the parse this is a bad command line like any other; a
// handler that raises it later ends in a fatal error.
class MissingMandatoryOption : public boost::program_options::error
{
public:
    explicit MissingMandatoryOption(std::string const& option);
};

class ProgramOptionsHelper
{
public:
    // description: one line that says what the command does; usageLine: its synopsis.
    ProgramOptionsHelper(std::string const& description, std::string const& usageLine);

    // Declares options on its helper, one per call. A mandatory option's description ends in
    // " (mandatory)". Of several missing options the error names the one declared last.
    class OptionAppender
    {
    public:
        explicit OptionAppender(ProgramOptionsHelper& helper) : helper(&helper) {}

        // Takes ownership of the semantic.
        OptionAppender& operator()(char const* name,
                                   boost::program_options::value_semantic const* semantic,
                                   char const* description, bool mandatory);
        // A flag without a value. Deliberate: mandatory is ignored.
        OptionAppender& operator()(char const* name, char const* description, bool mandatory);

    private:
        ProgramOptionsHelper* helper;
    };

    OptionAppender addOptions() { return OptionAppender(*this); }

    // Parses the words after argv[0], which is the command's name. A request for help prints the
    // usage and ends the process with 0; it wins over a missing option but not over a malformed
    // one. Raises what the library raises, and MissingMandatoryOption.
    void parse(int argc, char** argv);

    // The parsed values.
    boost::program_options::variables_map const& values() const { return variables; }

    // Prints description, usage line and options, and ends the process.
    [[noreturn]] void usage(int exitCode, std::ostream& out) const;

private:
    void checkMandatory() const;

    boost::program_options::options_description options;
    boost::program_options::variables_map variables;
    std::string description;
    std::forward_list<std::string> mandatory_names;
    std::string usage_line;
};

// Parses; on a bad command line reports, prints the usage and ends the process with 1.
void standardOptionsParse(ProgramOptionsHelper& helper, int argc, char** argv);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
