#include "lib/conf/read_configuration.h"
#include "lib/report/product_log.h"
#include "support/child_run.h"
#include "support/memory_faults.h"
#include "unit/lib/conf/conf_of.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <malloc.h>

TEST(ConfInit, MakesTwentyFinalizedSlotsAtFirst)
{
    Conf const conf = newConf();
    EXPECT_EQ(conf_init_r(conf.get()), 0);
    EXPECT_NE(conf->data, nullptr);
    EXPECT_EQ(conf->size, 20U);
    EXPECT_EQ(conf->nmemb, 0U);
    EXPECT_EQ(conf->finalized, 1);
}

TEST(ConfInit, DoesNothingWhileThereIsRoom)
{
    Conf const conf = newConf();
    conf_init_r(conf.get());
    conf_entry const* const data = conf->data;
    conf->nmemb = 19;
    EXPECT_EQ(conf_init_r(conf.get()), 0);
    EXPECT_EQ(conf->data, data);
    EXPECT_EQ(conf->size, 20U);
}

TEST(ConfInit, DoublesAFullArrayAndClearsTheNewSlots)
{
    Conf const conf = newConf();
    conf_init_r(conf.get());
    conf->nmemb = 20;
    EXPECT_EQ(conf_init_r(conf.get()), 0);
    ASSERT_EQ(conf->size, 40U);
    EXPECT_EQ(conf->nmemb, 20U);
    for (size_t i = 0; i < conf->size; ++i) {
        EXPECT_EQ(conf->data[i].key, nullptr);
        EXPECT_EQ(conf->data[i].value, nullptr);
    }
}

TEST(ConfInit, AddsTwentySlotsWhereDoublingGivesNoRoom)
{
    Conf const conf = newConf();
    conf->data = static_cast<conf_entry*>(calloc(1, sizeof(conf_entry)));
    EXPECT_EQ(conf_init_r(conf.get()), 0);
    EXPECT_EQ(conf->size, 20U);
}

TEST(ConfInit, FailsInSilenceWithoutMemoryForTheFirstSlots)
{
    auto const run = inChild([] {
        LogLevel = 12;
        Conf const conf = newConf();
        conf->size = 7;
        AllocationFailure const failure(1);
        return conf_init_r(conf.get()) == -1 && errno == ENOMEM && conf->size == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "");
}

TEST(ConfInit, ReportsThatItCannotGrowAndKeepsTheEntries)
{
    auto const run = inChild([] {
        LogLevel = 12;
        Conf const conf = newConf();
        for (int i = 0; i < 20; ++i)
            conf_set_r(("K" + std::to_string(i)).c_str(), "v", conf.get());
        AllocationFailure const failure(1);
        return conf_set_r("NAME", "value", conf.get()) == -1 && errno == ENOMEM &&
                       conf->size == 20 && conf->nmemb == 20 && lookup(conf, "K19") == "v"
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Unable to read configuration: Cannot allocate memory\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(ConfInit, RefusesACapacityThatOverflows)
{
    for (size_t const size : {SIZE_MAX / 2, SIZE_MAX / 2 + 1, SIZE_MAX, SIZE_MAX / 32 + 1}) {
        auto const run = inChild([=] {
            LogLevel = 12;
            conf_entry entry = {};
            conf_data conf = {&entry, size, size, 1};
            return conf_init_r(&conf) == -1 && errno == ENOMEM && conf.data == &entry &&
                           conf.size == size
                       ? 0
                       : 1;
        });
        EXPECT_EQ(run.status, 0) << size;
        EXPECT_EQ(run.err, "Unable to read configuration: Cannot allocate memory\n") << size;
    }
}

TEST(ConfSet, StoresCopies)
{
    std::string name = "NAME";
    std::string value = "value";
    Conf const conf = newConf();
    EXPECT_EQ(conf_set_r(name.c_str(), value.c_str(), conf.get()), 0);
    name[0] = value[0] = 'x';
    EXPECT_EQ(lookup(conf, "NAME"), "value");
}

TEST(ConfSet, ClearsFinalizedOnlyForANewName)
{
    Conf const conf = confOf("NAME one\n");
    EXPECT_EQ(conf_set_r("NAME", "two", conf.get()), 0);
    EXPECT_NE(conf->finalized, 0);
    EXPECT_EQ(conf_set_r("A", "three", conf.get()), 0);
    EXPECT_EQ(conf->finalized, 0);
}

TEST(ConfSet, LetsTheLastValueWinWhetherSortedOrNot)
{
    Conf const conf = newConf();
    conf_set_r("B", "1", conf.get());
    conf_set_r("A", "1", conf.get());
    conf_set_r("B", "2", conf.get());
    EXPECT_EQ(conf->finalized, 0);
    EXPECT_EQ(lookup(conf, "B"), "2");

    Conf const sorted = confOf("B 1\nA 1\n");
    conf_set_r("B", "2", sorted.get());
    EXPECT_NE(sorted->finalized, 0);
    EXPECT_EQ(lookup(sorted, "B"), "2");
}

TEST(ConfSet, ReportsANameOrAValueThatCannotBeCopied)
{
    for (int const allocation : {2, 3}) {
        auto const run = inChild([=] {
            LogLevel = 12;
            Conf const conf = newConf();
            AllocationFailure const failure(allocation);
            return conf_set_r("NAME", "value", conf.get()) == -1 && errno == ENOMEM &&
                           conf->nmemb == 0
                       ? 0
                       : 1;
        });
        EXPECT_EQ(run.status, 0) << allocation;
        EXPECT_EQ(run.err, "Unable to form configuration: Cannot allocate memory\n");
        EXPECT_EQ(run.out, run.err);
    }
}

TEST(ConfGet, FindsNothingInAConfigurationThatWasNeverFilled)
{
    EXPECT_EQ(lookup(newConf(), "NAME"), std::nullopt);
}

TEST(ConfGet, SearchesBothSortedAndUnsortedEntries)
{
    Conf const conf = confOf("B 2\nA 1\n");
    conf_set_r("_", "3", conf.get());
    conf_set_r("0", "4", conf.get());
    EXPECT_EQ(conf->finalized, 0);
    EXPECT_EQ(lookup(conf, "A"), "1");
    EXPECT_EQ(lookup(conf, "0"), "4");
    EXPECT_EQ(lookup(conf, "C"), std::nullopt);
}

TEST(ConfFree, AllowsNull)
{
    conf_free_r(nullptr);
}

TEST(ConfFree, FreesEverySlotWhetherItIsUsedOrNot)
{
    // Far more than the allocator keeps for itself.
    std::string const text(100000, 'v');
    size_t const before = mallinfo2().uordblks;
    Conf conf = newConf();
    conf_init_r(conf.get());
    conf->data[0] = {strdup(text.c_str()), strdup(text.c_str())};
    conf->data[19] = {strdup(text.c_str()), strdup(text.c_str())};
    conf->nmemb = 1;
    conf.reset();
    EXPECT_LT(mallinfo2().uordblks, before + text.size());
}

TEST(CmpConf, OrdersByKeyAlone)
{
    char a[] = "A";
    char b[] = "B";
    conf_entry const first = {a, b};
    conf_entry const second = {b, a};
    conf_entry const same = {a, a};
    EXPECT_LT(cmp_conf(&first, &second), 0);
    EXPECT_GT(cmp_conf(&second, &first), 0);
    EXPECT_EQ(cmp_conf(&first, &same), 0);
}
