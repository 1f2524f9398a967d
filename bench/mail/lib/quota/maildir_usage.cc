// Counts the messages of a Maildir and their size: bench_maildir_usage MAILDIR

#include "mail/lib/quota/maildirpp_usage.h"

#include <cstdio>

int main(int argc, char** argv)
{
    sizequota_t size = 0;
    fcount_t count = 0;
    if (argc != 2 || get_maildirpp_usage(argv[1], &size, &count) == 0)
        return 2;
    printf("%lld %llu\n", size, count);
}
