#include "postfix/maps/batch_database_helper.h"

#include "util/errors.h"

#include <new>

namespace orvek::mail::postfix {

namespace {

template<class Cache>
typename Cache::mapped_type& listOf(Cache& cache, std::string const& map)
{
    try {
        return cache[map];
    } catch (std::bad_alloc const&) {
        throw PostfixDatabaseError("unable to form record cache");
    }
}

} // namespace

BatchDatabaseHelper::Additions::mapped_type& BatchDatabaseHelper::cacheOf(Additions& cache,
                                                                          std::string const& map)
{
    return listOf(cache, map);
}

BatchDatabaseHelper::Removals::mapped_type& BatchDatabaseHelper::cacheOf(Removals& cache,
                                                                         std::string const& map)
{
    return listOf(cache, map);
}

void BatchDatabaseHelper::addChange(std::string const& map, std::string const& key,
                                    std::string const& value)
{
    std::pair<std::string, std::string> const record(key, value);
    addChanges(map, &record, &record + 1);
}

void BatchDatabaseHelper::commit()
{
    for (auto const& [map, records] : additions)
        apply(map, records.begin(), records.end());
    additions.clear();
    for (auto const& [map, keys] : removals)
        DatabaseHelper::removeRecords(map, keys.begin(), keys.end());
    removals.clear();
}

} // namespace orvek::mail::postfix
