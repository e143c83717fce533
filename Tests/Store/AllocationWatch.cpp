#include "AllocationWatch.h"

#include <cstdlib>
#include <new>

namespace
{

thread_local long long g_llAllocations = 0;
thread_local long long g_llDeallocations = 0;
thread_local int g_nSpared = -1;  // allocations that still succeed; -1: all

void* AllocateOrThrow(size_t nSize)
{
    void* p = malloc(nSize != 0 ? nSize : 1);
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}

void Deallocate(void* p)
{
    if (p != nullptr)
    {
        ++g_llDeallocations;
        free(p);
    }
}

}  // namespace

long long GetAllocations()
{
    return g_llAllocations;
}

long long GetDeallocations()
{
    return g_llDeallocations;
}

CNoMemory::CNoMemory(int nSpared)
{
    g_nSpared = nSpared;
}

CNoMemory::~CNoMemory()
{
    g_nSpared = -1;
}

extern "C"
{
    void* __real_malloc(size_t nSize);

    void* __wrap_malloc(size_t nSize)
    {
        if (g_nSpared == 0)
        {
            return nullptr;
        }
        g_nSpared -= g_nSpared > 0 ? 1 : 0;
        ++g_llAllocations;
        return __real_malloc(nSize);
    }
}

void* operator new(size_t nSize)
{
    return AllocateOrThrow(nSize);
}

void* operator new[](size_t nSize)
{
    return AllocateOrThrow(nSize);
}

void* operator new(size_t nSize, const std::nothrow_t& /*tag*/) noexcept
{
    return malloc(nSize != 0 ? nSize : 1);
}

void* operator new[](size_t nSize, const std::nothrow_t& /*tag*/) noexcept
{
    return malloc(nSize != 0 ? nSize : 1);
}

void operator delete(void* p) noexcept
{
    Deallocate(p);
}

void operator delete[](void* p) noexcept
{
    Deallocate(p);
}

void operator delete(void* p, size_t /*nSize*/) noexcept
{
    Deallocate(p);
}

void operator delete[](void* p, size_t /*nSize*/) noexcept
{
    Deallocate(p);
}

void operator delete(void* p, const std::nothrow_t& /*tag*/) noexcept
{
    Deallocate(p);
}

void operator delete[](void* p, const std::nothrow_t& /*tag*/) noexcept
{
    Deallocate(p);
}
