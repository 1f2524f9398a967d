#include "libtree_fixture.h"

#include "lib/files/libtree.h"

#include "support/call_faults.h"

namespace fs = std::filesystem;

namespace {

using LibtreeFaults = Tree;

struct FailingCall
{
    char const* call;
    int number;
    void (*walk)(std::string const& tree);
    char const* argument; // below the tree
    std::string words;    // %s stands for the argument
};

void walkChown(std::string const& path)
{
    changeOwner(path);
}

void walkChmod(std::string const& path)
{
    chmod_tree(path.c_str(), file_mode, dir_mode, 1);
}

void walkRemove(std::string const& path)
{
    removeTree(path);
}

} // namespace

TEST_F(LibtreeFaults, EndsTheProcessAtEachFailure)
{
    FailingCall const failures[] = {
        {"fchownat", 1, walkChown, "/file", "Unable to chown directory entry %s"},
        {"fchownat", 1, walkChown, "/sub", "Unable to chown directory entry file"},
        {"fchownat", 2, walkChown, "/sub", "Unable to chown dir %s"},
        {"chmod", 1, walkChmod, "/file", "Unable to chmod entry %s"},
        {"chmod", 1, walkChmod, "/sub", "Unable to chmod directory entry file"},
        {"fchmod", 2, walkChmod, "/sub", "Unable to chmod dir %s"},
        {"openat", 1, walkChmod, "/file", "Unable to chmod entry %s"},
        {"unlinkat", 1, walkRemove, "/file", "Unable to unlink entry %s"},
        {"unlinkat", 2, walkRemove, "/sub", "Unable to remove dir %s"},
        {"unlinkat", 1, walkRemove, "/one", "Unable to unlink directory entry file"},
        {"open", 1, walkRemove, "/one", "Unable to get entry %s"},
        {"fstatat", 1, walkRemove, "/one", "Unable to get entry %s"},
        {"syscall", 1, walkRemove, "/one", "Unable to open dir %s"},
        {"syscall", 2, walkRemove, "", "Unable to open dir one"},
        {"readdir", 2, walkRemove, "/one", "Unable to check directory entry %s"},
    };
    fs::remove(tree + "/sub/link");
    for (FailingCall const& failure : failures) {
        fs::create_directory(tree + "/one");
        writeFile(tree + "/one/file", "");
        std::string const argument = tree + failure.argument;
        std::string words = failure.words;
        if (size_t const place = words.find("%s"); place != std::string::npos)
            words.replace(place, 2, argument);
        EXPECT_EQ(lastWords([&] {
                      CallFailure const failing(failure.call, EIO, failure.number);
                      failure.walk(argument);
                  }),
                  report(words, EIO));
    }
}

TEST_F(LibtreeFaults, PassesOverWhatVanishes)
{
    FailingCall const vanishings[] = {
        {"syscall", 2, walkChmod, "", ""},       {"syscall", 2, walkChown, "", ""},
        {"openat", 1, walkChmod, "/sub", ""},    {"openat", 1, walkChown, "/sub", ""},
        {"fstatat", 1, walkRemove, "/sub", ""},  {"unlinkat", 1, walkRemove, "/file", ""},
        {"unlinkat", 2, walkRemove, "/sub", ""}, {"syscall", 1, walkRemove, "/sub", ""},
        {"syscall", 2, walkRemove, "", ""},
    };
    for (FailingCall const& vanishing : vanishings) {
        auto const run = inChild([&] {
            CallFailure const failing(vanishing.call, ENOENT, vanishing.number);
            vanishing.walk(tree + vanishing.argument);
            return 7;
        });
        EXPECT_EQ(run.status, 7) << vanishing.call << vanishing.number;
        EXPECT_EQ(run.err, "");
    }
}

TEST_F(LibtreeFaults, EndsTheProcessWhenTheWayBackIsBarred)
{
    std::string deep = tree;
    for (int i = 0; i < 40; ++i)
        deep += "/d";
    fs::create_directories(deep);
    EXPECT_EQ(lastWords([&] {
                  CallFailure const failing("openat", EIO);
                  fs::remove(tree + "/file");
                  removeTree(tree + "/d");
              }),
              report("Unable to restore & close current dir d", EIO));
}

TEST_F(LibtreeFaults, RmTreeFollowsNoLinkSwappedInForADirectory)
{
    std::string const sub = tree + "/sub";
    EXPECT_EQ(lastWords([&] {
                  BeforeCall const swap("syscall", 1, [&] {
                      fs::rename(sub, dir / "away");
                      fs::create_directory_symlink(outside, sub);
                  });
                  removeTree(sub);
              }),
              report("Unable to open dir " + sub, ELOOP));
    EXPECT_TRUE(fs::exists(outside + "/file"));
}

TEST_F(LibtreeFaults, ChmodTreeFollowsNoLinkSwappedInForAFile)
{
    std::string const file = tree + "/file";
    for (char const* const call : {"openat", "chmod"}) {
        BeforeCall const swap(call, 1, [&] {
            fs::remove(file);
            fs::create_symlink(outside + "/file", file);
        });
        changeModes(file);
        expectOutsideUntouched();
        fs::remove(file);
        writeFile(file, "");
    }
}
