#include "ServeQuota.h"

#include <algorithm>
#include <filesystem>
#include <limits>

namespace fs = std::filesystem;

void CServeQuota::Count(const CRootFolder& root)
{
    m_ullTotal = 0;
    if (m_ullMaxTotal == 0)
    {
        return;
    }
    std::error_code error;
    auto it = fs::recursive_directory_iterator(
        root.Path(), fs::directory_options::skip_permission_denied, error);
    while (!error && it != fs::recursive_directory_iterator())
    {
        std::error_code gone;
        if (!it->is_symlink(gone) && it->is_regular_file(gone))
        {
            const auto size = it->file_size(gone);
            Add(gone ? 0 : size);
        }
        it.increment(error);
    }
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
