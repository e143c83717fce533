#ifndef OSPREY_UTF16STRING_H
#define OSPREY_UTF16STRING_H

// Internal header. Strings of 16-bit units, as names travel on the wire.

#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <ios>
#include <string>

// Character traits over unsigned short, which the standard library does not provide.
struct utf_traits
{
    typedef unsigned short char_type;
    typedef uint32_t int_type;
    typedef std::streamoff off_type;
    typedef std::streampos pos_type;
    typedef std::mbstate_t state_type;

    static void assign(char_type& dst, const char_type& src) noexcept
    {
        dst = src;
    }
    static char_type* assign(char_type* pDst, size_t nUnits, char_type unit);
    static bool eq(char_type a, char_type b) noexcept
    {
        return a == b;
    }
    static bool lt(char_type a, char_type b) noexcept
    {
        return a < b;
    }
    static int compare(const char_type* pA, const char_type* pB, size_t nUnits);
    static size_t length(const char_type* pText);
    static const char_type* find(const char_type* pText, size_t nUnits, const char_type& unit);
    static char_type* move(char_type* pDst, const char_type* pSrc, size_t nUnits);
    static char_type* copy(char_type* pDst, const char_type* pSrc, size_t nUnits);
    static char_type to_char_type(int_type value) noexcept
    {
        return static_cast<char_type>(value);
    }
    static int_type to_int_type(char_type unit) noexcept
    {
        return unit;
    }
    static bool eq_int_type(int_type a, int_type b) noexcept
    {
        return a == b;
    }
    static int_type eof() noexcept
    {
        return 0xFFFFFFFF;  // no 16-bit unit has this value
    }
    static int_type not_eof(int_type value) noexcept
    {
        return value == eof() ? 0 : value;
    }
};

typedef std::basic_string<unsigned short, utf_traits> CUTF16String;

// Units before the first zero unit.
int UTF16StrLen(const unsigned short* pText);

// Copies pSrc and its terminator. REQUIRES: room for UTF16StrLen(pSrc) + 1 units at pDst.
void UTF16Copy(unsigned short* pDst, const unsigned short* pSrc);

#endif
