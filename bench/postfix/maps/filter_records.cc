// Renames a domain in the keys and values of a map: bench_filter_records MAP FROM TO

#include "postfix/maps/database_helper.h"
#include "postfix/maps/domain_filters.h"
#include "postfix/maps/record_filters.h"

#include <string>

using namespace orvek::mail::postfix;

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    std::string const from = argv[2];
    std::string const to = argv[3];
    DatabaseHelper::filterRecords(argv[1],
                                  database::ElementsFilter<ReplaceDomainPart>({&from, &to, false}));
}
