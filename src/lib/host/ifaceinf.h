// ifaceinf - the IPv4 interfaces of this host
//
// One record for each interface address, without those of the loopback network 127. Aliases
// ("eth0:1") have records of their own.

#ifndef MAILVEK_LIB_HOST_IFACEINF_H
#define MAILVEK_LIB_HOST_IFACEINF_H

#include <netinet/in.h>

struct ifaceinfo
{
    char name[32];
    in_addr_t in_addr; // in network byte order
    char ip[40];       // dotted
    char mask[40];     // dotted; "255.255.255.255" when the system does not tell
    char mac[32];      // "02:00:5e:00:53:01"; all zeroes when not told, empty for an alias
};

// The records, followed by one that is all zero; *num, if num is not null, gets their number.
// The array is for free_ifaceinfo. Null when the interfaces cannot be listed, *num being
// untouched then. Failures, and each hardware address that is not told, are reported through
// messlog2 with status 0.
ifaceinfo* get_ifaceinfo(int* num);

void free_ifaceinfo(ifaceinfo* list);

#endif
