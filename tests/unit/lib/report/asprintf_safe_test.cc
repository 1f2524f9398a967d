#include "lib/report/asprintf_safe.h"

#include "lib/report/owned.h"
#include "support/child_run.h"
#include "support/report.h"

#include <gtest/gtest.h>

TEST(AsprintfSafe, FormatsIntoAStringOfTheCaller)
{
    CString const text(asprintf_safe("%s-%d", "a", 7));
    EXPECT_STREQ(text.get(), "a-7");
}

TEST(AsprintfSafe, EndsTheProcessWhenItFails)
{
    auto const run = inChild([] {
        CString const text(asprintf_safe("%ls", L"\x10FFFF"));
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno(std::string("Cannot allocate memory: ") + strerror(EILSEQ), EILSEQ));
}
