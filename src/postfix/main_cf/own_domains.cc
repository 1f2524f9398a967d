#include "postfix/main_cf/own_domains.h"

#include "postfix/main_cf/main_cf_manager.h"
#include "postfix/main_cf/parameter_lists.h"
#include "postfix/main_cf/parameter_names.h"
#include "postfix/tools/tool_run.h"

#include <boost/algorithm/string/predicate.hpp>

#include <algorithm>
#include <climits>

#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

constexpr char local_domain[] = "localhost.localdomain";

std::string hostName()
{
    char name[HOST_NAME_MAX + 1] = {};
    return gethostname(name, sizeof name) == 0 ? name : "";
}

bool tableHolds(std::string const& table, std::string const& domain)
{
    return !runPostmap({"-q", domain, table}, ToolStreams::withoutInput().collected())
                .output.empty();
}

bool matches(std::string const& element, std::string const& domain)
{
    return element.find(':') == std::string::npos ? boost::algorithm::iequals(element, domain)
                                                  : tableHolds(element, domain);
}

// Whether one of these parameters of main.cf has an element for the domain.
bool isIn(std::vector<std::string> const& parameters, std::string const& domain)
{
    std::vector<std::string> const elements =
        splitSimpleList(MainCfManager::getExpandedValues(parameters));
    return std::ranges::any_of(
        elements, [&](std::string const& element) { return matches(element, domain); });
}

} // namespace

bool isLocalDomain(std::string const& domain)
{
    return boost::algorithm::iequals(domain, local_domain) ||
           isIn({parameter::my_destination}, domain);
}

bool isOwnDomain(std::string const& domain)
{
    return boost::algorithm::iequals(domain, local_domain) ||
           boost::algorithm::iequals(domain, hostName()) ||
           isIn({parameter::my_destination, parameter::my_host_name}, domain);
}

} // namespace orvek::mail::postfix
