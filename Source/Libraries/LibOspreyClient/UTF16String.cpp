#include "UTF16String.h"

#include <cstring>

unsigned short* utf_traits::assign(char_type* pDst, size_t nUnits, char_type unit)
{
    for (size_t i = 0; i < nUnits; ++i)
    {
        pDst[i] = unit;
    }
    return pDst;
}

int utf_traits::compare(const char_type* pA, const char_type* pB, size_t nUnits)
{
    for (size_t i = 0; i < nUnits; ++i)
    {
        if (pA[i] != pB[i])
        {
            return pA[i] < pB[i] ? -1 : 1;
        }
    }
    return 0;
}

size_t utf_traits::length(const char_type* pText)
{
    size_t nUnits = 0;
    while (pText[nUnits] != 0)
    {
        ++nUnits;
    }
    return nUnits;
}

const unsigned short* utf_traits::find(const char_type* pText, size_t nUnits, const char_type& unit)
{
    for (size_t i = 0; i < nUnits; ++i)
    {
        if (pText[i] == unit)
        {
            return pText + i;
        }
    }
    return nullptr;
}

unsigned short* utf_traits::move(char_type* pDst, const char_type* pSrc, size_t nUnits)
{
    if (nUnits != 0)
    {
        memmove(pDst, pSrc, nUnits * sizeof(char_type));
    }
    return pDst;
}

unsigned short* utf_traits::copy(char_type* pDst, const char_type* pSrc, size_t nUnits)
{
    return move(pDst, pSrc, nUnits);
}

int UTF16StrLen(const unsigned short* pText)
{
    return static_cast<int>(utf_traits::length(pText));
}

void UTF16Copy(unsigned short* pDst, const unsigned short* pSrc)
{
    const int nUnits = UTF16StrLen(pSrc);
    utf_traits::copy(pDst, pSrc, static_cast<size_t>(nUnits));
    pDst[nUnits] = 0;
}
