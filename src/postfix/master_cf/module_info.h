// module_info - one service entry of master.cf
//
// entryText forms the entry as one line without its end: the columns and the elements of the
// command, a space between each two. An element may hold spaces of its own.

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
    fifo = 2
};

inline constexpr ModuleType module_types[] = {ModuleType::inet, ModuleType::unix, ModuleType::fifo};

// The text of the type's column.
std::string_view typeText(ModuleType type);

// A fresh record is a cleared one. Deliberate: chroot is false then, "n", while the other two
// of its kind are open, "-".
struct ModuleInfo
{
    std::string name;
    ModuleType type = ModuleType::inet;
    boost::tribool privateService = boost::indeterminate; // "y", "n", or "-" for indeterminate
    boost::tribool unprivileged = boost::indeterminate;
    boost::tribool chroot = false;
    std::int32_t wakeupTime = -1;   // in seconds, -1 for "-"
    bool wakeupIfUsed = false;      // the "?" behind the wake-up time
    std::int32_t maxProcesses = -1; // -1 for "-"
    CommandWords command;
};

std::string entryText(ModuleInfo const& info);

} // namespace orvek::mail::postfix

#endif
