#include "TransferWork.h"

#include <algorithm>

std::unique_ptr<ITransfer> CTransferWork::Take()
{
    const size_t nItem = m_nNext++;
    return nItem < m_nItems ? MakeTransfer(nItem) : nullptr;
}

size_t CTransferWork::Taken() const
{
    return std::min(m_nNext.load(), m_nItems);
}
