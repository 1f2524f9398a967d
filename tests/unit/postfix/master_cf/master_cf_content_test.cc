#include "postfix/master_cf/master_cf_content.h"

#include <gtest/gtest.h>

#include <iterator>
#include <stdexcept>

using namespace orvek::mail::postfix;

namespace {

using Lines = MasterCfContent::Lines;

ModuleInfo service(std::string const& name, ModuleType type = ModuleType::inet)
{
    ModuleInfo info;
    info.name = name;
    info.type = type;
    return info;
}

} // namespace

TEST(MasterCfContent, AddsANewServiceAtTheEnd)
{
    MasterCfContent content;
    content.lines = {"# head", ""};
    content.addModule(service("smtp"), "smtp text");
    EXPECT_EQ(content.lines, (Lines{"# head", "", "smtp text"}));
    EXPECT_EQ(&*content.positions.at({"smtp", ModuleType::inet}), &content.lines.back());
}

TEST(MasterCfContent, OverwritesAKnownServiceInItsPlace)
{
    MasterCfContent content;
    content.addModule(service("smtp"), "old");
    content.addModule(service("other"), "other");
    ModuleInfo info = service("smtp");
    info.wakeupTime = 7;
    content.addModule(info, "new");
    EXPECT_EQ(content.lines, (Lines{"new", "other"}));
    EXPECT_EQ(content.modules.at({"smtp", ModuleType::inet}).wakeupTime, 7);
    EXPECT_EQ(content.modules.size(), 2U);
}

TEST(MasterCfContent, TellsServicesOfOneNameApartByTheirTypes)
{
    MasterCfContent content;
    content.addModule(service("smtp", ModuleType::inet), "i");
    content.addModule(service("smtp", ModuleType::unix), "u");
    EXPECT_EQ(content.lines, (Lines{"i", "u"}));
    EXPECT_TRUE(content.hasModule("smtp", ModuleType::unix));
    EXPECT_FALSE(content.hasModule("smtp", ModuleType::fifo));
    EXPECT_FALSE(content.hasModule("smt", ModuleType::unix));
    EXPECT_TRUE(content.removeModule("smtp", ModuleType::inet));
    EXPECT_EQ(content.getModule("smtp", ModuleType::unix).second, "u");
}

TEST(MasterCfContent, OrdersServicesByNameAndThenByType)
{
    MasterCfContent content;
    content.addModule(service("b", ModuleType::inet), "1");
    content.addModule(service("a", ModuleType::fifo), "2");
    content.addModule(service("a", ModuleType::unix), "3");
    auto module = content.modules.begin();
    EXPECT_EQ(module->first, MasterCfContent::Key("a", ModuleType::unix));
    EXPECT_EQ((++module)->first, MasterCfContent::Key("a", ModuleType::fifo));
    EXPECT_EQ((++module)->first, MasterCfContent::Key("b", ModuleType::inet));
}

TEST(MasterCfContent, GivesTheRecordAndTheTextThemselves)
{
    MasterCfContent content;
    content.addModule(service("smtp"), "text");
    auto const [info, text] = content.getModule("smtp", ModuleType::inet);
    EXPECT_EQ(&info, &content.modules.begin()->second);
    EXPECT_EQ(&text, &content.lines.front());
}

TEST(MasterCfContent, RaisesForAnUnknownService)
{
    MasterCfContent content;
    content.addModule(service("smtp"), "text");
    try {
        content.getModule("smtp", ModuleType::unix);
        FAIL() << "nothing was raised";
    } catch (std::out_of_range const& e) {
        EXPECT_STREQ(e.what(), "no such module smtp");
    }
}

TEST(MasterCfContent, RemovesAServiceWithItsText)
{
    MasterCfContent content;
    content.addModule(service("a"), "1");
    content.lines.emplace_back("# between");
    content.addModule(service("b"), "2");
    EXPECT_TRUE(content.removeModule("a", ModuleType::inet));
    EXPECT_EQ(content.lines, (Lines{"# between", "2"}));
    EXPECT_FALSE(content.hasModule("a", ModuleType::inet));
    EXPECT_EQ(content.positions.size(), 1U);
    content.addModule(service("b"), "new");
    EXPECT_EQ(content.lines, (Lines{"# between", "new"}));
}

TEST(MasterCfContent, SaysWhenThereWasNothingToRemove)
{
    MasterCfContent content;
    content.lines = {"# a"};
    EXPECT_FALSE(content.removeModule("a", ModuleType::inet));
    EXPECT_EQ(content.lines, Lines{"# a"});
}

TEST(MasterCfContent, TakesTheNameOutOfTheRecordThatGoes)
{
    MasterCfContent content;
    content.addModule(service("a-name-too-long-to-be-kept-inside-of-a-string"), "1");
    ModuleInfo const& info = content.modules.begin()->second;
    EXPECT_TRUE(content.removeModule(info.name, info.type));
    EXPECT_TRUE(content.lines.empty());
    EXPECT_TRUE(content.positions.empty());
}
