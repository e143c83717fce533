#ifndef OSPREY_CONVERTUTF_H
#define OSPREY_CONVERTUTF_H

#include <string>

#include "UTF16String.h"

// Conversion between the UTF-16 of the wire and the UTF-8 of paths and hosts.
//
// Both directions take a length that includes the terminator and return a string without it. What
// is not valid (an unpaired surrogate, a malformed UTF-8 sequence) becomes U+FFFD; nothing is
// refused.
//
// Thread: any; no state.
// Errors: std::bad_alloc when the result cannot be stored; no other.
class CConvertUTF final
{
public:
    // nLength: 16-bit units at pText, the terminator included. 0 or less gives the empty string.
    static std::string UTF16SToUTF8S(const unsigned short* pText, int nLength);

    // nLength: bytes at pText, the terminator included. 0 or less gives the empty string.
    static CUTF16String UTF8SToUTF16S(const char* pText, int nLength);
};

#endif
