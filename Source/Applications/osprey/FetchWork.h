#ifndef OSPREY_TOOL_FETCHWORK_H
#define OSPREY_TOOL_FETCHWORK_H

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "TransferWork.h"

// Files that come from a peer, whatever becomes of them here.
class CFetchWork final : public CTransferWork
{
public:
    using CMake = std::function<std::unique_ptr<ITransfer>(size_t nItem)>;

    CFetchWork(size_t nItems, CMake fnMake)
        : CTransferWork(nItems), m_nFiles(nItems), m_fnMake(std::move(fnMake))
    {
    }

    size_t FilesLeft() const override
    {
        return m_nFiles - Taken();
    }
    std::string ReasonOf(int nCode) const override;
    std::unique_ptr<IFileClient> MakeClient(IFileClientCallback& callback) const override
    {
        return MakeDownloadClient(callback);
    }

protected:
    std::unique_ptr<ITransfer> MakeTransfer(size_t nItem) const override
    {
        return m_fnMake(nItem);
    }

private:
    const size_t m_nFiles;
    const CMake m_fnMake;
};

#endif
