#include "mail/lib/handlers/handler_parameters.h"

#include "support/handler_store_test.h"
#include "support/memory_faults.h" // the program is linked for it
#include "support/syscall_faults.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class HandlerParametersOnHost : public HandlerStoreTest
{
protected:
    void SetUp() override
    {
        HandlerStoreTest::SetUp();
        if (!HasFatalFailure())
            descriptor("10-spam-a1B2c3");
    }

    static std::string get(char const* param, std::string const& name = "10-spam-a1B2c3")
    {
        CString const value(get_handler_parameter(name.c_str(), param));
        return value ? value.get() : "(null)";
    }
    static void put(std::string const& param, std::string const& content)
    {
        writeFile(info("10-spam-a1B2c3/" + param), content);
    }
};

using StringToFileOnHost = HandlerParametersOnHost;

} // namespace

TEST_F(HandlerParametersOnHost, GivesTheFirstLineWithoutWhiteSpaceAtItsEnds)
{
    put("context", " \t some  text \r\nsecond line\n");
    EXPECT_EQ(get("context"), "some  text");
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HandlerParametersOnHost, GivesAnEmptyStringForAnEmptyFile)
{
    put("context", "");
    EXPECT_EQ(get("context"), "");
}

TEST_F(HandlerParametersOnHost, AcceptsThreeHundredAndTenCharactersCountedAfterTheTrimming)
{
    put("context", std::string(200, ' ') + std::string(310, 'x') + std::string(200, ' ') + "\n");
    EXPECT_EQ(get("context"), std::string(310, 'x'));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HandlerParametersOnHost, RefusesThreeHundredAndElevenCharacters)
{
    put("context", std::string(311, 'x') + "\n");
    auto const run = printed([] {
        orvek_logv = _orvek_utility_logv;
        EXPECT_EQ(get("context"), "(null)");
    });
    EXPECT_EQ(run.err, "The buffer too short\nUnable to get string from file: Success\n\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(HandlerParametersOnHost, NamesAParameterThatIsNotThere)
{
    EXPECT_EQ(get("colour"), "(null)");
    EXPECT_EQ(get("hook", "20-none-xxxxxx"), "(null)");
    EXPECT_THAT(reports(),
                ElementsAre(error("No such parameter 'colour' for handler '10-spam-a1B2c3'"),
                            error("No such parameter 'hook' for handler '20-none-xxxxxx'")));
}

TEST_F(HandlerParametersOnHost, NamesAPathThatIsTooLong)
{
    std::string const name(4095 - sizeof handlers_info - strlen("/hook"), 'n');
    EXPECT_EQ(get("hook", name), "(null)") << "4095 characters: the path fits and is not there";
    EXPECT_EQ(get("hook", name + "n"), "(null)");
    EXPECT_THAT(
        reports(),
        ElementsAre(error("No such parameter 'hook' for handler '" + name + "'"),
                    error("either handler name '" + name +
                          "n' or param 'hook' are too long to be stored in the filesystem")));
}

TEST_F(HandlerParametersOnHost, ReportsAFileThatCannotBeRead)
{
    std::filesystem::create_directory(info("10-spam-a1B2c3/colour"));
    auto const run = printed([] {
        orvek_logv = _orvek_utility_logv;
        EXPECT_EQ(get("colour"), "(null)");
    });
    EXPECT_EQ(run.err,
              withErrno("Unable to open file /usr/local/orv/handlers/info/10-spam-a1B2c3/colour: "
                        "Is a directory\n",
                        EISDIR) +
                  "Unable to get string from file: Is a directory\n\n");
}

TEST_F(HandlerParametersOnHost, ReportsThatThereIsNoMemory)
{
    AllocationFailure const failure(1);
    EXPECT_EQ(get("context"), "(null)");
    EXPECT_THAT(reports(),
                ElementsAre(error("Unable to allocate sufficient memory: Cannot allocate memory")));
}

TEST_F(StringToFileOnHost, WritesOneLineOfMode0644WhateverTheUmask)
{
    TempDir const dir;
    mode_t const mask = umask(077);
    EXPECT_EQ(string_to_file(dir.path().c_str(), "hook", "before-local"), 0);
    EXPECT_EQ(umask(mask), 077U);
    EXPECT_THAT(tree(dir.path()), ElementsAre(std::pair("hook", "f 0644 0:0 before-local\n")));
}

TEST_F(StringToFileOnHost, AddsNoSecondNewlineAndReplacesWhatWasThere)
{
    TempDir const dir;
    writeFile(dir / "hook", "something longer\nof two lines\n");
    chmod((dir / "hook").c_str(), 0600);
    EXPECT_EQ(string_to_file(dir.path().c_str(), "hook", "before-local\n"), 0);
    EXPECT_THAT(tree(dir.path()), ElementsAre(std::pair("hook", "f 0644 0:0 before-local\n")));
}

TEST_F(StringToFileOnHost, WritesNothingForAValueThatIsEmptyOrMissing)
{
    TempDir const dir;
    EXPECT_EQ(string_to_file(dir.path().c_str(), "context", ""), 0);
    EXPECT_EQ(string_to_file(dir.path().c_str(), "context", nullptr), 0);
    EXPECT_THAT(tree(dir.path()), IsEmpty());
}

TEST_F(StringToFileOnHost, ReportsAFileThatCannotBeCreated)
{
    auto const run =
        printed([] { EXPECT_EQ(string_to_file("/nowhere", "hook", "before-local"), -1); });
    EXPECT_EQ(
        run.err,
        withErrno("Unable to truncate or create file /nowhere/hook: No such file or directory",
                  ENOENT) +
            withErrno("Unable to create file '/nowhere/hook'", ENOENT));
    EXPECT_EQ(run.out, run.err);
}

TEST_F(StringToFileOnHost, ReportsAFailedAdditionAndLeavesTheFileEmpty)
{
    TempDir const dir;
    barLocks();
    auto const run =
        printed([&] { EXPECT_EQ(string_to_file(dir.path().c_str(), "hook", "before-%s"), -1); });
    EXPECT_THAT(run.err,
                ::testing::EndsWith(withErrno(
                    "Unable to add string 'before-%s' to '" + (dir / "hook") + "'", ENOTDIR)));
    EXPECT_THAT(tree(dir.path()), ElementsAre(std::pair("hook", "f 0644 0:0 ")));
}

TEST_F(StringToFileOnHost, HasMode0644WhateverTheUmask)
{
    for (mode_t const mask : {0U, 0777U}) {
        TempDir const dir;
        mode_t const before = umask(mask);
        EXPECT_EQ(string_to_file(dir.path().c_str(), "hook", "before-local"), 0);
        umask(before);
        EXPECT_THAT(tree(dir.path()), ElementsAre(std::pair("hook", "f 0644 0:0 before-local\n")));
    }
}
