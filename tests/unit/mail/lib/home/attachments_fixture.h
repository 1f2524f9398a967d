// attachments_fixture - shared by the tests of a mailname's attachments

#ifndef MAILVEK_TESTS_UNIT_MAIL_LIB_HOME_ATTACHMENTS_FIXTURE_H
#define MAILVEK_TESTS_UNIT_MAIL_LIB_HOME_ATTACHMENTS_FIXTURE_H

#include "mail/lib/home/attachments.h"
#include "support/mailname_home_test.h"
#include "support/report.h"
#include "support/rights.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include <sys/syscall.h>

// The output of a call in a child. The call must return this result.
inline ChildRun callOf(int result, std::function<int()> const& call)
{
    auto run = inChild([&] { return call() == result ? 0 : 99; });
    EXPECT_EQ(run.status, 0) << "the result is not " << result;
    return run;
}

class AttachmentsTest : public MailnameHomeTest
{
protected:
    void SetUp() override
    {
        MailnameHomeTest::SetUp();
        if (!HasFatalFailure())
            std::filesystem::create_directory(store);
    }

    // The output of a list, which must succeed with nothing on standard error.
    static std::string listed(short in_blocks = 0, short fullname = 0)
    {
        auto const run =
            callOf(0, [&] { return list_attachments("info", "example.com", in_blocks, fullname); });
        EXPECT_EQ(run.err, "");
        return run.out;
    }

    int add(std::string const& name) const
    {
        return add_attachment("info", "example.com", upload.c_str(), name.c_str());
    }
    static int remove(std::string const& name)
    {
        return remove_attachment("info", "example.com", name.c_str());
    }

    TempDir const dir;
    std::string const upload = dir / "upload";
    std::string const store = home + "/@attachments";
};

#endif
