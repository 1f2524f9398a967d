// map_changes_test - base of the tests that try each kind of change on a map

#ifndef MAILVEK_TESTS_SUPPORT_MAP_CHANGES_TEST_H
#define MAILVEK_TESTS_SUPPORT_MAP_CHANGES_TEST_H

#include "postfix/maps/database_helper.h"
#include "support/map_test.h"
#include "util/errors.h"

#include <functional>
#include <string>
#include <utility>

class MapChangesTest : public MapTest
{
protected:
    // The number of the system error that the code raises, or 0.
    static int codeOf(std::function<void()> const& code)
    {
        try {
            code();
        } catch (orvek::SystemError const& e) {
            return e.code();
        }
        return 0;
    }

    // The directories beside the map.
    int rooms() const
    {
        int count = 0;
        for (auto const& entry : std::filesystem::directory_iterator(dir.path()))
            count += entry.is_directory() ? 1 : 0;
        return count;
    }

    using Database = orvek::mail::postfix::DatabaseHelper;
    std::function<void()> const changes[4] = {
        [this] { Database::addRecord(map, "a", "1"); },
        [this] { Database::removeRecord(map, "a"); },
        [this] { Database::filterRecords(map, [](std::string&) { return true; }); },
        [this] { Database::removeRecord(map, std::make_pair("a", "1")); },
    };
};

#endif
