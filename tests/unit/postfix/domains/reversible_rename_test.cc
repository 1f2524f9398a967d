#include "postfix/domains/reversible_rename.h"

#include "support/child_run.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using orvek::mail::postfix::ReversibleRename;

namespace {

constexpr char restored_badly[] =
    "CRITICAL ERROR: Unable to properly restore a title used by Orvek.\n"
    "Mail system may be not usable at the moment and it cannot be repaired automatically.\n"
    "Constact Tessarine support to resolve this issue.\n";

// Notes each rename, and raises where it should.
struct Steps
{
    std::vector<std::string> done;

    ReversibleRename::Step named(std::string const& name)
    {
        return [this, name](std::string const& from, std::string const& to) {
            done.push_back(name + ' ' + from + ' ' + to);
        };
    }

    ReversibleRename::Step failing(std::string const& name, std::string const& direction)
    {
        return [this, name, direction](std::string const& from, std::string const& to) {
            done.push_back(name + ' ' + from + ' ' + to);
            if (from == direction)
                throw std::runtime_error(name);
        };
    }
};

std::string messageOf(ReversibleRename& rename, ReversibleRename::Step const& step)
{
    try {
        rename.lastStep(step);
        return "nothing raised";
    } catch (std::runtime_error const& e) {
        return e.what();
    }
}

} // namespace

TEST(ReversibleRename, CarriesOutItsStepsInTheirOrder)
{
    Steps steps;
    ReversibleRename rename("old", "new");
    rename.step("a title", steps.named("first"));
    rename.lastStep(steps.named("second"));
    EXPECT_EQ(steps.done, (std::vector<std::string>{"first old new", "second old new"}));
}

TEST(ReversibleRename, UndoesStepsInReverseAndRaisesTheFirstError)
{
    Steps steps;
    ReversibleRename rename("old", "new");
    rename.step("a title", steps.named("first"));
    rename.step("a title", steps.named("second"));
    EXPECT_EQ(messageOf(rename, steps.failing("third", "old")), "third");
    EXPECT_EQ(steps.done,
              (std::vector<std::string>{"first old new", "second old new", "third old new",
                                        "second new old", "first new old"}));
}

TEST(ReversibleRename, DoesNotTakeTheFailingStepItselfBack)
{
    Steps steps;
    ReversibleRename rename("old", "new");
    EXPECT_THROW(rename.step("a title", steps.failing("only", "old")), std::runtime_error);
    EXPECT_EQ(steps.done, std::vector<std::string>{"only old new"});
}

TEST(ReversibleRename, TakesNothingBackTwice)
{
    Steps steps;
    ReversibleRename rename("old", "new");
    rename.step("a title", steps.named("first"));
    EXPECT_EQ(messageOf(rename, steps.failing("second", "old")), "second");
    EXPECT_EQ(messageOf(rename, steps.failing("third", "old")), "third");
    EXPECT_EQ(steps.done, (std::vector<std::string>{"first old new", "second old new",
                                                    "first new old", "third old new"}));
}

TEST(ReversibleRename, LeavesWhatIsDoneWhenItEnds)
{
    Steps steps;
    {
        ReversibleRename rename("old", "new");
        rename.step("a title", steps.named("first"));
    }
    EXPECT_EQ(steps.done, std::vector<std::string>{"first old new"});
}

TEST(ReversibleRename, ReportsAStepItCannotUndoAndGoesOn)
{
    ChildRun const printed = inChild([] {
        Steps steps;
        ReversibleRename rename("old", "new");
        rename.step("another title", steps.named("first"));
        rename.step("a title", steps.failing("second", "new"));
        bool const first = messageOf(rename, steps.failing("third", "old")) == "third";
        return first && steps.done.back() == "first new old" ? 0 : 1;
    });
    EXPECT_EQ(printed.status, 0);
    EXPECT_EQ(printed.err, restored_badly);
    EXPECT_EQ(printed.out, restored_badly);
}

TEST(ReversibleRename, CatchesWhatIsNoExceptionOfTheStandardLibrary)
{
    ChildRun const printed = inChild([] {
        ReversibleRename rename("old", "new");
        rename.step("a title", [](std::string const& from, std::string const&) {
            if (from == "new")
                throw 1;
        });
        try {
            rename.lastStep([](std::string const&, std::string const&) { throw 'x'; });
        } catch (char) {
            return 0;
        }
        return 1;
    });
    EXPECT_EQ(printed.status, 0);
    EXPECT_EQ(printed.err, restored_badly);
}
