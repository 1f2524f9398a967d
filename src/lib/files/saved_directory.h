// saved_directory - the working directory, to come back to
//
// save keeps the working directory itself, not its path: it may have any length, and be gone.
// False, with errno set, when it cannot be kept. restore goes back there and keeps errno; should
// that fail, the process stays where it is.

#ifndef MAILVEK_LIB_FILES_SAVED_DIRECTORY_H
#define MAILVEK_LIB_FILES_SAVED_DIRECTORY_H

#include "lib/report/owned.h"

#include <optional>

#include <fcntl.h>
#include <unistd.h>

class SavedDirectory
{
public:
    [[nodiscard]] bool save()
    {
        directory.emplace(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
        return directory->get() >= 0;
    }

    void restore() const
    {
        ErrnoKeeper const keeper;
        [[maybe_unused]] int const ignored = directory ? fchdir(directory->get()) : -1;
    }

private:
    std::optional<OpenDescriptor> directory;
};

#endif
