#include "LibraryMemory.h"

#include <cstdlib>
#include <functional>
#include <mutex>
#include <new>
#include <unordered_set>

#include "FaultPlan.h"

extern "C"
{
    void* __real_malloc(size_t nSize);
    void* __real_realloc(void* p, size_t nSize);
    void __real_free(void* p);
}

namespace
{

// The book of blocks takes its own memory past the wraps.
template <class T>
struct CPlainAllocator
{
    typedef T value_type;

    CPlainAllocator() = default;
    template <class U>
    explicit CPlainAllocator(const CPlainAllocator<U>& /*other*/)
    {
    }
    T* allocate(size_t nCount)
    {
        struct CPlace
        {
            T m_item;
        };
        return static_cast<T*>(__real_malloc(nCount * sizeof(CPlace)));
    }
    void deallocate(T* p, size_t /*nCount*/)
    {
        __real_free(p);
    }
    bool operator==(const CPlainAllocator& /*other*/) const
    {
        return true;
    }
    bool operator!=(const CPlainAllocator& /*other*/) const
    {
        return false;
    }
};

struct CBook
{
    std::mutex m_mutex;
    std::unordered_set<void*, std::hash<void*>, std::equal_to<>, CPlainAllocator<void*>> m_blocks;
};

// Lives as long as the process: memory is still given back at its very end.
CBook& GetBook()
{
    alignas(CBook) static unsigned char storage[sizeof(CBook)];
    static CBook* pBook = new (storage) CBook;
    return *pBook;
}

void* Enter(void* p)
{
    if (p != nullptr && IsInside())
    {
        CBook& book = GetBook();
        const std::lock_guard<std::mutex> lock(book.m_mutex);
        book.m_blocks.insert(p);
    }
    return p;
}

void Strike(void* p)
{
    CBook& book = GetBook();
    const std::lock_guard<std::mutex> lock(book.m_mutex);
    book.m_blocks.erase(p);
}

void* Allocate(size_t nSize)
{
    if (MeetFault(CALL_ALLOCATE) != nullptr)
    {
        return nullptr;
    }
    return Enter(__real_malloc(nSize != 0 ? nSize : 1));
}

void* AllocateOrThrow(size_t nSize)
{
    void* p = Allocate(nSize);
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
        Strike(p);
        __real_free(p);
    }
}

}  // namespace

int CountLibraryBlocks()
{
    CBook& book = GetBook();
    const std::lock_guard<std::mutex> lock(book.m_mutex);
    return static_cast<int>(book.m_blocks.size());
}

extern "C"
{
    void* __wrap_malloc(size_t nSize)
    {
        return Allocate(nSize);
    }

    void* __wrap_realloc(void* p, size_t nSize)
    {
        if (MeetFault(CALL_ALLOCATE) != nullptr)
        {
            return nullptr;
        }
        Strike(p);
        void* pMoved = __real_realloc(p, nSize);
        Enter(pMoved);
        return pMoved;
    }

    void __wrap_free(void* p)
    {
        Deallocate(p);
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
    return Allocate(nSize);
}

void* operator new[](size_t nSize, const std::nothrow_t& /*tag*/) noexcept
{
    return Allocate(nSize);
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
