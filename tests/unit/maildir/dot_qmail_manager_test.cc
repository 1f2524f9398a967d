#include "maildir/dot_qmail_manager.h"

#include "support/delivery_file_test.h"
#include "support/report.h"
#include "util/errors.h"

#include <gtest/gtest.h>

using orvek::mail::DotQMailManager;

namespace {

class DotQMailManagerOnHost : public DeliveryFileTest
{
protected:
    // The error of an operation that must fail.
    static std::string errorOf(std::function<void()> const& operation)
    {
        auto const run = inChild([&] {
            try {
                operation();
            } catch (orvek::SystemError const& e) {
                if (typeid(e) == typeid(orvek::SystemError))
                    fprintf(stderr, "raised: %s\n", e.what());
                return 0;
            }
            return 1;
        });
        EXPECT_EQ(run.status, 0);
        return run.err;
    }

    DotQMailManager const manager{file};
};

} // namespace

TEST_F(DotQMailManagerOnHost, DoesWhatTheLibraryDoes)
{
    manager.reset();
    EXPECT_EQ(left(), "| true\n");
    manager.addRedirect("b@example.net", DotQMailManager::atBegin);
    manager.addRedirect("a@b\xc3\xbc"
                        "cher.example",
                        DotQMailManager::Position(2));
    EXPECT_EQ(left(), "| true\n&b@example.net\n&a@xn--bcher-kva.example\n");
    manager.enableDelivery();
    EXPECT_EQ(left(), "| true\n&b@example.net\n&a@xn--bcher-kva.example\n"
                      "| /usr/bin/deliverquota ./Maildir\n");
    manager.removeRedirect("b@example.net");
    manager.disableDelivery();
    EXPECT_EQ(left(), "| true\n&a@xn--bcher-kva.example\n");
    manager.reset();
    EXPECT_EQ(left(), "| true\n");
}

TEST_F(DotQMailManagerOnHost, RaisesWhatTheLibraryReportsWithItsErrno)
{
    std::filesystem::remove_all(home);
    std::string const raised = "raised: unable to modify " + file + ": No such file or directory\n";
    std::string const reason = "No such file or directory";
    EXPECT_EQ(errorOf([&] { manager.reset(); }),
              withErrno("Unable to open " + file + ": " + reason, ENOENT) + raised);
    EXPECT_EQ(errorOf([&] { manager.disableDelivery(); }),
              withErrno("Unable to remove string from " + file + " file", ENOENT) + raised);
    EXPECT_EQ(errorOf([&] { manager.removeRedirect("a@example.net"); }),
              withErrno("Unable to remove string from " + file + " file.", ENOENT) + raised);
    std::string const cannotAdd =
        withErrno("Unable to open file " + file + ": " + reason + "\n", ENOENT) +
        withErrno("Unable to add string to " + file + " file.", ENOENT) + raised;
    EXPECT_EQ(errorOf([&] { manager.enableDelivery(); }), cannotAdd);
    EXPECT_EQ(errorOf([&] { manager.addRedirect("a@example.net", DotQMailManager::atEnd); }),
              cannotAdd);
}

TEST_F(DotQMailManagerOnHost, RaisesTheErrnoOfARefusedAddress)
{
    EXPECT_EQ(errorOf([&] { manager.addRedirect("a@b\n| sh", DotQMailManager::atEnd); }),
              withErrno("Unable to add string to " + file + " file.", EINVAL) +
                  "raised: unable to modify " + file + ": Invalid argument\n");
}
