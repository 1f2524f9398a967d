#include "commands/nonexistent_mail.h"

#include "command_line.h"
#include "commands/command_options.h"
#include "support/log_recorder.h"

#include <boost/any.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include <syslog.h>

using namespace orvek::mail::postfix::mailvek_commands;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace po = boost::program_options;

namespace {

// The options that a command gets from these words. withAlias: it has an option for the alias.
ProgramOptionsHelper parsed(std::initializer_list<std::string> words, bool withAlias = true)
{
    ProgramOptionsHelper helper("add a domain alias", "--add-domain-alias");
    if (withAlias)
        helper.addOptions()("domain-alias-name", po::value<std::string>(), "domain alias name",
                            true);
    formNotexistingMailOptions(helper);
    CommandLine line(words);
    helper.parse(line.argc(), line.argv());
    return helper;
}

} // namespace

TEST(NonexistentMail, IsRejectedWithoutADeed)
{
    LogRecorder const log;
    EXPECT_EQ(processNotexistingMailnamesOptions(parsed({"", "--set-reject"}, false)), 0);
    EXPECT_THAT(LogRecorder::reports(), IsEmpty());
}

TEST(NonexistentMail, IsAnErrorWithoutAnyOption)
{
    LogRecorder const log;
    EXPECT_EQ(processNotexistingMailnamesOptions(
                  parsed({"", "--domain-alias-name=x.test", "--email=a@d.test", "--phrase=no"})),
              1);
    EXPECT_THAT(LogRecorder::reports(),
                ElementsAre(Report(LOG_ERR, "Action for notexisting mail names is not specified "
                                            "(--set-bounce/--set-catchall/--set-reject)")));
}

TEST(NonexistentMail, IsNotCaughtWithoutAnAddress)
{
    for (auto const& words : {std::initializer_list<std::string>{"", "--domain-alias-name=x.test",
                                                                 "--set-catchall", "--set-reject"},
                              {"", "--domain-alias-name=x.test", "--set-catchall", "--email", ""}})
        EXPECT_THROW(processNotexistingMailnamesOptions(parsed(words)), MissingMandatoryOption);
}

TEST(NonexistentMail, IsNeitherBouncedNorCaughtWithoutAnOption)
{
    for (auto const* const option : {"--set-bounce", "--set-catchall"})
        EXPECT_THROW(processNotexistingMailnamesOptions(parsed({"", option}, false)),
                     boost::bad_any_cast);
}
