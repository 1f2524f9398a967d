// batch_database_helper - collects changes of several maps and applies them map by map
//
// commit() applies the additions of each map with one run of postmap, in the order of the map
// names, and then the removals in the same way; so a key that was both added and removed ends
// up removed, whatever came first. Within a map changes keep their order of arrival. An
// incremental batch adds its records to the map; one that is not makes them the whole map.
// What is not committed is dropped in silence when the object ends.
//
// An immediate batch keeps nothing: each change is applied by the call that brings it.
//
// Failures: PostfixDatabaseError "unable to form record cache", and what DatabaseHelper raises.
// The latter ends commit() at once: the maps before it stay changed, the ones behind it are not
// touched, and nothing is put back. The additions are forgotten once all of them are applied,
// and so are the removals.

#ifndef MAILVEK_POSTFIX_MAPS_BATCH_DATABASE_HELPER_H
#define MAILVEK_POSTFIX_MAPS_BATCH_DATABASE_HELPER_H

#include "postfix/maps/database_helper.h"

#include <list>
#include <map>
#include <string>
#include <utility>

namespace orvek::mail::postfix {

class BatchDatabaseHelper
{
public:
    BatchDatabaseHelper(bool incremental_, bool immediate_)
        : incremental(incremental_), immediate(immediate_)
    {
    }
    BatchDatabaseHelper(BatchDatabaseHelper const&) = delete;
    BatchDatabaseHelper& operator=(BatchDatabaseHelper const&) = delete;

    void addChange(std::string const& map, std::string const& key, std::string const& value);

    // Of pairs of key and value; the iterators are forward iterators.
    template<class Iterator>
    void addChanges(std::string const& map, Iterator first, Iterator last)
    {
        if (immediate)
            apply(map, first, last);
        else
            append(cacheOf(additions, map), first, last);
    }

    // Of keys. Deliberate: incremental is for additions alone.
    template<class Iterator>
    void removeChanges(std::string const& map, Iterator first, Iterator last)
    {
        if (immediate)
            DatabaseHelper::removeRecords(map, first, last);
        else
            append(cacheOf(removals, map), first, last);
    }

    void commit();

    bool incremental;
    bool immediate;

private:
    using Additions = std::map<std::string, std::list<std::pair<std::string, std::string>>>;
    using Removals = std::map<std::string, std::list<std::string>>;

    template<class Iterator>
    void apply(std::string const& map, Iterator first, Iterator last) const
    {
        if (incremental)
            DatabaseHelper::addRecords(map, first, last);
        else
            DatabaseHelper::replaceRecords(map, first, last);
    }

    // Either the whole range is appended or nothing.
    template<class List, class Iterator>
    static void append(List& list, Iterator first, Iterator last)
    {
        list.insert(list.end(), first, last);
    }

    static Additions::mapped_type& cacheOf(Additions& cache, std::string const& map);
    static Removals::mapped_type& cacheOf(Removals& cache, std::string const& map);

    Additions additions;
    Removals removals;
};

} // namespace orvek::mail::postfix

#endif
