// map_test - base of the tests that change maps with the real postmap, or with a stand-in for it
//
// Each test has its own map. It must leave only indexed files in its directory, no descriptor and
// no child. standIn puts a script in the place of postmap, see stand_in.h.

#ifndef MAILVEK_TESTS_SUPPORT_MAP_TEST_H
#define MAILVEK_TESTS_SUPPORT_MAP_TEST_H

#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/lock_file.h"
#include "support/stand_in.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <list>
#include <set>
#include <string>
#include <utility>

#include <sys/wait.h>

using Records = std::list<std::pair<std::string, std::string>>;

class MapTest : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        postmap.prepare();
        fill("");
        descriptors = openDescriptors();
    }

    void TearDown() override
    {
        postmap.remove();
        if (full)
            run("umount " + dir.path());
        for (auto const& entry : std::filesystem::directory_iterator(dir.path()))
            EXPECT_EQ(entry.path().extension(), ".db") << entry.path() << " is left";
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
        EXPECT_EQ(errno, ECHILD);
    }

    static void run(std::string const& command) { shellRun(command); }

    // Makes the map from this text.
    void fill(std::string const& text)
    {
        writeFile(path, text);
        run(real + " -r " + map);
        std::filesystem::remove(path);
    }

    // The content of the map, sorted, as the real postmap prints it.
    std::string content() const { return contentOf(map); }

    std::string contentOf(std::string const& name) const
    {
        std::string text;
        FILE* const dump = popen((real + " -s " + name + " | LC_ALL=C sort").c_str(), "r");
        for (int c = getc(dump); c != EOF; c = getc(dump))
            text += static_cast<char>(c);
        pclose(dump);
        return text;
    }

    void standIn(std::string const& script) { postmap.run(script); }

    std::string journal() const { return postmap.journal(); }

    // Moves the map's directory with its content to a file system of this size.
    void limitDisk(std::string const& size)
    {
        run("cp -a " + dir.path() + "/. " + tools.path() + "/old && mount -t tmpfs -o size=" +
            size + " t " + dir.path() + " && cp -a " + tools.path() + "/old/. " + dir.path());
        full = true;
    }

    TempDir const dir;
    StandIn postmap{"/usr/sbin/postmap"};
    TempDir const& tools = postmap.dir;
    std::string const path = dir / "map";
    std::string const map = "hash:" + path;
    std::string const& real = postmap.real;

private:
    bool full = false;
    std::set<int> descriptors;
};

#endif
