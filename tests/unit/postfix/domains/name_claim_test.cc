#include "postfix/domains/name_claim.h"

#include "support/host_test.h"
#include "support/lock_file.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace orvek::mail::postfix;

using NameClaimOnHost = HostTest;

TEST_F(NameClaimOnHost, KeepsOthersWaitingUntilItEnds)
{
    {
        NameClaim const claim("Anna@d.test");
        EXPECT_TRUE(isLocked("name anna@d.test"));
        EXPECT_FALSE(isLocked("name anna@e.test"));
    }
    EXPECT_FALSE(isLocked("name anna@d.test"));
}

TEST_F(NameClaimOnHost, IsNotInheritedByPrograms)
{
    pid_t const child = fork();
    if (child == 0) {
        NameClaim const claim("anna@d.test");
        execl("/bin/sh", "sh", "-c", "sleep 600 >/dev/null 2>&1 & kill -KILL $$", nullptr);
    }
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_FALSE(isLocked("name anna@d.test"));
}

TEST_F(NameClaimOnHost, NotesTheOldNameUntilTheEnd)
{
    NameClaim("anna@d.test").begin("a longer name");
    NameClaim("anna@d.test").begin("ann");
    NameClaim const claim("anna@d.test");
    EXPECT_TRUE(claim.isBegun("ann"));
    for (char const* const other : {"an", "anna", "Ann", ""})
        EXPECT_FALSE(claim.isBegun(other)) << other;
    claim.end();
    EXPECT_FALSE(claim.isBegun("ann"));
}

TEST_F(NameClaimOnHost, RaisesWhatKeepsItFromTheLock)
{
    std::string const file = lockFileOf("name anna@d.test");
    std::filesystem::remove(file);
    std::filesystem::create_directories(file);
    EXPECT_THROW(NameClaim("anna@d.test"), orvek::SystemError);
    std::filesystem::remove(file);
}
