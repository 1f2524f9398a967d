#include "commands/handlers.h"

#include "commands/command_values.h"
#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "mail/lib/handlers/handler_lookup.h"
#include "mail/lib/handlers/handler_mass_control.h"
#include "mail/lib/handlers/mail_handlers.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <string>
#include <vector>

#include <syslog.h>

namespace orvek::mail::postfix::mailvek_commands {

namespace {

// The options of one command line.
class HandlerOptions
{
public:
    HandlerOptions(int argc, char** argv) : helper(parsedOptions(argc, argv)) {}

    char const* operator[](char const* option) const { return value(option).c_str(); }

    // Deliberate: the word is matched in lower case only; the store ignores case.
    bool isGlobal() const { return value("handler-type") == "global"; }

    bool hasTypeName() const { return helper.values().count("handler-type-name") != 0; }

    // Required unless global, which the parser cannot express. A missing name is a fatal error, not
    // a usage error.
    std::string const& typeName() const
    {
        if (!hasTypeName())
            throw MissingMandatoryOption("handler-type-name");
        return value("handler-type-name");
    }

    // The names in --handler-type-name, which may be a list.
    std::vector<std::string> targets() const
    {
        std::vector<std::string> tokens;
        boost::algorithm::split(tokens, typeName(), boost::algorithm::is_any_of(", "));
        std::erase(tokens, "");
        return tokens;
    }

    // The full name of the handler, or null.
    CString find(char const* typeName) const
    {
        return CString(get_handler_name((*this)["handler-name"], (*this)["handler-type"], typeName,
                                        (*this)["hook"]));
    }

    void logSkipped(std::string const& target) const
    {
        orvek_log(LOG_WARNING, "Handler %s for %s %s does not exist in queue %s",
                  (*this)["handler-name"], (*this)["handler-type"], target.c_str(),
                  (*this)["hook"]);
    }

private:
    std::string const& value(char const* option) const
    {
        return helper.values()[option].as<std::string>();
    }

    ProgramOptionsHelper helper;
};

int add(HandlerOptions const& options, char const* typeName)
{
    return mail_handler_add(options["handler-name"], options["handler-type"], typeName,
                            options["executable"], options["context"], options["hook"],
                            options["priority"], HOOK_ENABLE);
}

int update(HandlerOptions const& options, char const* typeName)
{
    return mail_handler_update(options["handler-name"], options["handler-type"], typeName,
                               options["executable"], options["context"], options["hook"],
                               options["priority"]);
}

// A command that does one thing to existing handlers.
struct ControlCommand
{
    int (*one)(char const* fullName);
    handler_control_t all;
    bool all_can_fail;
};

constexpr ControlCommand remove_command = {mail_handler_remove, HOOK_DELETE,
                                           // Deliberate: a failure is only reported.
                                           false};

constexpr ControlCommand disable_command = {
    [](char const* fullName) { return control_handler_queue(fullName, nullptr, HOOK_DISABLE); },
    HOOK_DISABLE, true};

constexpr ControlCommand enable_command = {
    [](char const* fullName) { return control_handler_queue(fullName, nullptr, HOOK_ENABLE); },
    HOOK_ENABLE, true};

int controlAll(ControlCommand const& command, HandlerOptions const& options)
{
    int const result = mass_control_handler_queue(options["handler-name"], command.all);
    return command.all_can_fail && result != 0 ? 1 : 0;
}

int controlHandlers(ControlCommand const& command, int argc, char** argv)
{
    HandlerOptions const options(argc, argv);
    if (options.isGlobal()) {
        CString const fullName = options.find(nullptr);
        return fullName && command.one(fullName.get()) != 0 ? 1 : 0;
    }
    if (options.typeName() == "all")
        return controlAll(command, options);
    int status = 0;
    for (auto const& target : options.targets()) {
        CString const fullName = options.find(target.c_str());
        if (!fullName)
            options.logSkipped(target);
        else if (command.one(fullName.get()) != 0)
            status = 1;
    }
    return status;
}

} // namespace

int addHandler(int argc, char** argv)
{
    HandlerOptions const options(argc, argv);
    if (options.isGlobal())
        return add(options, nullptr) == 0 ? 0 : 1;
    int status = 0;
    for (auto const& target : options.targets()) {
        // Deliberate: the report says that the handler does not exist, although it does.
        if (options.find(target.c_str()))
            options.logSkipped(target);
        else if (add(options, target.c_str()) != 0)
            status = 1;
    }
    return status;
}

int updateHandler(int argc, char** argv)
{
    HandlerOptions const options(argc, argv);
    if (options.isGlobal())
        return update(options, nullptr) == 0 ? 0 : 1;
    int status = 0;
    for (auto const& target : options.targets()) {
        if (!options.find(target.c_str()))
            options.logSkipped(target);
        else if (update(options, target.c_str()) != 0)
            status = 1;
    }
    return status;
}

int removeHandler(int argc, char** argv)
{
    return controlHandlers(remove_command, argc, argv);
}

int disableHandler(int argc, char** argv)
{
    return controlHandlers(disable_command, argc, argv);
}

int enableHandler(int argc, char** argv)
{
    return controlHandlers(enable_command, argc, argv);
}

// Deliberate: the status is 1 if the handler exists and 0 if not. The panel relies on it.
int checkHandler(int argc, char** argv)
{
    HandlerOptions const options(argc, argv);
    // Deliberate: takes the value as one name, never as a list.
    bool const named = options.hasTypeName() || !options.isGlobal();
    return options.find(named ? options.typeName().c_str() : nullptr) ? 1 : 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
