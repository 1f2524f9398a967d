// saved_directory - the working directory, to come back to
//
// save keeps the path of the working directory, which has to fit 4096 bytes; false, with errno
// set, when it cannot be told. restore goes back there and keeps errno; should the directory have
// gone meanwhile, the process stays where it is.

#ifndef MAILVEK_LIB_FILES_SAVED_DIRECTORY_H
#define MAILVEK_LIB_FILES_SAVED_DIRECTORY_H

#include "lib/report/form_path.h"
#include "lib/report/owned.h"

#include <unistd.h>

class SavedDirectory
{
public:
    [[nodiscard]] bool save() { return getcwd(path, sizeof path) != nullptr; }

    void restore() const
    {
        ErrnoKeeper const keeper;
        [[maybe_unused]] int const ignored = chdir(path);
    }

private:
    char path[path_size];
};

#endif
