// master_cf_content - a master.cf in memory
//
// The file is a list of raw texts in its order: one for each service entry, with all its
// continuation lines, for each comment line and for each empty line, none with the line feed that
// ends it. What is written back are these texts, so whatever is not understood survives. The
// records of the services stand beside them as an index, by name and type.
//
// removeModule leaves the references of other services alone; addModule leaves all of them, but
// those to the service that it overwrites see the new one.

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

    // Gives the service this record and text: in its place, or at the end for a new one.
    void addModule(ModuleInfo const& info, std::string const& text);

    bool hasModule(std::string const& name, ModuleType type) const;

    // The record and the raw text. Raises std::out_of_range for an unknown service.
    std::pair<ModuleInfo const&, std::string const&> getModule(std::string const& name,
                                                               ModuleType type) const;

    // Whether there was something to remove.
    bool removeModule(std::string const& name, ModuleType type);

    Lines lines;
    std::map<Key, ModuleInfo> modules;
    std::map<Key, Lines::iterator> positions;
};

} // namespace orvek::mail::postfix

#endif
