#include "LittleMemory.h"

extern "C"
{
    void* __real_malloc(size_t nSize);

    void* __wrap_malloc(size_t nSize)
    {
        return nSize <= MOST_MEMORY ? __real_malloc(nSize) : nullptr;
    }
}
