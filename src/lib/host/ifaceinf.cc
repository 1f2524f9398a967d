#include "lib/host/ifaceinf.h"

#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

using Requests = std::unique_ptr<ifreq[], FreeMemory>;
using Records = std::unique_ptr<ifaceinfo[], FreeMemory>;

sockaddr_in internet_address(sockaddr const& address)
{
    sockaddr_in result;
    memcpy(&result, &address, sizeof result);
    return result;
}

bool is_loopback(in_addr_t address)
{
    return ntohl(address) >> 24 == 127;
}

void report_no_memory(size_t elements)
{
    messlog2(0, 0, "Can't allocate ifaceinfo buffer from %d elements\n",
             static_cast<int>(elements));
}

// The list of interface addresses, and their number in *count; null after a report.
Requests query_interfaces(int socket, size_t* count)
{
    // An answer that fills its buffer may have been cut: ask again with twice the room.
    for (size_t room = 2;; room *= 2) {
        Requests requests(static_cast<ifreq*>(calloc(room, sizeof(ifreq))));
        if (!requests) {
            report_no_memory(room);
            return nullptr;
        }
        ifconf answer = {};
        answer.ifc_len = static_cast<int>(room * sizeof(ifreq));
        answer.ifc_req = requests.get();
        if (ioctl(socket, SIOCGIFCONF, &answer) < 0) {
            messlog2(0, 0, "unable to query SIOCGIFCONF: %s\n", strerror(errno));
            return nullptr;
        }
        *count = static_cast<size_t>(answer.ifc_len) / sizeof(ifreq);
        if (*count < room)
            return requests;
    }
}

// Takes a copy of the request because the kernel writes its answer into it.
void fill_mac(int socket, ifreq request, ifaceinfo& record)
{
    if (strchr(record.name, ':'))
        return;
    if (ioctl(socket, SIOCGIFHWADDR, &request) < 0) {
        messlog2(0, 0, "Can't get Mac-addr with SIOCGIFHWADDR\n");
        snprintf(record.mac, sizeof record.mac, "00:00:00:00:00:00");
        return;
    }
    unsigned char octets[6];
    memcpy(octets, request.ifr_hwaddr.sa_data, sizeof octets);
    snprintf(record.mac, sizeof record.mac, "%02x:%02x:%02x:%02x:%02x:%02x", octets[0], octets[1],
             octets[2], octets[3], octets[4], octets[5]);
}

void fill_mask(int socket, ifreq request, ifaceinfo& record)
{
    if (ioctl(socket, SIOCGIFNETMASK, &request) < 0) {
        snprintf(record.mask, sizeof record.mask, "255.255.255.255");
        return;
    }
    in_addr const mask = internet_address(request.ifr_netmask).sin_addr;
    inet_ntop(AF_INET, &mask, record.mask, sizeof record.mask);
}

void fill(int socket, ifreq const& entry, ifaceinfo& record)
{
    in_addr const address = internet_address(entry.ifr_addr).sin_addr;
    snprintf(record.name, sizeof record.name, "%.*s", IFNAMSIZ, entry.ifr_name);
    record.in_addr = address.s_addr;
    inet_ntop(AF_INET, &address, record.ip, sizeof record.ip);
    fill_mac(socket, entry, record);
    fill_mask(socket, entry, record);
}

} // namespace

ifaceinfo* get_ifaceinfo(int* num)
{
    OpenDescriptor const socket(::socket(AF_INET, SOCK_STREAM, 0));
    if (socket.get() < 0) {
        messlog2(0, 0, "Can't create socket: %s\n", strerror(errno));
        return nullptr;
    }
    size_t entries = 0;
    Requests const requests = query_interfaces(socket.get(), &entries);
    if (!requests)
        return nullptr;

    Records records(static_cast<ifaceinfo*>(calloc(entries + 1, sizeof(ifaceinfo))));
    if (!records) {
        report_no_memory(entries);
        return nullptr;
    }
    size_t count = 0;
    for (size_t i = 0; i < entries; ++i)
        if (!is_loopback(internet_address(requests[i].ifr_addr).sin_addr.s_addr))
            fill(socket.get(), requests[i], records[count++]);
    if (num)
        *num = static_cast<int>(count);
    return records.release();
}

void free_ifaceinfo(ifaceinfo* list)
{
    free(list);
}
