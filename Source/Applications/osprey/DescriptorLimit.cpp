#include "DescriptorLimit.h"

#include <sys/resource.h>

size_t RaiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
    {
        return 0;
    }
    const rlimit raised{limit.rlim_max, limit.rlim_max};
    return static_cast<size_t>(setrlimit(RLIMIT_NOFILE, &raised) == 0 ? raised.rlim_cur
                                                                      : limit.rlim_cur);
}
