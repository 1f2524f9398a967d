// init_scripts - init scripts of a test
//
// For the throw-away mail host. The test's scripts are added to the host's own in /etc/init.d and
// removed at the end. Each call of a script adds a line to the journal: its name and its
// action.

#ifndef MAILVEK_TESTS_SUPPORT_INIT_SCRIPTS_H
#define MAILVEK_TESTS_SUPPORT_INIT_SCRIPTS_H

#include "support/temp_dir.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

class InitScripts
{
public:
    // Adds a script or replaces an existing one. In it $journal is the journal.
    void add(std::string const& path, std::string const& text)
    {
        if (!holds(path)) {
            files.push_back(path);
            std::filesystem::create_directories(std::filesystem::path(path).parent_path());
            if (std::filesystem::exists(path))
                std::filesystem::rename(path, path + ".before-test");
        }
        writeFile(path, "#!/bin/bash\njournal=" + dir / "journal" +
                            "\necho \"${0##*/} $*\" >> $journal\n" + text + "\n");
        chmod(path.c_str(), 0755);
    }

    ~InitScripts()
    {
        for (std::string const& path : files) {
            std::filesystem::remove(path);
            if (std::filesystem::exists(path + ".before-test"))
                std::filesystem::rename(path + ".before-test", path);
        }
    }
    InitScripts() = default;
    InitScripts(InitScripts const&) = delete;
    InitScripts& operator=(InitScripts const&) = delete;

    std::string journal() const { return readFile(dir / "journal"); }
    void forget() { std::filesystem::remove(dir / "journal"); }

    TempDir const dir;

private:
    bool holds(std::string const& path) const
    {
        return std::find(files.begin(), files.end(), path) != files.end();
    }

    std::vector<std::string> files;
};

#endif
