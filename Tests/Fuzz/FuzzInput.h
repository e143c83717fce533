#ifndef OSPREY_TESTS_FUZZINPUT_H
#define OSPREY_TESTS_FUZZINPUT_H

// What the fuzz targets share: the input, taken apart, and the way a target complains.

#include <cstddef>
#include <cstdint>
#include <string_view>

// Called by libFuzzer, and by ReplayMain.cpp, for every input.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize);

// Says what does not hold and aborts, which the fuzzer takes for a find.
[[noreturn]] void Fail(const char* pszWhat);

inline void Require(bool bHolds, const char* pszWhat)
{
    if (!bHolds)
    {
        Fail(pszWhat);
    }
}

// An input that is used up from its front. Past its end it yields zeros.
class CFuzzInput
{
public:
    CFuzzInput(const uint8_t* pData, size_t nSize)
        : m_left(reinterpret_cast<const char*>(pData), nSize)
    {
    }

    bool IsEmpty() const
    {
        return m_left.empty();
    }
    unsigned char TakeByte();
    // Below the bound, which is at most 65,536.
    unsigned int TakeBelow(unsigned int dwBound);
    // As many bytes, or those that are left.
    std::string_view TakeBytes(size_t nSize);
    std::string_view TakeRest();

private:
    std::string_view m_left;
};

// A stream of bytes in the pieces in which it arrives. The rule is a byte of the input:
//
//   0      everything at once
//   1      a packet at a time, as long as its header says
//   other  pieces of `rule` and of `rule / 16 + 1` bytes in turn
class CPieces
{
public:
    CPieces(unsigned char cRule, std::string_view stream) : m_cRule(cRule), m_left(stream) {}

    bool IsEmpty() const
    {
        return m_left.empty();
    }
    std::string_view Take();
    std::string_view TakeRest();

private:
    size_t GetNextSize();

    const unsigned char m_cRule;
    bool m_bOdd = false;
    std::string_view m_left;
};

// The size that the header of a packet claims for all of it, in bytes; 0 while the header is not
// complete. Reads the wire by itself, not through the library.
uint64_t GetClaimedSize(std::string_view stream);

#endif
