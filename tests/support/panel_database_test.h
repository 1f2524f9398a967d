// panel_database_test - base of the suites that need only the panel's database

#ifndef MAILVEK_TESTS_SUPPORT_PANEL_DATABASE_TEST_H
#define MAILVEK_TESTS_SUPPORT_PANEL_DATABASE_TEST_H

#include "support/host_test.h"
#include "support/panel_database.h"

class PanelDatabaseTest : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (!HasFatalFailure())
            panel.start();
    }
    void TearDown() override { panel.restore(); }

    PanelDatabase panel;
    MysqlSpy& spy = panel.spy;
};

#endif
