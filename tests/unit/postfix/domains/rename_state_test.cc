#include "postfix/domains/rename_state.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix;

namespace {

constexpr FoundNames none = {false, false};
constexpr FoundNames waiting = {true, false};
constexpr FoundNames moved = {false, true};
constexpr FoundNames both = {true, true};

} // namespace

TEST(RenameState, IsFreshWhileNothingHasTheNewName)
{
    EXPECT_EQ(renameState({waiting, waiting, waiting}), RenameState::fresh);
    EXPECT_EQ(renameState({none, waiting, none}), RenameState::fresh);
    EXPECT_EQ(renameState({none, none, none}), RenameState::fresh);
}

TEST(RenameState, IsBegunWhenTheFirstStepsAreDone)
{
    EXPECT_EQ(renameState({moved, waiting, waiting}), RenameState::begun);
    EXPECT_EQ(renameState({moved, moved, waiting}), RenameState::begun);
    EXPECT_EQ(renameState({none, moved, waiting}), RenameState::begun);
    EXPECT_EQ(renameState({moved, none, waiting}), RenameState::begun);
}

TEST(RenameState, IsMovedWhenNothingHasTheOldName)
{
    EXPECT_EQ(renameState({moved, moved, moved}), RenameState::moved);
    EXPECT_EQ(renameState({moved, moved, none}), RenameState::moved);
}

TEST(RenameState, IsTakenWhenAThingHasBothNames)
{
    EXPECT_EQ(renameState({both, waiting, waiting}), RenameState::taken);
    EXPECT_EQ(renameState({moved, both, none}), RenameState::taken);
    EXPECT_EQ(renameState({moved, moved, both}), RenameState::taken);
}

TEST(RenameState, IsTakenWhenALaterStepsThingIsThere)
{
    EXPECT_EQ(renameState({waiting, moved, waiting}), RenameState::taken);
    EXPECT_EQ(renameState({waiting, none, moved}), RenameState::taken);
}
