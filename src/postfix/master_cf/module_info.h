// module_info - one service entry of master.cf
//
// entryText forms the entry as one line without a line feed: the columns and the elements of the
// command with one space between them. An element may hold spaces.

#ifndef MAILVEK_POSTFIX_MASTER_CF_MODULE_INFO_H
#define MAILVEK_POSTFIX_MASTER_CF_MODULE_INFO_H

#include "postfix/master_cf/command_words.h"

#include <boost/logic/tribool.hpp>

#include <cstdint>
#include <string>
#include <string_view>

#undef unix // in GNU mode the compiler defines it, as 1

namespace orvek::mail::postfix {

enum class ModuleType
{
    inet = 0,
    unix = 1,
    fifo = 2,
    unix_dgram = 3,
    pass = 4
};

// In the order in which the parser tries them. A type stands before those whose text begins its
// own: "unix" would match the beginning of "unix-dgram".
inline constexpr ModuleType module_types[] = {ModuleType::inet, ModuleType::unix_dgram,
                                              ModuleType::unix, ModuleType::fifo, ModuleType::pass};

// The text of the type's column.
std::string_view typeText(ModuleType type);

// A fresh record is cleared. Deliberate: its chroot is false, "n", while the other two columns of
// that kind are indeterminate, "-".
struct ModuleInfo
{
    std::string name;
    ModuleType type = ModuleType::inet;
    boost::tribool privateService = boost::indeterminate; // "y", "n", or "-" for indeterminate
    boost::tribool unprivileged = boost::indeterminate;
    boost::tribool chroot = false;
    std::int32_t wakeupTime = -1;   // in seconds, -1 for "-"
    bool wakeupIfUsed = false;      // the "?" after the wake-up time
    std::int32_t maxProcesses = -1; // -1 for "-"
    CommandWords command;
};

std::string entryText(ModuleInfo const& info);

} // namespace orvek::mail::postfix

#endif
