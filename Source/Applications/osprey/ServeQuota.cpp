#include "ServeQuota.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <limits>

void CServeQuota::Count(const CRootFolder& root)
{
    m_ullTotal = 0;
    if (m_ullMaxTotal == 0)
    {
        return;
    }
    root.ForEachFile(
        [this](const CDescriptor& folder, const std::string& strName)
        {
            struct stat info
            {
            };
            if (fstatat(folder.Get(), strName.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISREG(info.st_mode))
            {
                Add(static_cast<Orb_U64>(info.st_size));
            }
        });
}

const char* CServeQuota::Fault(Orb_U64 ullCounted, Orb_U64 ullSize) const
{
    if (m_ullMaxFile != 0 && ullSize > m_ullMaxFile)
    {
        return "the file is larger than --max-file allows";
    }
    const Orb_U64 ullOthers = m_ullTotal - std::min(ullCounted, m_ullTotal);
    const bool bRoom = ullSize <= m_ullMaxTotal && ullOthers <= m_ullMaxTotal - ullSize;
    return m_ullMaxTotal != 0 && !bRoom ? "--max-total leaves no room for it" : nullptr;
}

void CServeQuota::Add(Orb_U64 ullBytes)
{
    m_ullTotal += std::min(ullBytes, std::numeric_limits<Orb_U64>::max() - m_ullTotal);
}

void CServeQuota::Subtract(Orb_U64 ullBytes)
{
    m_ullTotal -= std::min(ullBytes, m_ullTotal);
}
