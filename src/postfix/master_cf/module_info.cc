#include "postfix/master_cf/module_info.h"

#include <iterator>

namespace orvek::mail::postfix {

namespace {

// Indexed by the type.
constexpr std::string_view type_texts[] = {"inet", "unix", "fifo", "unix-dgram", "pass"};
static_assert(std::size(type_texts) == std::size(module_types));

// The parser takes the first type that matches, so "unix-dgram" must be tried before "unix".
consteval bool longerTextsComeFirst()
{
    for (auto type = std::begin(module_types); type != std::end(module_types); ++type)
        for (auto later = std::next(type); later != std::end(module_types); ++later)
            if (type_texts[static_cast<size_t>(*later)].starts_with(
                    type_texts[static_cast<size_t>(*type)]))
                return false;
    return true;
}
static_assert(longerTextsComeFirst());

char const* columnOf(boost::tribool value)
{
    if (boost::indeterminate(value))
        return "-";
    return value ? "y" : "n";
}

std::string columnOf(std::int32_t number)
{
    return number == -1 ? "-" : std::to_string(number);
}

std::string wakeupColumn(ModuleInfo const& info)
{
    // Without a time the mark is left out, whatever wakeupIfUsed says.
    bool const marked = info.wakeupTime != -1 && info.wakeupIfUsed;
    return columnOf(info.wakeupTime) + (marked ? "?" : "");
}

} // namespace

std::string_view typeText(ModuleType type)
{
    return type_texts[static_cast<size_t>(type)];
}

std::string entryText(ModuleInfo const& info)
{
    std::string text = info.name;
    text.append(" ").append(typeText(info.type));
    for (boost::tribool const value : {info.privateService, info.unprivileged, info.chroot})
        text.append(" ").append(columnOf(value));
    text.append(" ").append(wakeupColumn(info)).append(" ").append(columnOf(info.maxProcesses));
    for (std::string const& element : info.command)
        text.append(" ").append(element);
    return text;
}

} // namespace orvek::mail::postfix
