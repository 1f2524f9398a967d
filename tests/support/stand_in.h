// stand_in - a bash script in the place of a program, until the end of the test
//
// For suites in the throw-away mail host. In the script $real is the real program and $dir the
// directory for the stand-in's files. Each call adds its arguments to the journal.

#ifndef MAILVEK_TESTS_SUPPORT_STAND_IN_H
#define MAILVEK_TESTS_SUPPORT_STAND_IN_H

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

// Runs a shell command that must succeed.
inline void shellRun(std::string const& command)
{
    EXPECT_EQ(system(command.c_str()), 0) << command;
}

class StandIn
{
public:
    explicit StandIn(std::string program_) : program(std::move(program_)) {}
    ~StandIn() { remove(); }
    StandIn(StandIn const&) = delete;
    StandIn& operator=(StandIn const&) = delete;

    // Copies the real program. Call this inside the host, where it exists.
    void prepare() { std::filesystem::copy_file(program, real); }

    void run(std::string const& script)
    {
        writeFile(file, "#!/bin/bash\nreal=" + real + " dir=" + dir.path() +
                            "\necho \"$*\" >> $dir/journal\n" + script + "\n");
        if (!mounted)
            shellRun("chmod 755 " + file + " && mount --bind " + file + " " + program);
        mounted = true;
    }

    void remove()
    {
        if (std::exchange(mounted, false))
            shellRun("umount " + program);
    }

    std::string journal() const { return readFile(dir / "journal"); }

    TempDir const dir;
    std::string const real = dir / "real";
    std::string const file = dir / "stand-in";

private:
    std::string const program;
    bool mounted = false;
};

#endif
