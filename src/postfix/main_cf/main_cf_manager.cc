#include "postfix/main_cf/main_cf_manager.h"

#include "lib/host/ifaceinf.h"
#include "postfix/main_cf/parameter_lists.h"
#include "postfix/main_cf/parameter_names.h"
#include "postfix/main_cf/parameter_values.h"
#include "postfix/main_cf/replaced_file.h"
#include "postfix/tools/postmap_output.h"
#include "postfix/tools/tool_result.h"
#include "postfix/tools/tool_run.h"
#include "util/errors.h"
#include "util/mk_lock.h"

#include <boost/algorithm/string/replace.hpp>
#include <boost/algorithm/string/trim.hpp>

#include <algorithm>
#include <memory>
#include <vector>

namespace orvek::mail::postfix {

namespace {

using boost::algorithm::trim_copy;

// The loopback network. The host's first address follows if the interfaces can be listed.
std::string pinnedNetworks()
{
    std::string pinned = "127.0.0.0/8";
    std::unique_ptr<ifaceinfo, void (*)(ifaceinfo*)> const interfaces(get_ifaceinfo(nullptr),
                                                                      free_ifaceinfo);
    // Deliberate: a host without an address gets the element "/32". The first record always exists,
    // because an empty one ends the list.
    if (interfaces)
        pinned.append(", ").append(interfaces->ip).append("/32");
    return pinned;
}

std::string pinDefault(std::string const& current)
{
    ToolResult const answer = runPostconf({"-h", "-d", parameter::my_networks});
    requireSuccess(answer.status, answer.diagnostics);
    std::string const standard = trim_copy(answer.output);
    std::string pinned = pinnedNetworks();
    // Deliberate: any value shorter than the default counts as the default.
    if (standard == current || standard.size() > current.size())
        return pinned;
    size_t const position = current.find(standard);
    if (position == std::string::npos)
        return current;
    // Deliberate: the text before the default is dropped.
    return pinned + current.substr(position + standard.size());
}

} // namespace

MainCfManager& MainCfManager::getInstance()
{
    static MainCfManager instance;
    return instance;
}

MainCfManager::MainCfManager()
{
    std::string const directory = getStringValue(parameter::config_directory, /*defaults=*/false);
    if (directory.empty())
        throw PostfixConfigurationError("unable to determine Postfix config_directory parameter");
    mainCfPath = directory + "/main.cf";
}

std::string MainCfManager::getStringValue(std::string const& name, bool defaults) const
{
    ToolResult const answer = runPostconf(defaults ? std::vector<std::string>{"-h", "-d", name}
                                                   : std::vector<std::string>{"-h", name});
    requireSuccess(answer.status, answer.diagnostics);
    if (answer.output.empty() && !checkOutput(answer.diagnostics, /*strict=*/false))
        throw PostfixConfigurationError(answer.diagnostics);
    std::string value = trim_copy(answer.output);
    return name == parameter::my_networks ? pinDefault(value) : value;
}

std::string MainCfManager::getExpandedValues(std::vector<std::string> const& names)
{
    std::vector<std::string> arguments = {"-h", "-x"};
    arguments.insert(arguments.end(), names.begin(), names.end());
    ToolResult const answer = runPostconf(arguments);
    requireSuccess(answer.status, answer.diagnostics);
    return boost::algorithm::replace_all_copy(trim_copy(answer.output), "\n", " ");
}

void MainCfManager::replaceStringValue(std::string const& name, std::string const& value) const
{
    requireOneLine(name, value);
    ToolResult answer;
    {
        MKLock const lock(mainCfPath);
        ReplacedFile const file(mainCfPath);
        answer = runPostconf({"-e", name + "=" + value});
        file.settle();
    }
    requireSuccess(answer.status, answer.diagnostics);
}

void MainCfManager::appendStringValue(std::string const& name, std::string const& value) const
{
    requireLiteral(name, value);
    std::string const current = getStringValue(name, /*defaults=*/false);
    std::vector<std::string> const words = splitSimpleList(current);
    if (std::ranges::find(words, value) == words.end())
        replaceStringValue(name, words.empty() ? value : current + ", " + value);
    else if (name == parameter::my_networks)
        replaceStringValue(name, current);
}

void MainCfManager::appendCompoundStringValue(std::string const& name, std::string const& key,
                                              std::string const& value) const
{
    std::string const clause = key + " " + value;
    requireLiteral(name, clause);
    std::vector<std::string> clauses = splitCompoundList(getStringValue(name, /*defaults=*/false));
    if (std::ranges::find(clauses, trim_copy(clause)) != clauses.end())
        return;
    clauses.push_back(clause);
    replaceStringValue(name, joinList(clauses));
}

void MainCfManager::removeListElement(std::string const& name, std::string const& element) const
{
    std::vector<std::string> words = splitSimpleList(getStringValue(name, /*defaults=*/false));
    if (std::erase(words, element) > 0)
        replaceStringValue(name, joinList(words));
}

} // namespace orvek::mail::postfix
