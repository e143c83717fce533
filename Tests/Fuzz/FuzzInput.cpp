#include "FuzzInput.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

const size_t HEADER_SIZE = 12;
const size_t SIZE_OFFSET = 8;

}  // namespace

void Fail(const char* pszWhat)
{
    fprintf(stderr, "does not hold: %s\n", pszWhat);
    abort();
}

unsigned char CFuzzInput::TakeByte()
{
    if (m_left.empty())
    {
        return 0;
    }
    const unsigned char cByte = static_cast<unsigned char>(m_left.front());
    m_left.remove_prefix(1);
    return cByte;
}

unsigned int CFuzzInput::TakeBelow(unsigned int dwBound)
{
    unsigned int dwValue = TakeByte();
    if (dwBound > 256)
    {
        dwValue = dwValue << 8 | TakeByte();
    }
    return dwValue % dwBound;
}

std::string_view CFuzzInput::TakeBytes(size_t nSize)
{
    const std::string_view bytes = m_left.substr(0, nSize);
    m_left.remove_prefix(bytes.size());
    return bytes;
}

std::string_view CFuzzInput::TakeRest()
{
    return TakeBytes(m_left.size());
}

std::string_view CPieces::Take()
{
    const std::string_view piece = m_left.substr(0, GetNextSize());
    m_left.remove_prefix(piece.size());
    return piece;
}

std::string_view CPieces::TakeRest()
{
    const std::string_view rest = m_left;
    m_left.remove_prefix(rest.size());
    return rest;
}

size_t CPieces::GetNextSize()
{
    if (m_cRule == 0)
    {
        return m_left.size();
    }
    if (m_cRule == 1)
    {
        const uint64_t ullSize = GetClaimedSize(m_left);
        return ullSize == 0 ? m_left.size()
                            : static_cast<size_t>(std::min<uint64_t>(ullSize, m_left.size()));
    }
    m_bOdd = !m_bOdd;
    return m_bOdd ? m_cRule : m_cRule / 16U + 1U;
}

uint64_t GetClaimedSize(std::string_view stream)
{
    if (stream.size() < HEADER_SIZE)
    {
        return 0;
    }
    uint64_t ullSize = 0;
    for (size_t i = 4; i-- > 0;)
    {
        ullSize = ullSize << 8 | static_cast<unsigned char>(stream[SIZE_OFFSET + i]);
    }
    return HEADER_SIZE + ullSize;
}
