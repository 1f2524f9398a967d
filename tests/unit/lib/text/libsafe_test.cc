#include "lib/text/libsafe.h"

#include "support/fd_census.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

namespace {

char const unsafe[] = "\t\n \"#$&'()*;<>?[\\`|~";

} // namespace

TEST(ShellEscapeChars, MarksExactlyTheUnsafeBytes)
{
    for (unsigned byte = 0; byte < 256; ++byte) {
        bool const is_unsafe = byte != 0 && byte < 128 && strchr(unsafe, static_cast<int>(byte));
        char const wanted = byte == 10 ? 'n' : is_unsafe ? '*' : '-';
        EXPECT_EQ(shell_escape_chars[byte], wanted) << byte;
    }
}

TEST(CheckShellArg, TakesNothingAndSafeBytes)
{
    EXPECT_EQ(check_shell_arg_nothrow(nullptr), 1);
    EXPECT_EQ(check_shell_arg_nothrow(""), 1);
    EXPECT_EQ(check_shell_arg_nothrow("Az09-_.,:/@%+={}]!^\x01"), 1);
}

TEST(CheckShellArg, RefusesEachUnsafeByte)
{
    for (char const* byte = unsafe; *byte; ++byte)
        EXPECT_EQ(check_shell_arg_nothrow((std::string("a") + *byte + "b").c_str()), 0) << *byte;
}

TEST(CheckShellArg, RefusesANameWithABlank)
{
    EXPECT_EQ(check_shell_arg_nothrow("a b"), 0);
}

TEST(CheckShellArg, RefusesEveryByteFrom128)
{
    for (int byte = 128; byte < 256; ++byte)
        EXPECT_EQ(check_shell_arg_nothrow(std::string(1, static_cast<char>(byte)).c_str()), 0)
            << byte;
}

TEST(Isempty, HoldsForNullAndTheEmptyString)
{
    EXPECT_TRUE(isempty(nullptr));
    EXPECT_TRUE(isempty(""));
    EXPECT_FALSE(isempty(" "));
}

class Issubdir : public ::testing::Test
{
protected:
    void SetUp() override { std::filesystem::create_directories(sub); }

    TempDir dir;
    std::string const sub = dir / "a/b";
};

TEST_F(Issubdir, HoldsForADirectoryBelow)
{
    EXPECT_TRUE(issubdir(sub.c_str(), dir.path().c_str()));
    EXPECT_TRUE(issubdir(sub.c_str(), (dir / "a").c_str()));
}

TEST_F(Issubdir, FailsForTheDirectoryItselfAndForOneAbove)
{
    EXPECT_FALSE(issubdir(sub.c_str(), sub.c_str()));
    EXPECT_FALSE(issubdir(dir.path().c_str(), sub.c_str()));
}

TEST_F(Issubdir, FailsForADirectoryWhoseNameOnlyBeginsAlike)
{
    std::filesystem::create_directory(dir / "a/bb");
    EXPECT_FALSE(issubdir((dir / "a/bb").c_str(), sub.c_str()));
}

TEST_F(Issubdir, FailsForTheRootDirectory)
{
    EXPECT_FALSE(issubdir(sub.c_str(), "/"));
}

TEST_F(Issubdir, LooksAtRealPaths)
{
    EXPECT_TRUE(issubdir((dir / "a/./b/").c_str(), (dir / "a/b/..").c_str()));
    EXPECT_FALSE(issubdir((dir / "a/b/..").c_str(), (dir / "a").c_str()));
    std::filesystem::create_directory_symlink(dir / "a", dir / "way");
    EXPECT_TRUE(issubdir((dir / "way/b").c_str(), (dir / "a").c_str()));
}

TEST_F(Issubdir, FailsForWhatIsNoDirectoryOrALink)
{
    writeFile(dir / "file", "");
    std::filesystem::create_directory_symlink(sub, dir / "link");
    EXPECT_FALSE(issubdir((dir / "file").c_str(), dir.path().c_str()));
    EXPECT_FALSE(issubdir((dir / "link").c_str(), dir.path().c_str()));
    EXPECT_FALSE(issubdir(sub.c_str(), (dir / "link").c_str()));
    EXPECT_FALSE(issubdir((dir / "none").c_str(), dir.path().c_str()));
}

TEST_F(Issubdir, RestoresTheWorkingDirectory)
{
    auto const before = std::filesystem::current_path();
    auto const open_before = openDescriptors();
    EXPECT_TRUE(issubdir(sub.c_str(), dir.path().c_str()));
    EXPECT_EQ(std::filesystem::current_path(), before);
    EXPECT_EQ(openDescriptors(), open_before);
}
