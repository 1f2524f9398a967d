#include "postfix/main_cf/main_cf_manager.h"

#include "lib/host/ifaceinf.h"
#include "postfix/main_cf/parameter_lists.h"
#include "postfix/main_cf/replaced_file.h"
#include "postfix/tools/postmap_output.h"
#include "postfix/tools/tool_result.h"
#include "process/pipe.h"
#include "util/errors.h"
#include "util/mk_lock.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace orvek::mail::postfix {

namespace {

constexpr char networks[] = "mynetworks";

struct Answer
{
    int status = -1;
    std::string out;
    std::string err;
};

Answer postconf(std::vector<std::string> const& arguments)
{
    process::Parameters<process::PipeProcessFlags> stage("/usr/sbin/postconf");
    stage.args.insert(stage.args.end(), arguments.begin(), arguments.end());
    Answer answer;
    process::Pipe pipe;
    pipe.append(stage);
    pipe.stdinMode = process::DevNull;
    pipe.stdoutMode = process::Capture;
    pipe.stdoutReceiver = process::makeStringReceiver(answer.out);
    pipe.stderrMode = process::Capture;
    pipe.stderrReceiver = process::makeStringReceiver(answer.err);
    answer.status = pipe.run();
    return answer;
}

// The loopback network, and the host's first address if the interfaces can be listed.
std::string pinnedNetworks()
{
    std::string pinned = "127.0.0.0/8";
    std::unique_ptr<ifaceinfo, void (*)(ifaceinfo*)> const interfaces(get_ifaceinfo(nullptr),
                                                                      free_ifaceinfo);
    // Deliberate: a host without an address gets an element without one, "/32". The record
    // behind the last one is empty, so the first one is always there to be read.
    if (interfaces)
        pinned.append(", ").append(interfaces->ip).append("/32");
    return pinned;
}

std::string pinDefault(std::string const& current)
{
    Answer const answer = postconf({"-h", "-d", networks});
    requireSuccess(answer.status, answer.err);
    std::string_view const standard = trimmed(answer.out);
    std::string pinned = pinnedNetworks();
    // Deliberate: any value that is shorter than the default is taken for it.
    if (standard == current || standard.size() > current.size())
        return pinned;
    size_t const position = current.find(standard);
    if (position == std::string::npos)
        return current;
    // Deliberate: what stands in front of the default is dropped.
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
    std::string const directory = getStringValue("config_directory", false);
    if (directory.empty())
        throw PostfixConfigurationError("unable to determine Postfix config_directory parameter");
    mainCfPath = directory + "/main.cf";
}

std::string MainCfManager::getStringValue(std::string const& name, bool defaults) const
{
    Answer const answer = postconf(defaults ? std::vector<std::string>{"-h", "-d", name}
                                            : std::vector<std::string>{"-h", name});
    requireSuccess(answer.status, answer.err);
    if (answer.out.empty() && !checkOutput(answer.err, false))
        throw PostfixConfigurationError(answer.err);
    std::string value(trimmed(answer.out));
    return name == networks ? pinDefault(value) : value;
}

void MainCfManager::replaceStringValue(std::string const& name, std::string const& value) const
{
    Answer answer;
    {
        MKLock const lock(mainCfPath);
        ReplacedFile const file(mainCfPath);
        answer = postconf({"-e", name + "=" + value});
        file.settle();
    }
    requireSuccess(answer.status, answer.err);
}

void MainCfManager::appendStringValue(std::string const& name, std::string const& value) const
{
    std::string const current = getStringValue(name, false);
    std::vector<std::string> const words = splitSimpleList(current);
    if (std::ranges::find(words, value) == words.end())
        replaceStringValue(name, words.empty() ? value : current + ", " + value);
    else if (name == networks)
        replaceStringValue(name, current);
}

void MainCfManager::appendCompoundStringValue(std::string const& name, std::string const& key,
                                              std::string const& value) const
{
    std::string const clause = key + " " + value;
    std::vector<std::string> clauses = splitCompoundList(getStringValue(name, false));
    if (std::ranges::find(clauses, trimmed(clause)) != clauses.end())
        return;
    clauses.push_back(clause);
    replaceStringValue(name, joinList(clauses));
}

void MainCfManager::removeListElement(std::string const& name, std::string const& element) const
{
    std::vector<std::string> words = splitSimpleList(getStringValue(name, false));
    if (std::erase(words, element) > 0)
        replaceStringValue(name, joinList(words));
}

} // namespace orvek::mail::postfix
