#ifndef OSPREY_TOOL_DIGEST_H
#define OSPREY_TOOL_DIGEST_H

#include <memory>
#include <string>
#include <vector>

#include "LibOsprey.h"

// A SHA-256 that takes its bytes piece by piece.
//
// Errors: what the cryptographic library refuses gives an empty digest, which equals no other.
class CDigest final
{
public:
    CDigest();
    ~CDigest();
    CDigest(const CDigest&) = delete;
    CDigest& operator=(const CDigest&) = delete;

    void Add(const void* pData, size_t nSize);

    // Adds what an open file holds from the end of the last AddFile on, as far as ullEnd, or its
    // end. False with errno.
    bool AddFile(int nFile, Orb_U64 ullEnd);
    // How far that is.
    Orb_U64 Position() const
    {
        return m_ullPosition;
    }

    // 64 lower-case hexadecimal digits. Once only.
    std::string Finish();

private:
    struct CContext;

    std::unique_ptr<CContext> m_pContext;
    Orb_U64 m_ullPosition = 0;
};

// The digest of a list of texts, in which no two lists are alike.
std::string DigestOf(const std::vector<std::string>& listTexts);

const Orb_U64 WHOLE_FILE = ~0ULL;

#endif
