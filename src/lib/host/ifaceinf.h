// ifaceinf - the IPv4 interfaces of this host
//
// Each address of an interface has a record, except those of the loopback network 127. An alias
// ("eth0:1") has a record of its own.

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

// Returns the records and one of zeroes at the end. *num, if num is not null, gets their number.
// Pass the array to free_ifaceinfo. When the interfaces cannot be listed the result is null and
// *num unchanged. A failure, and each hardware address that the system does not tell, is reported
// through messlog2, which does not end the process.
ifaceinfo* get_ifaceinfo(int* num);

void free_ifaceinfo(ifaceinfo* list);

#endif
