#include "lib/host/to64.h"

#include <cstdlib>

void to64(char* s, int n)
{
    for (int i = 0; i < n; ++i) {
        // NOLINTNEXTLINE(cert-msc30-c,cert-msc50-cpp): a salt has to differ, not to be secret
        int const drawn = static_cast<int>(64.0 * rand() / (RAND_MAX + 1.0));
        // Deliberate: the letter after the one drawn.
        s[i] = itoa64[(drawn + 1) % 64];
    }
}
