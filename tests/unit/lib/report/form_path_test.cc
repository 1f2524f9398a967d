#include "lib/report/form_path.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

TEST(FormPath, FormatsAPathThatFits)
{
    char path[path_size];
    EXPECT_TRUE(form_path(path, "%s/%s.tmp", "/etc", "file"));
    EXPECT_STREQ(path, "/etc/file.tmp");
}

TEST(FormPath, Takes4095CharactersAndCutsTheNext)
{
    char path[path_size];
    std::string const longest(4095, 'a');
    EXPECT_TRUE(form_path(path, "%s", longest.c_str()));
    EXPECT_EQ(path, longest);
    EXPECT_FALSE(form_path(path, "%sb", longest.c_str()));
    EXPECT_EQ(path, longest);
}

TEST(FormPath, SaysSoAndKeepsErrnoWhenItCannotFormat)
{
    char path[path_size];
    errno = EXDEV;
    EXPECT_FALSE(form_path(path, "%ls", L"\x10FFFF"));
    EXPECT_EQ(errno, EXDEV);
}

TEST(FormPathIn, FillsAnyBufferAndCutsTheRest)
{
    char path[8] = "???????";
    EXPECT_TRUE(form_path_in(path, sizeof path, "/%s/%d", "etc", 42));
    EXPECT_STREQ(path, "/etc/42");
    EXPECT_FALSE(form_path_in(path, sizeof path, "/%s/%d", "home", 42));
    EXPECT_STREQ(path, "/home/4");
    errno = EXDEV;
    EXPECT_FALSE(form_path_in(path, 1, "a"));
    EXPECT_STREQ(path, "");
    EXPECT_EQ(errno, EXDEV);
}
