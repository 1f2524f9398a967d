// batch_database_helper - collects changes of several maps and applies them map by map
//
// commit() applies the additions of each map with one run of postmap, in the order of the map
// names. Then it applies the removals in the same way, so a key that was both added and removed is
// removed, in whatever order the calls came. Within a map changes keep their order. An incremental
// batch adds its records to the map; any other makes them the whole map. Changes that were not
// committed are dropped silently when the object ends.
//
// An immediate batch keeps nothing: each call applies its change.
//
// Failures: PostfixDatabaseError "unable to form record cache", and what DatabaseHelper raises. The
// latter ends commit() at once: earlier maps stay changed, later ones are not touched, and nothing
// is undone. commit() forgets the additions once all of them are applied, and then the removals
// likewise.
//
// No command calls these; they are for callers to come: BatchDatabaseHelper::commit.

#ifndef MAILVEK_POSTFIX_MAPS_BATCH_DATABASE_HELPER_H
#define MAILVEK_POSTFIX_MAPS_BATCH_DATABASE_HELPER_H

#include "postfix/maps/database_helper.h"

#include <list>
#include <map>
#include <string>
#include <utility>

namespace orvek::mail::postfix {

// What the additions of a batch are: records of the map, or all that it holds.
enum class BatchContent
{
    added,
    whole
};

enum class BatchTiming
{
    at_commit,
    at_once
};

class BatchDatabaseHelper
{
public:
    BatchDatabaseHelper(BatchContent content, BatchTiming timing)
        : incremental(content == BatchContent::added), immediate(timing == BatchTiming::at_once)
    {
    }
    BatchDatabaseHelper(BatchDatabaseHelper const&) = delete;
    BatchDatabaseHelper& operator=(BatchDatabaseHelper const&) = delete;

    void addChange(std::string const& map, std::string const& key, std::string const& value);

    // Takes pairs of key and value; the iterators are forward iterators.
    template<class Iterator>
    void addChanges(std::string const& map, Iterator first, Iterator last)
    {
        if (immediate)
            apply(map, first, last);
        else
            append(cacheOf(additions, map), first, last);
    }

    // Takes keys. Deliberate: incremental concerns additions only.
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

// A batch that adds to the maps and applies each change at once.
struct AtOnce : BatchDatabaseHelper
{
    AtOnce() : BatchDatabaseHelper(BatchContent::added, BatchTiming::at_once) {}
};

} // namespace orvek::mail::postfix

#endif
