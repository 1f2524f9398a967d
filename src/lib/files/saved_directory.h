// saved_directory - remembers the working directory and returns to it
//
// save remembers the directory itself, not its path: the path may have any length, or be gone.
// It returns false with errno set when that fails. restore returns to the directory and keeps
// errno. If that fails, the process stays where it is.

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
