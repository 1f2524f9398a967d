#include "postfix/master_cf/module_manager.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"
#include "lib/report/owned.h"
#include "postfix/main_cf/main_cf_manager.h"
#include "postfix/main_cf/parameter_names.h"
#include "postfix/master_cf/master_cf_parser.h"
#include "util/errors.h"
#include "util/mk_lock.h"
#include "util/retry_on_signal.h"
#include "util/tmp_file.h"

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

constexpr mode_t stored_mode = 0644;

// The parking file lies in a directory of the user postfix, who may put any file there, and rename
// another one of root's. So it must look exactly as it was stored.
bool isAsStored(struct stat const& info)
{
    return info.st_uid == 0 && (info.st_mode & 07777) == stored_mode;
}

constexpr off_t largest_parking_file = off_t(64) << 20;

int openParked()
{
    char const* name = nullptr;
    OpenDescriptor const directory(open_parent(parking_file, name));
    if (directory.get() < 0)
        return -1;
    return open_file_beneath(directory.get(), name, O_RDONLY, largest_parking_file).release();
}

// Follows links: master.cf lies in root's directory, and the administrator may have made it one.
// O_NONBLOCK, so that opening a FIFO does not wait for its writer.
int openMasterCf(std::string const& path)
{
    return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

// Whether a parking file exists that the tool has written. Replacing it after this check gains
// nothing: it is checked again once it is open.
bool parkingCounts()
{
    char const* name = nullptr;
    OpenDescriptor const directory(open_parent(parking_file, name));
    struct stat info = {};
    if (directory.get() < 0 || look_beneath(directory.get(), name, info) != 0) {
        // If it counted as missing, the next store would overwrite it.
        if (errno != ENOENT && errno != ENOTDIR)
            throw SystemError(parking_file, errno);
        return false;
    }
    if (S_ISREG(info.st_mode) && isAsStored(info))
        return true;
    std::clog << parking_file << " is not root's own and does not count" << std::endl;
    return false;
}

// A regular file, mapped into memory. False when it cannot be opened or mapped; an empty file
// cannot be mapped. If somebody shortens the file while it is read, the process dies with nothing
// stored: half a file must not replace a whole one.
class MappedFile
{
public:
    explicit MappedFile(std::string const& path)
    {
        OpenDescriptor const file(retryOnSignal(
            [&] { return path == parking_file ? openParked() : openMasterCf(path); }));
        struct stat info = {};
        if (file.get() < 0 || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
            (path == parking_file && !isAsStored(info)))
            return;
        size = static_cast<size_t>(info.st_size);
        memory = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.get(), 0);
    }
    ~MappedFile()
    {
        if (*this)
            munmap(memory, size);
    }
    MappedFile(MappedFile const&) = delete;
    MappedFile& operator=(MappedFile const&) = delete;

    explicit operator bool() const { return memory != MAP_FAILED; }
    char const* begin() const { return static_cast<char const*>(memory); }
    char const* end() const { return begin() + size; }

private:
    void* memory = MAP_FAILED;
    size_t size = 0;
};

boost::system::error_code errorOf(int code)
{
    return {code, boost::system::system_category()};
}

bool mayBe(boost::tribool value, bool answer)
{
    return boost::indeterminate(value) || bool(value == answer);
}

// Writes the content to a file beside path and returns its name. The caller removes it.
std::string writeBeside(std::string const& path, MasterCfContent const& content)
{
    TmpFile out(path, /*autoclean=*/true);
    out.exceptions(std::ios_base::badbit | std::ios_base::failbit);
    for (std::string const& line : content.lines)
        out << line << std::endl;
    std::string written = out.path();
    // By the descriptor: the user postfix may rename the files beside the parking file.
    if (fchmod(out.descriptor(), stored_mode) != 0) {
        int const code = errno;
        throw FSError("chmod", written, errorOf(code));
    }
    out.autoclean = false;
    return written;
}

} // namespace

ModuleManager& ModuleManager::getInstance()
{
    static ModuleManager instance;
    return instance;
}

ModuleManager::ModuleManager()
{
    std::string const directory = MainCfManager::getInstance().getStringValue(
        parameter::config_directory, /*defaults=*/false);
    if (directory.empty())
        throw PostfixConfigurationError("unable to determine Postfix config_directory parameter");
    masterCfPath = directory + "/master.cf";
}

void ModuleManager::requireLoaded() const
{
    if (!masterCf)
        throw std::logic_error("modules configuration isn't loaded yet");
}

MasterCfContent& ModuleManager::parking()
{
    if (!disabledCf)
        disabledCf = std::make_unique<MasterCfContent>();
    return *disabledCf;
}

void ModuleManager::loadModules(bool force)
{
    if (masterCf && !force)
        return;
    auto content = std::make_unique<MasterCfContent>();
    loadMasterCf(masterCfPath, *content);
    masterCf = std::move(content);
    if (parkingCounts()) {
        content = std::make_unique<MasterCfContent>();
        loadMasterCf(parking_file, *content);
        disabledCf = std::move(content);
    }
    masterCfChanged = disabledCfChanged = false;
}

bool ModuleManager::storeModules(bool force)
{
    requireLoaded();
    bool stored = false;
    if (masterCfChanged || force) {
        storeMasterCf(masterCfPath, *masterCf);
        masterCfChanged = false;
        stored = true;
    }
    if (disabledCf && (disabledCfChanged || force)) {
        storeMasterCf(parking_file, *disabledCf);
        disabledCfChanged = false;
    }
    return stored;
}

MasterCfContent const* ModuleManager::find(std::string const& name, ModuleType type,
                                           boost::tribool enabled) const
{
    requireLoaded();
    if (mayBe(enabled, /*answer=*/true) && masterCf->hasModule(name, type))
        return masterCf.get();
    if (mayBe(enabled, /*answer=*/false) && disabledCf && disabledCf->hasModule(name, type))
        return disabledCf.get();
    return nullptr;
}

bool ModuleManager::hasModule(std::string const& name, ModuleType type,
                              boost::tribool enabled) const
{
    return find(name, type, enabled) != nullptr;
}

std::pair<ModuleInfo const&, std::string const&>
ModuleManager::getModule(std::string const& name, ModuleType type, boost::tribool enabled) const
{
    MasterCfContent const* const content = find(name, type, enabled);
    if (!content)
        throw std::out_of_range("no such module " + name);
    return content->getModule(name, type);
}

void ModuleManager::addModule(ModuleInfo const& info, bool enabled)
{
    requireLoaded();
    if (enabled) {
        masterCf->addModule(info, entryText(info));
        masterCfChanged = true;
        if (disabledCf && disabledCf->removeModule(info.name, info.type))
            disabledCfChanged = true;
    } else {
        parking().addModule(info, entryText(info));
        disabledCfChanged = true;
        if (masterCf->removeModule(info.name, info.type))
            masterCfChanged = true;
    }
}

void ModuleManager::removeModule(std::string const& name, ModuleType type)
{
    requireLoaded();
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): name may be the record's own
    std::string const kept = name;
    if (masterCf->removeModule(kept, type))
        masterCfChanged = true;
    if (disabledCf && disabledCf->removeModule(kept, type))
        disabledCfChanged = true;
}

void ModuleManager::disableModule(std::string const& name, ModuleType type)
{
    if (!hasModule(name, type, /*enabled=*/true))
        return;
    auto const& [info, text] = masterCf->getModule(name, type);
    parking().addModule(info, text);
    masterCf->removeModule(name, type);
    masterCfChanged = disabledCfChanged = true;
}

void ModuleManager::enableModule(std::string const& name, ModuleType type)
{
    if (hasModule(name, type, /*enabled=*/true))
        return;
    auto const& [info, text] = getModule(name, type, /*enabled=*/false);
    masterCf->addModule(info, text);
    disabledCf->removeModule(name, type);
    masterCfChanged = disabledCfChanged = true;
}

void ModuleManager::loadMasterCf(std::string const& path, MasterCfContent& content)
{
    MappedFile const file(path);
    if (!file)
        throw PostfixConfigurationError("unable to open " + path);
    // A map of root's has such bytes, and lines of others between them.
    bool const is_text = std::find(file.begin(), file.end(), '\0') == file.end();
    if (!is_text || !MasterCfParser(content).parse(file.begin(), file.end()))
        throw PostfixConfigurationError("unable to parse " + path);
}

void ModuleManager::storeMasterCf(std::string const& path, MasterCfContent const& content)
{
    MKLock const lock(path);
    std::string const written = writeBeside(path, content);
    if (rename(written.c_str(), path.c_str()) == 0)
        return;
    int const code = errno;
    unlink(written.c_str());
    throw FSError("rename", written, path, errorOf(code));
}

} // namespace orvek::mail::postfix
