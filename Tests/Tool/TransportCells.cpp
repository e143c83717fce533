#include "TransportCells.h"

#include "Hex.h"

namespace
{

const size_t CELL_SIZE = 188;
const unsigned char ADAPTATION = 0x20;
const unsigned char PAYLOAD = 0x10;

std::string Header(unsigned int dwPid, unsigned int dwCounter, unsigned char cControl)
{
    return {'\x47', static_cast<char>(dwPid >> 8), static_cast<char>(dwPid),
            static_cast<char>(cControl | (dwCounter & 0x0F))};
}

}  // namespace

std::string TransportCell(unsigned int dwPid, unsigned int dwCounter, unsigned int dwSeed)
{
    return Header(dwPid, dwCounter, PAYLOAD) + Pattern(CELL_SIZE - 4, dwSeed + 1);
}

std::string TransportCell(unsigned int dwPid, unsigned int dwCounter, unsigned char cFlags,
                          bool bPayload)
{
    // Without payload the field fills the cell.
    const char cLength = static_cast<char>(bPayload ? 1 : CELL_SIZE - 5);
    std::string strCell = Header(dwPid, dwCounter, ADAPTATION | (bPayload ? PAYLOAD : 0));
    strCell += cLength;
    strCell += static_cast<char>(cFlags);
    strCell.resize(CELL_SIZE, '\xFF');
    return strCell;
}

std::string TransportStream(unsigned int dwPid, size_t nCells)
{
    std::string strStream;
    for (size_t i = 0; i < nCells; ++i)
    {
        const unsigned int dwCounter = static_cast<unsigned int>(i);
        strStream += TransportCell(dwPid, dwCounter, dwCounter);
    }
    return strStream;
}
