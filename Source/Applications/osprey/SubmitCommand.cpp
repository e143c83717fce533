#include "SubmitCommand.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ClientRun.h"
#include "Progress.h"
#include "SubmitList.h"
#include "Text.h"

namespace
{

const Orb_U64 BLOCK_SIZE = 32768;

class CSubmitRun final : public CClientRun
{
public:
    CSubmitRun(const COptions& options, COutput& output, CProgress& progress,
               const CSubmitList& list)
        : CClientRun(options, output, progress),
          m_options(options),
          m_list(list),
          m_callback(*this),
          m_pClient(CreateSubmitFileClient(&m_callback))
    {
    }
    ~CSubmitRun() override
    {
        m_pClient->Release();
    }
    CSubmitRun(const CSubmitRun&) = delete;
    CSubmitRun& operator=(const CSubmitRun&) = delete;

protected:
    bool StartClient(unsigned short* pName, unsigned int dwAddress, unsigned short wPort,
                     unsigned int dwTimeoutMs) override
    {
        return m_pClient->StartFileSubmit(pName, 0, dwAddress, wPort, dwTimeoutMs) != Orb_FALSE;
    }
    bool StopClient() override
    {
        return m_pClient->StopFileSubmit() != Orb_FALSE;
    }
    bool NextFile(std::string& strLocal, std::string& strRemote, long long& llNumber) override;
    void FileMoves(unsigned int dwPercent) override;
    void FileEnds() override;
    void FileFails(const std::string& strReason) override;
    std::string ReasonOf(int nCode) const override;
    void CleanUp() override {}
    size_t FilesLeft() const override;

private:
    const CSubmitEntry& Current() const
    {
        return m_list.Entries()[m_nNext - 1];
    }
    bool IsReadable(const CSubmitEntry& entry);

    const COptions& m_options;
    const CSubmitList& m_list;
    CClientCallback<ISubmitFileClientCallback> m_callback;
    ISubmitFileClient* m_pClient;
    size_t m_nNext = 0;
    Orb_U64 m_ullBlocks = 0;
};

bool CSubmitRun::NextFile(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    while (m_nNext < m_list.Entries().size())
    {
        const CSubmitEntry& entry = m_list.Entries()[m_nNext++];
        if (!IsReadable(entry))
        {
            continue;
        }
        strLocal = entry.m_strPath;
        strRemote = m_options.m_strTo;
        llNumber = static_cast<long long>(entry.m_nBase);
        m_ullBlocks = 0;
        m_progress.FileBegins(entry.Shown());
        return true;
    }
    return false;
}

// The client looks only after the peer has made room for the file.
bool CSubmitRun::IsReadable(const CSubmitEntry& entry)
{
    if (entry.m_bFolder || faccessat(AT_FDCWD, entry.m_strPath.c_str(), R_OK, AT_EACCESS) == 0)
    {
        return true;
    }
    m_progress.Fails(entry.m_strPath, strerror(errno), true);
    return false;
}

void CSubmitRun::FileMoves(unsigned int dwPercent)
{
    const Orb_U64 ullSize = Current().m_ullSize;
    m_progress.FileMoves(dwPercent, EstimateSent(++m_ullBlocks, dwPercent, ullSize), ullSize);
}

void CSubmitRun::FileEnds()
{
    const CSubmitEntry& entry = Current();
    if (entry.m_bFolder)
    {
        m_progress.FolderEnds(entry.Shown());
        return;
    }
    m_progress.FileEnds(entry.m_ullSize);
}

void CSubmitRun::FileFails(const std::string& strReason)
{
    m_progress.Fails(Current().m_strPath, strReason, !Current().m_bFolder);
}

std::string CSubmitRun::ReasonOf(int nCode) const
{
    switch (nCode)
    {
        case OSPREY_FILE_NO_MEMORY:
            return "out of memory";
        case OSPREY_FILE_NOT_FOUND:
            return "it is gone";
        case OSPREY_FILE_OPEN_FAILED:
            return "it could not be opened";
        case OSPREY_FILE_READ_FAILED:
            return "it could not be read";
        case OSPREY_FILE_DIR_REFUSED:
            return "the server refused the folder, or could not create it";
        case OSPREY_FILE_UPLOAD_REFUSED:
            return "the server refused the file, or could not create it";
        case OSPREY_FILE_WRITE_FAILED:
            return "the server could not write it; its disk may be full";
        default:
            return "failed with code " + std::to_string(nCode);
    }
}

size_t CSubmitRun::FilesLeft() const
{
    const auto& listEntries = m_list.Entries();
    return static_cast<size_t>(
        std::count_if(listEntries.begin() + static_cast<std::ptrdiff_t>(m_nNext), listEntries.end(),
                      [](const auto& entry) { return !entry.m_bFolder; }));
}

}  // namespace

Orb_U64 EstimateSent(Orb_U64 ullBlocks, unsigned int dwPercent, Orb_U64 ullSize)
{
    if (dwPercent >= 100)
    {
        return ullSize;
    }
    // In two steps: sizes near 2^64 times 100 would not fit.
    const Orb_U64 ullHundredth = ullSize / 100;
    const Orb_U64 ullRest = ullSize % 100;
    const Orb_U64 ullLeast = ullHundredth * dwPercent + ullRest * dwPercent / 100;
    const Orb_U64 ullMost = ullHundredth * (dwPercent + 1) + ullRest * (dwPercent + 1) / 100;
    return std::min(std::max(ullBlocks * BLOCK_SIZE, ullLeast), std::min(ullMost, ullSize));
}

int RunSubmit(const COptions& options, COutput& output)
{
    CProgress progress(output, ProgressStyle(options, output), true);
    CSubmitList list([&progress](const std::string& strPath, const std::string& strReason)
                     { progress.Message(PlainText(strPath) + ": " + strReason); },
                     [&progress](const std::string& strPath, const std::string& strReason)
                     { progress.Fails(strPath, strReason, false); });
    std::string strReason;
    if (!list.Add(options.m_listNames, strReason))
    {
        output.Error(strReason);
        return EXIT_USAGE;
    }
    if (list.Entries().empty() && progress.Failures() > 0)
    {
        return EXIT_FILE_FAILED;
    }
    progress.Plan(list.Files(), list.Bytes(), true);
    CSubmitRun run(options, output, progress, list);
    return run.Execute();
}
