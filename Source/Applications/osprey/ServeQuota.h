#ifndef OSPREY_TOOL_SERVEQUOTA_H
#define OSPREY_TOOL_SERVEQUOTA_H

#include "LibOsprey.h"
#include "RootFolder.h"

// How much peers may store.
//
// The total is the sum of the sizes of all regular files below the root, as a listing shows them:
// holes count, a file with two names counts twice, folders count nothing. It is found once, at the
// start, and from then on kept up with what the server does; what others change in the folder
// meanwhile shows at the next start. An upload counts with the size that it announces from its
// beginning on, or with what arrives when that is more; so it needs room beside the file that it
// replaces, and one that was taken is not cut off for want of room.
//
// Thread: worker of the server; Count before it runs.
class CServeQuota final
{
public:
    // Bytes; 0: no limit.
    CServeQuota(Orb_U64 ullMaxFile, Orb_U64 ullMaxTotal)
        : m_ullMaxFile(ullMaxFile), m_ullMaxTotal(ullMaxTotal)
    {
    }

    // Finds the total, without folders that this process may not read.
    void Count(const CRootFolder& root);

    bool IsLimited() const
    {
        return m_ullMaxFile != 0 || m_ullMaxTotal != 0;
    }
    Orb_U64 Total() const
    {
        return m_ullTotal;
    }

    // Why a file that is counted with ullCounted may not grow to ullSize; null when it may.
    const char* Fault(Orb_U64 ullCounted, Orb_U64 ullSize) const;

    void Add(Orb_U64 ullBytes);
    void Subtract(Orb_U64 ullBytes);

private:
    const Orb_U64 m_ullMaxFile;
    const Orb_U64 m_ullMaxTotal;
    Orb_U64 m_ullTotal = 0;
};

#endif
