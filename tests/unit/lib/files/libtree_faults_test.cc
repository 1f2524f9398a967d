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
        {"lchown", 1, walkChown, "/file", "Unable to chown directory entry %s"},
        {"lchown", 1, walkChown, "/sub", "Unable to chown directory entry file"},
        {"lchown", 2, walkChown, "/sub", "Unable to chown dir %s"},
        {"fchmodat", 1, walkChmod, "/file", "Unable to chmod entry %s"},
        {"fchmodat", 1, walkChmod, "/sub", "Unable to chmod directory entry file"},
        {"fchmodat", 2, walkChmod, "/sub", "Unable to chmod dir %s"},
        {"unlink", 1, walkRemove, "/file", "Unable to unlink entry %s"},
        {"rmdir", 1, walkRemove, "/sub", "Unable to remove dir %s"},
        {"lstat", 2, walkRemove, "/one", "Unable to check directory entry file"},
        {"unlink", 1, walkRemove, "/one", "Unable to unlink directory entry file"},
        {"open", 1, walkRemove, "/one", "Unable to get file descriptor of current dir"},
        {"open", 2, walkRemove, "/one", "Unable to open dir %s"},
        {"readdir", 2, walkRemove, "/one", "Unable to check directory entry %s"},
        {"fchdir", 1, walkRemove, "/one", "Unable to change dir %s"},
        {"closedir", 1, walkRemove, "/one", "Unable to close dir %s"},
        {"fchdir", 2, walkRemove, "/one", "Unable to restore & close current dir"},
        {"close", 1, walkRemove, "/one", "Unable to restore & close current dir"},
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
        {"lchown", 1, walkChown, "/sub", ""},   {"lchown", 2, walkChown, "/sub", ""},
        {"fchmodat", 1, walkChmod, "/sub", ""}, {"fchmodat", 2, walkChmod, "/sub", ""},
        {"lstat", 2, walkChmod, "/sub", ""},    {"lstat", 1, walkRemove, "/sub", ""},
        {"unlink", 1, walkRemove, "/file", ""}, {"rmdir", 1, walkRemove, "/sub", ""},
        {"open", 2, walkRemove, "/sub", ""},    {"open", 4, walkChmod, "", ""},
        {"open", 4, walkChown, "", ""},
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

TEST_F(LibtreeFaults, RmTreeDoesNotFollowALinkThatTakesADirectorysPlaceMeanwhile)
{
    std::string const sub = tree + "/sub";
    EXPECT_EQ(lastWords([&] {
                  BeforeCall const swap("open", 2, [&] {
                      fs::rename(sub, dir / "away");
                      fs::create_directory_symlink(outside, sub);
                  });
                  removeTree(sub);
              }),
              report("Unable to open dir " + sub, ENOTDIR));
    EXPECT_TRUE(fs::exists(outside + "/file"));
}

TEST_F(LibtreeFaults, ChmodTreeDoesNotFollowALinkThatTakesAFilesPlaceMeanwhile)
{
    std::string const file = tree + "/file";
    EXPECT_EQ(lastWords([&] {
                  BeforeCall const swap("fchmodat", 1, [&] {
                      fs::remove(file);
                      fs::create_symlink(outside + "/file", file);
                  });
                  changeModes(file);
              }),
              report("Unable to chmod entry " + file, EOPNOTSUPP));
    expectOutsideUntouched();
}
