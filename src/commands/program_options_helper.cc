#include "commands/program_options_helper.h"

#include "commands/option_error_text.h"
#include "util/uerr.h"

#include <boost/program_options/parsers.hpp>

#include <cstdlib>
#include <iostream>

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

MissingMandatoryOption::MissingMandatoryOption(std::string const& option)
    : po::error("mandatory option \"--" + option + "\" is not specified")
{
}

ProgramOptionsHelper::ProgramOptionsHelper(std::string const& description_,
                                           std::string const& usageLine)
    : options("Allowed options to " + description_), description(description_),
      usage_line(usageLine)
{
}

ProgramOptionsHelper::OptionAppender& ProgramOptionsHelper::OptionAppender::operator()(
    char const* name, po::value_semantic const* semantic, char const* description, bool mandatory)
{
    if (!mandatory) {
        helper->options.add_options()(name, semantic, description);
        return *this;
    }
    helper->mandatory_names.emplace_front(name);
    std::string const marked = std::string(description) + " (mandatory)";
    helper->options.add_options()(name, semantic, marked.c_str());
    return *this;
}

ProgramOptionsHelper::OptionAppender&
ProgramOptionsHelper::OptionAppender::operator()(char const* name, char const* description, bool)
{
    helper->options.add_options()(name, description);
    return *this;
}

void ProgramOptionsHelper::parse(int argc, char** argv)
{
    options.add_options()("help,h", "displays this help message");
    // Style 0 is the library's default: it ignores stray words and accepts abbreviations.
    po::store(po::command_line_parser(argc, argv).options(options).style(0).run(), variables);
    po::notify(variables);
    if (variables.count("help") != 0)
        usage(0, std::cout);
    checkMandatory();
}

void ProgramOptionsHelper::checkMandatory() const
{
    for (auto const& name : mandatory_names)
        if (variables.count(name) == 0)
            throw MissingMandatoryOption(name);
}

void ProgramOptionsHelper::usage(int exitCode, std::ostream& out) const
{
    out << description << std::endl;
    out << "Usage: " << usage_line << std::endl;
    out << options << std::endl;
    exit(exitCode);
}

void standardOptionsParse(ProgramOptionsHelper& helper, int argc, char** argv)
{
    try {
        helper.parse(argc, argv);
    } catch (po::error& e) {
        uerr << optionErrorText(e) << std::endl;
        helper.usage(1, std::cout);
    }
}

} // namespace orvek::mail::postfix::mailvek_commands
