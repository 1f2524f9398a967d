#include "postfix/master_cf/master_cf_content.h"

#include <stdexcept>

namespace orvek::mail::postfix {

void MasterCfContent::addModule(ModuleInfo const& info, std::string const& text)
{
    Key const key(info.name, info.type);
    auto const known = positions.find(key);
    if (known != positions.end())
        *known->second = text;
    else
        positions[key] = lines.insert(lines.end(), text);
    modules.insert_or_assign(key, info);
}

bool MasterCfContent::hasModule(std::string const& name, ModuleType type) const
{
    return modules.contains(Key(name, type));
}

std::pair<ModuleInfo const&, std::string const&> MasterCfContent::getModule(std::string const& name,
                                                                            ModuleType type) const
{
    Key const key(name, type);
    auto const module = modules.find(key);
    if (module == modules.end())
        throw std::out_of_range("no such module " + name);
    return {module->second, *positions.at(key)};
}

bool MasterCfContent::removeModule(std::string const& name, ModuleType type)
{
    Key const key(name, type); // a copy, since name may be part of the record to be removed
    if (modules.erase(key) == 0)
        return false;
    auto const position = positions.find(key);
    lines.erase(position->second);
    positions.erase(position);
    return true;
}

} // namespace orvek::mail::postfix
