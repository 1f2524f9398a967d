// database_helper - changes the mail server's maps, by way of postmap
//
// DatabaseHelper keeps no state. Each operation takes the map's full name (see map_names.h) and
// has been carried out when it returns. addRecords and removeRecords change the indexed file in
// place; to add a key that is there gives it the new value, to remove one that is not there is
// no failure, and an empty range starts no program. replaceRecords and filterRecords rewrite the
// map as a whole, under the lock of its path, by way of a text source that is gone afterwards,
// whatever happens. filterRecords passes each record, as postmap -s prints it, through a filter
// that may rewrite the line and says whether it stays; it holds one line in memory.
//
// A rewrite that fails leaves the map as it was, see indexed_file.h. Incremental changes leave
// the lock of the path alone; they and the rewrites wait for each other as change_lock.h says.
//
// Failures: PostfixConfigurationError with postmap's diagnostics, or "unknown error" without
// any, from adding, replacing and filtering; PostfixDatabaseError with the diagnostics, if any,
// from removing. The stream's exception when the text source cannot be written; system errors
// when postmap cannot be started, and from the lock and the copy.

#ifndef MAILVEK_POSTFIX_MAPS_DATABASE_HELPER_H
#define MAILVEK_POSTFIX_MAPS_DATABASE_HELPER_H

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

    // Of pairs of key and value; the iterators are forward iterators.
    template<class Iterator>
    static void addRecords(std::string const& map, Iterator first, Iterator last)
    {
        if (first != last)
            feedAdditions(map, recordsOf(first, last));
    }

    static void removeRecord(std::string const& map, std::string const& key);

    // Of a pair of key and value: a record of the key with another value stays, and that is no
    // failure. The value is looked up by a run of postmap in front of the removal's.
    static void removeRecord(std::string const& map,
                             std::pair<std::string, std::string> const& record);

    // Of keys.
    template<class Iterator>
    static void removeRecords(std::string const& map, Iterator first, Iterator last)
    {
        if (first != last)
            feedRemovals(map, keysOf(first, last));
    }

    template<class Iterator>
    static void replaceRecords(std::string const& map, Iterator first, Iterator last)
    {
        rewrite(map, first == last ? TextSource() : recordsOf(first, last));
    }

    template<class Filter>
    static void filterRecords(std::string const& map, Filter const& filter)
    {
        rewriteFiltered(map, RecordFilter(filter));
    }

private:
    // Appends the next line; false says that it was the last. Never called again then.
    using TextSource = boost::function<bool(std::vector<char>&)>;

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
