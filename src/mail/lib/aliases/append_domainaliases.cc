#include "mail/lib/aliases/append_domainaliases.h"

#include "lib/text/string.h"
#include "mail/lib/aliases/mail_database.h"

namespace orvek::mail {

void append_domainaliases_by_domain(std::vector<std::string>& names, std::string const& domain)
{
    char** found = nullptr;
    // Deliberate: a failure counts as no alias domains, so that the domain itself is still changed.
    static_cast<void>(get_domaliases_by_domain(nullptr, &found, domain.c_str()));
    StringArray const aliases(found);
    for (char const* const* alias = aliases.get(); alias && *alias; ++alias)
        names.emplace_back(*alias);
}

} // namespace orvek::mail
