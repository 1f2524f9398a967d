// master_cf_content - a master.cf in memory
//
// The file is a list of raw texts in its order: one for each service entry with its continuation
// lines, one for each comment line and one for each empty line, without the line feeds that end
// them. These texts are what is written back, so whatever the tool does not understand survives.
// The records of the services are an index beside them, by name and type.
//
// removeModule keeps references to other services valid. addModule keeps all of them valid; those
// to an overwritten service see the new one.

#ifndef MAILVEK_POSTFIX_MASTER_CF_MASTER_CF_CONTENT_H
#define MAILVEK_POSTFIX_MASTER_CF_MASTER_CF_CONTENT_H

#include "postfix/master_cf/module_info.h"

#include <list>
#include <map>
#include <string>
#include <utility>

namespace orvek::mail::postfix {

class MasterCfContent
{
public:
    using Key = std::pair<std::string, ModuleType>;
    using Lines = std::list<std::string>;

    MasterCfContent() = default;
    MasterCfContent(MasterCfContent const&) = delete; // positions point into lines
    MasterCfContent& operator=(MasterCfContent const&) = delete;

    // Sets the service's record and text. A known service keeps its place, a new one goes last.
    void addModule(ModuleInfo const& info, std::string const& text);

    bool hasModule(std::string const& name, ModuleType type) const;

    // The record and the raw text. Raises std::out_of_range for an unknown service.
    std::pair<ModuleInfo const&, std::string const&> getModule(std::string const& name,
                                                               ModuleType type) const;

    // Returns whether there was something to remove.
    bool removeModule(std::string const& name, ModuleType type);

    Lines lines;
    std::map<Key, ModuleInfo> modules;
    std::map<Key, Lines::iterator> positions;
};

} // namespace orvek::mail::postfix

#endif
