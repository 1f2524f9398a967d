#include "lib/host/ifaceinf.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/memory_faults.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <memory>
#include <set>
#include <vector>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

namespace {

struct Interface
{
    char const* name;
    char const* address;
    char const* mask; // null: unknown to the system
    char const* mac;  // six characters; null: unknown to the system
};

// The tests' kernel. It answers for the interfaces, or fails with an error.
struct Kernel
{
    std::vector<Interface> interfaces;
    int list_error = 0;
    int listings = 0;

    int list(ifconf* answer);
    int mac(ifreq* request) const;
    int mask(ifreq* request) const;
    Interface const* find(char const* name) const;
};

Kernel* kernel = nullptr;

void setAddress(sockaddr* address, char const* dotted)
{
    sockaddr_in internet = {};
    internet.sin_family = AF_INET;
    inet_pton(AF_INET, dotted, &internet.sin_addr);
    memcpy(address, &internet, sizeof internet);
}

int failWith(int error)
{
    errno = error;
    return -1;
}

int Kernel::list(ifconf* answer)
{
    ++listings;
    if (list_error)
        return failWith(list_error);
    size_t const room = static_cast<size_t>(answer->ifc_len) / sizeof(ifreq);
    size_t const count = std::min(room, interfaces.size());
    for (size_t i = 0; i < count; ++i) {
        strcpy(answer->ifc_req[i].ifr_name, interfaces[i].name);
        setAddress(&answer->ifc_req[i].ifr_addr, interfaces[i].address);
    }
    answer->ifc_len = static_cast<int>(count * sizeof(ifreq));
    return 0;
}

Interface const* Kernel::find(char const* name) const
{
    for (auto const& interface : interfaces)
        if (strcmp(interface.name, name) == 0)
            return &interface;
    return nullptr;
}

int Kernel::mac(ifreq* request) const
{
    Interface const* const interface = find(request->ifr_name);
    if (!interface || !interface->mac)
        return failWith(ENODEV);
    memcpy(request->ifr_hwaddr.sa_data, interface->mac, 6);
    return 0;
}

int Kernel::mask(ifreq* request) const
{
    Interface const* const interface = find(request->ifr_name);
    if (!interface || !interface->mask)
        return failWith(EADDRNOTAVAIL);
    setAddress(&request->ifr_netmask, interface->mask);
    return 0;
}

} // namespace

extern "C" {

int __real_ioctl(int descriptor, unsigned long request, ...);

int __wrap_ioctl(int descriptor, unsigned long request, ...)
{
    va_list args;
    va_start(args, request);
    void* const argument = va_arg(args, void*);
    va_end(args);
    if (kernel && request == SIOCGIFCONF)
        return kernel->list(static_cast<ifconf*>(argument));
    if (kernel && request == SIOCGIFHWADDR)
        return kernel->mac(static_cast<ifreq*>(argument));
    if (kernel && request == SIOCGIFNETMASK)
        return kernel->mask(static_cast<ifreq*>(argument));
    return __real_ioctl(descriptor, request, argument);
}

} // extern "C"

namespace {

struct FreeList
{
    void operator()(ifaceinfo* list) const { free_ifaceinfo(list); }
};
using List = std::unique_ptr<ifaceinfo[], FreeList>;

constexpr char mac[] = "\x02\x00\x5e\xAB\x0c\xff";
constexpr Interface loopback = {"lo", "127.0.0.1", "255.0.0.0", "\0\0\0\0\0"};
constexpr Interface ethernet = {"eth0", "192.0.2.7", "255.255.255.0", mac};
constexpr Interface alias = {"eth0:1", "192.0.2.8", "255.255.255.128", mac};

class GetIfaceinfo : public ::testing::Test
{
protected:
    void SetUp() override { kernel = &scripted; }
    void TearDown() override { kernel = nullptr; }

    Kernel scripted;
    int num = -1;
};

} // namespace

TEST_F(GetIfaceinfo, DescribesAnInterface)
{
    scripted.interfaces = {ethernet};
    List const list(get_ifaceinfo(&num));
    ASSERT_EQ(num, 1);
    EXPECT_STREQ(list[0].name, "eth0");
    EXPECT_EQ(list[0].in_addr, inet_addr("192.0.2.7"));
    EXPECT_STREQ(list[0].ip, "192.0.2.7");
    EXPECT_STREQ(list[0].mask, "255.255.255.0");
    EXPECT_STREQ(list[0].mac, "02:00:5e:ab:0c:ff");
}

TEST_F(GetIfaceinfo, GivesAnAliasNoHardwareAddress)
{
    scripted.interfaces = {ethernet, alias};
    List const list(get_ifaceinfo(&num));
    ASSERT_EQ(num, 2);
    EXPECT_STREQ(list[1].name, "eth0:1");
    EXPECT_STREQ(list[1].ip, "192.0.2.8");
    EXPECT_STREQ(list[1].mask, "255.255.255.128");
    EXPECT_STREQ(list[1].mac, "");
}

TEST_F(GetIfaceinfo, LeavesOutEveryLoopbackAddressAndNoOther)
{
    scripted.interfaces = {loopback,
                           {"lo:1", "127.255.255.254", "255.0.0.0", mac},
                           {"eth1", "12.7.0.1", "255.0.0.0", mac},
                           {"eth2", "128.0.0.1", "255.0.0.0", mac}};
    List const list(get_ifaceinfo(&num));
    ASSERT_EQ(num, 2);
    EXPECT_STREQ(list[0].ip, "12.7.0.1");
    EXPECT_STREQ(list[1].ip, "128.0.0.1");
}

TEST_F(GetIfaceinfo, EndsTheListWithAZeroedRecord)
{
    for (auto const& interfaces : {std::vector<Interface>{}, {loopback}, {ethernet}}) {
        scripted.interfaces = interfaces;
        List const list(get_ifaceinfo(&num));
        ASSERT_NE(list, nullptr);
        ifaceinfo const zero = {};
        EXPECT_EQ(memcmp(&list[static_cast<size_t>(num)], &zero, sizeof zero), 0);
    }
}

TEST_F(GetIfaceinfo, AcceptsANullNum)
{
    scripted.interfaces = {ethernet};
    List const list(get_ifaceinfo(nullptr));
    EXPECT_STREQ(list[0].name, "eth0");
}

TEST_F(GetIfaceinfo, DoublesTheRoomUntilTheAnswerFits)
{
    struct Row
    {
        size_t interfaces;
        int listings;
    };
    for (Row const row : {Row{0, 1}, Row{1, 1}, Row{2, 2}, Row{3, 2}, Row{4, 3}, Row{9, 4}}) {
        scripted.interfaces.assign(row.interfaces, ethernet);
        scripted.listings = 0;
        List const list(get_ifaceinfo(&num));
        EXPECT_EQ(num, static_cast<int>(row.interfaces));
        EXPECT_EQ(scripted.listings, row.listings) << row.interfaces;
    }
}

TEST_F(GetIfaceinfo, TakesZeroesForAnUnknownHardwareAddress)
{
    auto const run = inChild([this] {
        scripted.interfaces = {{"eth0", "192.0.2.7", "255.255.255.0", nullptr}};
        List const list(get_ifaceinfo(&num));
        return num == 1 && strcmp(list[0].mac, "00:00:00:00:00:00") == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              "Can't get Mac-addr with SIOCGIFHWADDR\n\nSystem error 19: No such device\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(GetIfaceinfo, TakesAFullMaskWhenThereIsNone)
{
    auto const run = inChild([this] {
        scripted.interfaces = {{"eth0", "192.0.2.7", nullptr, mac}};
        List const list(get_ifaceinfo(&num));
        return num == 1 && strcmp(list[0].mask, "255.255.255.255") == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST_F(GetIfaceinfo, ReportsThatTheInterfacesCannotBeListed)
{
    auto const run = inChild([this] {
        auto const before = openDescriptors();
        scripted.list_error = EPERM;
        ifaceinfo const* const list = get_ifaceinfo(&num);
        return !list && num == -1 && errno == EPERM && openDescriptors() == before ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "unable to query SIOCGIFCONF: Operation not permitted\n\n"
                       "System error 1: Operation not permitted\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(GetIfaceinfo, ReportsThatThereIsNoSocket)
{
    auto const run = inChild([] {
        rlimit before = {};
        getrlimit(RLIMIT_NOFILE, &before);
        rlimit const none = {3, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        int untouched = -1;
        ifaceinfo const* const list = get_ifaceinfo(&untouched);
        int const error = errno;
        setrlimit(RLIMIT_NOFILE, &before);
        return !list && untouched == -1 && error == EMFILE ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Can't create socket: Too many open files\n\n"
                       "System error 24: Too many open files\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(GetIfaceinfo, ReportsThatThereIsNoMemoryForTheRecords)
{
    auto const run = inChild([this] {
        scripted.interfaces = {ethernet};
        AllocationFailure const failure(2);
        return !get_ifaceinfo(&num) && num == -1 && errno == ENOMEM ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Can't allocate ifaceinfo buffer from 1 elements\n\n"
                       "System error 12: Cannot allocate memory\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(GetIfaceinfo, ReportsThatThereIsNoMemoryForTheAnswer)
{
    auto const run = inChild([this] {
        scripted.interfaces.assign(2, ethernet);
        AllocationFailure const failure(2);
        return !get_ifaceinfo(&num) && errno == ENOMEM ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err.find("Can't allocate ifaceinfo buffer from 4 elements\n"), 0U);
}

TEST_F(GetIfaceinfo, LeavesNoDescriptorOpen)
{
    scripted.interfaces = {ethernet};
    auto const before = openDescriptors();
    List const list(get_ifaceinfo(&num));
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(GetIfaceinfo, AgreesWithTheSystemAboutThisMachine)
{
    kernel = nullptr;
    std::multiset<std::string> expected;
    ifaddrs* addresses = nullptr;
    ASSERT_EQ(getifaddrs(&addresses), 0);
    for (ifaddrs const* at = addresses; at; at = at->ifa_next) {
        if (!at->ifa_addr || at->ifa_addr->sa_family != AF_INET)
            continue;
        sockaddr_in internet;
        memcpy(&internet, at->ifa_addr, sizeof internet);
        std::string const dotted = inet_ntoa(internet.sin_addr);
        if (dotted.compare(0, 4, "127.") != 0)
            expected.insert(std::string(at->ifa_name) + " " + dotted);
    }
    freeifaddrs(addresses);

    List const list(get_ifaceinfo(&num));
    ASSERT_NE(list, nullptr);
    std::multiset<std::string> found;
    for (size_t i = 0; i < static_cast<size_t>(num); ++i)
        found.insert(std::string(list[i].name) + " " + list[i].ip);
    EXPECT_EQ(found, expected);
}

TEST(FreeIfaceinfo, AllowsNull)
{
    free_ifaceinfo(nullptr);
}
