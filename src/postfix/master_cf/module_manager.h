// module_manager - the services in master.cf, and those that are switched off
//
// A service is switched off by moving its raw text from master.cf to a parking file of the tool's
// own and on by moving it back, so that it returns as it was, whoever wrote it. Postfix never
// reads the parking file.
//
// getInstance reads nothing but the path. A command loads, changes and stores, in this order;
// changes live in memory until storeModules, and an instance that goes without it has changed
// nothing. Loading takes no lock, storing takes that of the file: of two cycles of load, change
// and store at once the later store wins. References last until the next change or load.
//
// Failures: std::logic_error for a use before the load; std::out_of_range for a service that is
// nowhere; PostfixConfigurationError for a file that cannot be read, is not regular, is empty or
// not a master.cf; FSError, a stream's exception or a system error for one that cannot be
// written, the file being as before then.

#ifndef MAILVEK_POSTFIX_MASTER_CF_MODULE_MANAGER_H
#define MAILVEK_POSTFIX_MASTER_CF_MODULE_MANAGER_H

#include "postfix/master_cf/master_cf_content.h"

#include <boost/logic/tribool.hpp>

#include <memory>
#include <string>
#include <utility>

namespace orvek::mail::postfix {

inline constexpr char parking_file[] = "/var/spool/postfix/orvek/master.cf.disabled";

class ModuleManager
{
public:
    // The one instance, made at first use. Raises PostfixConfigurationError when postconf names
    // no configuration directory, and what asking it raises; the next call tries again.
    static ModuleManager& getInstance();

    ModuleManager(ModuleManager const&) = delete;
    ModuleManager& operator=(ModuleManager const&) = delete;

    // Reads both files, unless they are loaded and force is not set. There need be no parking
    // file. When the parking file cannot be read the new master.cf stays loaded.
    void loadModules(bool force);

    // Writes what has been changed, or with force what is loaded. Whether master.cf itself was
    // written: the parking file concerns no service that runs.
    bool storeModules(bool force);

    // Looks in master.cf for true, in the parking file for false, and for indeterminate in
    // master.cf first and then in the parking file.
    bool hasModule(std::string const& name, ModuleType type, boost::tribool enabled) const;
    std::pair<ModuleInfo const&, std::string const&>
    getModule(std::string const& name, ModuleType type, boost::tribool enabled) const;

    // Gives the service the text that the record makes, in master.cf or in the parking file, and
    // removes it from the other one.
    void addModule(ModuleInfo const& info, bool enabled);

    // From both files; an unknown service is no failure.
    void removeModule(std::string const& name, ModuleType type);

    // Deliberate: to switch off what does not run is to do nothing, even if nobody knows of it,
    // while to switch on what nobody knows of is a failure.
    void disableModule(std::string const& name, ModuleType type);
    void enableModule(std::string const& name, ModuleType type);

    // The content must be empty; it is of no use after a failure.
    static void loadMasterCf(std::string const& path, MasterCfContent& content);

    // Replaces the file, whose mode is 644 from then on.
    static void storeMasterCf(std::string const& path, MasterCfContent const& content);

private:
    ModuleManager();

    void requireLoaded() const;
    MasterCfContent& parking();
    // Which of the files that enabled selects holds the service; null when none does.
    MasterCfContent const* find(std::string const& name, ModuleType type,
                                boost::tribool enabled) const;

    std::unique_ptr<MasterCfContent> masterCf;   // null until loaded
    std::unique_ptr<MasterCfContent> disabledCf; // null until loaded, or something was parked
    bool masterCfChanged = false;
    bool disabledCfChanged = false;
    std::string masterCfPath;
};

} // namespace orvek::mail::postfix

#endif
