// copy_file_fixture - a source, a target beside it, and content for the source

#ifndef MAILVEK_TESTS_UNIT_LIB_FILES_COPY_FILE_FIXTURE_H
#define MAILVEK_TESTS_UNIT_LIB_FILES_COPY_FILE_FIXTURE_H

#include "support/temp_dir.h"

#include <filesystem>
#include <iterator>
#include <string>

class Files
{
protected:
    int filesIn(std::string const& path) const
    {
        return static_cast<int>(std::distance(std::filesystem::directory_iterator(path),
                                              std::filesystem::directory_iterator()));
    }

    TempDir dir;
    std::string const src = dir / "src";
    std::string const dst = dir / "dst";
    // Two blocks and a part of a third.
    std::string const content = std::string(4096, 'a') + std::string(4096, 'b') + "end";
};

#endif
