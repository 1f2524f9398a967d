#include "mail/lib/server/spf_control.h"

#include "support/child_run.h"
#include "support/host_test.h"
#include "support/set_aside.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

using ::testing::ElementsAre;

namespace {

constexpr char directory[] = "/etc/orv-spf";
std::vector<std::string> const files = {"spfbehavior", "spfrules", "spfguess", "spfexp"};
std::vector<std::string> const names = {"spf_behavior", "spf_rules", "spf_guess", "spf_exp"};

std::string pathOf(std::string const& file)
{
    return directory + ("/" + file);
}

// Runs on a host whose parameters are all "old" at first.
class SpfControlOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        parameters.emplace(directory);
        beginAnew();
    }

    static void beginAnew()
    {
        std::filesystem::remove_all(directory);
        std::filesystem::create_directory(directory);
        for (std::string const& file : files)
            writeFile(pathOf(file), "old");
    }

    static std::vector<std::string> values()
    {
        std::vector<std::string> found;
        found.reserve(files.size());
        for (std::string const& file : files)
            found.push_back(readFile(pathOf(file)));
        return found;
    }

    // Expects an update to fail with these reports, including errno's lines.
    static void expectFailure(std::string const& value, std::string const& what,
                              std::string const& name, std::string const& error)
    {
        char const* const text = value.c_str();
        ChildRun const run =
            inChild([&] { return update_spf(text, text, text, text) == -1 ? 0 : 1; });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, what + error.substr(error.find(": ")) + "\nSystem error " + error +
                               "\nUnable to update '" + name + "' parameter\nSystem error " +
                               error + "\n");
        EXPECT_EQ(run.out, run.err);
    }

private:
    std::optional<SetAside> parameters;
};

} // namespace

TEST_F(SpfControlOnHost, WritesEachValueWithoutANewline)
{
    ChildRun const run =
        inChild([] { return update_spf("1", "include:example.com", "%s a/24", "two\nlines"); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(values(), ElementsAre("1", "include:example.com", "%s a/24", "two\nlines"));
}

TEST_F(SpfControlOnHost, LeavesTheFileOfANullAlone)
{
    EXPECT_EQ(update_spf(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_THAT(values(), ElementsAre("old", "old", "old", "old"));
    EXPECT_EQ(update_spf(nullptr, "new", nullptr, nullptr), 0);
    EXPECT_THAT(values(), ElementsAre("old", "new", "old", "old"));
    EXPECT_EQ(update_spf("x", nullptr, nullptr, "y"), 0);
    EXPECT_THAT(values(), ElementsAre("x", "new", "old", "y"));
}

TEST_F(SpfControlOnHost, EmptiesTheFileOfAnEmptyValue)
{
    EXPECT_EQ(update_spf("", nullptr, "", nullptr), 0);
    EXPECT_THAT(values(), ElementsAre("", "old", "", "old"));
    EXPECT_TRUE(std::filesystem::exists(pathOf("spfguess")));
}

TEST_F(SpfControlOnHost, WritesALongValueWhole)
{
    std::string const value(100000, 'x');
    EXPECT_EQ(update_spf(nullptr, value.c_str(), nullptr, nullptr), 0);
    EXPECT_EQ(readFile(pathOf("spfrules")), value);
}

TEST_F(SpfControlOnHost, CreatesAMissingFile)
{
    std::filesystem::remove(pathOf("spfexp"));
    EXPECT_EQ(update_spf(nullptr, nullptr, nullptr, "new"), 0);
    EXPECT_THAT(values(), ElementsAre("old", "old", "old", "new"));
}

TEST_F(SpfControlOnHost, MakesFilesForAllToReadWhateverTheUmask)
{
    for (mode_t const mask : {0U, 0777U}) {
        std::filesystem::remove(pathOf("spfexp"));
        mode_t const before = umask(mask);
        EXPECT_EQ(update_spf(nullptr, nullptr, nullptr, "new"), 0);
        EXPECT_EQ(umask(before), mask);
        EXPECT_EQ(modeOf(pathOf("spfexp")), 0644U);
    }
}

TEST_F(SpfControlOnHost, EndsAtTheFirstFileThatCannotBeOpened)
{
    for (size_t i = 0; i < files.size(); ++i) {
        beginAnew();
        std::string const path = pathOf(files[i]);
        std::filesystem::remove(path);
        std::filesystem::create_directory(path);
        expectFailure("new", "Unable to open file " + path + " for writing", names[i],
                      "21: Is a directory");
        std::vector<std::string> expected(4, "old");
        std::fill_n(expected.begin(), i, "new");
        expected[i] = "";
        EXPECT_EQ(values(), expected);
    }
}

TEST_F(SpfControlOnHost, DoesNotMakeTheDirectory)
{
    std::filesystem::remove_all(directory);
    expectFailure("new", "Unable to open file /etc/orv-spf/spfbehavior for writing", "spf_behavior",
                  "2: No such file or directory");
}

TEST_F(SpfControlOnHost, EndsAtTheFirstFileThatCannotBeWritten)
{
    for (size_t i = 0; i < files.size(); ++i) {
        beginAnew();
        std::string const path = pathOf(files[i]);
        std::filesystem::remove(path);
        std::filesystem::create_symlink("/dev/full", path);
        expectFailure("new", "Unable to close file " + path, names[i],
                      "28: No space left on device");
        std::filesystem::remove(path);
        std::vector<std::string> expected(4, "old");
        std::fill_n(expected.begin(), i, "new");
        expected[i] = "";
        EXPECT_EQ(values(), expected);
    }
}

// Nothing is left for the close to write.
TEST_F(SpfControlOnHost, FailsWhenALongValuesBeginningIsNotWritten)
{
    std::filesystem::remove(pathOf("spfrules"));
    std::filesystem::create_symlink("/dev/full", pathOf("spfrules"));
    for (size_t const length : {4096, 8192, 100000})
        expectFailure(std::string(length, 'x'), "Unable to close file /etc/orv-spf/spfrules",
                      "spf_rules", "28: No space left on device");
}
