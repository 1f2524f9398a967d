// database_helper - changes Postfix's maps through postmap
//
// DatabaseHelper keeps no state. Each operation takes the map's full name (see map_names.h) and is
// complete when it returns. addRecords and removeRecords have postmap change a copy of the indexed
// file, which is renamed over the one in use, or a large file in place. Adding a key that exists
// gives it the new value, removing a missing one is not a failure, and an empty range starts no
// program. replaceRecords and filterRecords rewrite the whole map: postmap makes a new indexed file
// of a text source. All work is done in a room of root's own, see map_room.h. filterRecords passes
// each record, as postmap -s prints it, through a filter that may rewrite the line and says whether
// it stays; it holds one line in memory.
//
// What fails, or is killed, leaves the map as it was; in a map that is changed in place some of the
// records may be changed. change_lock.h tells how changes of one map wait for each other; those of
// different maps do not.
//
// Failures: PostfixDatabaseError for a key or value that record_text.h does not allow, before
// postmap starts; for one that a filter makes, before the map is rebuilt. PostfixConfigurationError
// with postmap's diagnostics, or "unknown error" without any, from adding, replacing and filtering.
// PostfixDatabaseError with the diagnostics, if any, from removing. The stream's exception when the
// text source cannot be written. System errors when postmap cannot be started, and from the lock
// and the room.
//
// No command calls these, they are for callers to come: DatabaseHelper::addRecord.

#ifndef MAILVEK_POSTFIX_MAPS_DATABASE_HELPER_H
#define MAILVEK_POSTFIX_MAPS_DATABASE_HELPER_H

#include "postfix/maps/record_text.h"
#include "postfix/tools/tool_run.h"

#include <boost/function.hpp>

#include <string>
#include <utility>
#include <vector>

namespace orvek::mail::postfix {

// Rewrites a line, which is one record without its newline; false drops it.
using RecordFilter = boost::function<bool(std::string&)>;

class DatabaseHelper
{
public:
    static void addRecord(std::string const& map, std::string const& key, std::string const& value);

    // Takes pairs of key and value; the iterators are forward iterators.
    template<class Iterator>
    static void addRecords(std::string const& map, Iterator first, Iterator last)
    {
        requireRecords(first, last);
        if (first != last)
            feedAdditions(map, recordsOf(first, last));
    }

    static void removeRecord(std::string const& map, std::string const& key);

    // Takes a pair of key and value. A record of the key with another value stays, which is no
    // failure. One run of postmap looks the value up, a second one removes the record.
    static void removeRecord(std::string const& map,
                             std::pair<std::string, std::string> const& record);

    // Takes keys.
    template<class Iterator>
    static void removeRecords(std::string const& map, Iterator first, Iterator last)
    {
        for (Iterator key = first; key != last; ++key)
            requireKey(*key);
        if (first != last)
            feedRemovals(map, keysOf(first, last));
    }

    template<class Iterator>
    static void replaceRecords(std::string const& map, Iterator first, Iterator last)
    {
        requireRecords(first, last);
        rewrite(map, first == last ? TextSource() : recordsOf(first, last));
    }

    template<class Filter>
    static void filterRecords(std::string const& map, Filter const& filter)
    {
        rewriteFiltered(map, RecordFilter(filter));
    }

private:
    template<class Iterator>
    static void requireRecords(Iterator first, Iterator last)
    {
        for (; first != last; ++first) {
            requireKey(first->first);
            requireValue(first->second);
        }
    }

    template<class Iterator>
    static void formRecord(std::vector<char>& text, Iterator& position)
    {
        appendText(text, position->first);
        text.push_back(' ');
        appendText(text, position->second);
        text.push_back('\n');
        ++position;
    }

    template<class Iterator>
    static TextSource recordsOf(Iterator first, Iterator last)
    {
        return [first, last](std::vector<char>& text) mutable {
            formRecord(text, first);
            return first != last;
        };
    }

    template<class Iterator>
    static TextSource keysOf(Iterator first, Iterator last)
    {
        return [first, last](std::vector<char>& text) mutable {
            appendText(text, *first);
            text.push_back('\n');
            return ++first != last;
        };
    }

    static void appendText(std::vector<char>& text, std::string const& part);
    static void feedAdditions(std::string const& map, TextSource const& records);
    static void feedRemovals(std::string const& map, TextSource const& keys);
    // An empty source empties the map.
    static void rewrite(std::string const& map, TextSource const& records);
    static void rewriteFiltered(std::string const& map, RecordFilter const& filter);
};

} // namespace orvek::mail::postfix

#endif
