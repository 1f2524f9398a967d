// module_manager - the services in master.cf, and those that are switched off
//
// Switching a service off moves its raw text from master.cf to a parking file of the tool.
// Switching it on moves the text back, so that the service returns as it was, whoever wrote it.
// Postfix never reads the parking file.
//
// getInstance reads only the path. A command loads, changes and stores, in this order. Changes live
// in memory until storeModules; without it nothing has changed. Loading takes no lock, storing
// takes the file's. When two processes load, change and store at once, the later store wins.
// References last until the next change or load.
//
// Failures: std::logic_error for a use before the load; std::out_of_range for an unknown service;
// PostfixConfigurationError for a file that cannot be read, is not regular, is empty or is not a
// master.cf; FSError, a stream's exception or a system error for a file that cannot be written,
// which stays as it was.
//
// No command calls these; they are for callers to come: ModuleManager::removeModule.

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

    // Reads both files. Does nothing when they are loaded, unless force is set. A missing parking
    // file is not a failure. When the parking file cannot be read, the new master.cf stays loaded.
    // A parking file that is not root's, that others may write, or that is not a regular file does
    // not count: a note on std::clog says so, and the next store replaces it.
    void loadModules(bool force);

    // Writes what has been changed, or with force what is loaded. Returns whether master.cf itself
    // was written: the parking file concerns no running service.
    bool storeModules(bool force);

    // true looks in master.cf, false in the parking file, indeterminate in master.cf first and then
    // in the parking file.
    bool hasModule(std::string const& name, ModuleType type, boost::tribool enabled) const;
    std::pair<ModuleInfo const&, std::string const&>
    getModule(std::string const& name, ModuleType type, boost::tribool enabled) const;

    // Sets the service's text from the record, in master.cf or in the parking file, and removes the
    // service from the other file.
    void addModule(ModuleInfo const& info, bool enabled);

    // From both files; an unknown service is not a failure.
    void removeModule(std::string const& name, ModuleType type);

    // Deliberate: disabling a service that does not run does nothing, even if it is unknown.
    // Enabling an unknown one is a failure.
    void disableModule(std::string const& name, ModuleType type);
    void enableModule(std::string const& name, ModuleType type);

    // The content must be empty; after a failure it is useless.
    static void loadMasterCf(std::string const& path, MasterCfContent& content);

    // Replaces the file and gives it mode 644.
    static void storeMasterCf(std::string const& path, MasterCfContent const& content);

private:
    ModuleManager();

    void requireLoaded() const;
    MasterCfContent& parking();
    // The file that holds the service, of those that enabled selects; null when none does.
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
