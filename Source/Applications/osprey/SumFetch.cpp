#include "SumFetch.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "ClientRun.h"
#include "FetchWork.h"
#include "MemoryFile.h"
#include "Text.h"

namespace
{

const Orb_U64 LARGEST_LIST = 64ULL << 20;

// The folder of a name, with the "/" behind it; empty for the served folder.
std::string FolderPart(const std::string& strName)
{
    return strName.substr(0, strName.rfind('/') + 1);
}

// Fetches a list into memory.
class CListReception final : public ITransfer
{
public:
    explicit CListReception(CSumFetch::CList& list) : m_list(list) {}

    bool IsFolder() const override
    {
        return false;
    }
    bool Begin(std::string& strLocal, std::string& strRemote, long long& llNumber) override;
    void Move(unsigned int dwPercent, Orb_U64 ullAnnounced) override;
    void Complete(Orb_U64 ullAnnounced) override;
    void Fail(const std::string& strReason, int nCode) override;
    void CleanUp() override {}

private:
    CSumFetch::CList& m_list;
    const CMemoryFile m_file;
};

bool CListReception::Begin(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    if (m_file.Descriptor() < 0)
    {
        m_list.m_strFault = strerror(errno);
        return false;
    }
    strLocal = m_file.Path();
    strRemote = m_list.m_strName;
    llNumber = 0;
    return true;
}

void CListReception::Move(unsigned int, Orb_U64 ullAnnounced)
{
    if (std::max(ullAnnounced, m_file.Size()) > LARGEST_LIST)
    {
        m_file.Forget(m_file.Size());
    }
}

void CListReception::Complete(Orb_U64 ullAnnounced)
{
    const Orb_U64 ullSize = m_file.Size();
    if (ullSize != ullAnnounced || ullSize > LARGEST_LIST)
    {
        m_list.m_strFault = ullSize > LARGEST_LIST ? "it is too large for a list of SHA-256 sums"
                                                   : "it has not the size that was announced";
        return;
    }
    m_list.m_strText.resize(static_cast<size_t>(ullSize));
    const ssize_t n =
        pread(m_file.Descriptor(), m_list.m_strText.data(), m_list.m_strText.size(), 0);
    m_list.m_bThere = n == static_cast<ssize_t>(ullSize);
    m_list.m_strFault = m_list.m_bThere ? "" : "it cannot be read";
}

void CListReception::Fail(const std::string& strReason, int nCode)
{
    // A list that nobody promised may be missing.
    m_list.m_strFault = nCode == OSPREY_FILE_NOT_FOUND ? "" : strReason;
}

}  // namespace

CSumFetch::CSumFetch(const COptions& options, const CDeadline& deadline, COutput& output,
                     CProgress& progress)
    : m_options(options), m_deadline(deadline), m_output(output), m_progress(progress)
{
    if (!options.m_strManifest.empty())
    {
        AddList(PlainRemoteName(options.m_strManifest));
        return;
    }
    for (const std::string& strName : options.m_listNames)
    {
        std::string strFolder = FolderPart(PlainRemoteName(strName));
        AddList(strFolder + SUM_LIST);
        while (!strFolder.empty())
        {
            strFolder.pop_back();
            strFolder = FolderPart(strFolder);
            AddList(strFolder + SUM_LIST);
        }
    }
}

void CSumFetch::AddList(const std::string& strName)
{
    const bool bKnown = std::any_of(m_listLists.begin(), m_listLists.end(),
                                    [&](const CList& list) { return list.m_strName == strName; });
    if (!bKnown)
    {
        CList list;
        list.m_strName = strName;
        m_listLists.push_back(std::move(list));
    }
}

void CSumFetch::ReportFault(const std::string& strShown, const std::string& strReason)
{
    m_progress.CountNotVerified();
    m_progress.Fails(strShown, strReason, false);
}

int CSumFetch::Fetch()
{
    CFetchWork work(m_listLists.size(), [this](size_t nItem)
                    { return std::make_unique<CListReception>(m_listLists[nItem]); });
    CClientRun run(m_options, m_deadline, m_output, m_progress, work, 1);
    run.MoreFollows();
    run.Run();
    const int nCode = run.Report();
    if (nCode != EXIT_DONE)
    {
        return nCode;
    }
    for (CList& list : m_listLists)
    {
        const bool bMissing = !list.m_bThere && !m_options.m_strManifest.empty();
        if (bMissing || !list.m_strFault.empty())
        {
            ReportFault(list.m_strName, list.m_strFault.empty()
                                            ? "not found at the server, or refused"
                                            : list.m_strFault);
        }
        list.m_sums.Parse(list.m_strText, list.m_strName,
                          [this](const std::string& strShown, const std::string& strReason)
                          { ReportFault(strShown, strReason); });
        list.m_strText.clear();
    }
    return EXIT_DONE;
}

// Of those that are there.
const CSumFetch::CList* CSumFetch::Nearest(const std::string& strName) const
{
    const CList* pNearest = nullptr;
    for (const CList& list : m_listLists)
    {
        const std::string strFolder = FolderPart(list.m_strName);
        if (list.m_bThere && strName.compare(0, strFolder.size(), strFolder) == 0 &&
            (pNearest == nullptr || list.m_strName.size() > pNearest->m_strName.size()))
        {
            pNearest = &list;
        }
    }
    return pNearest;
}

const std::string* CSumFetch::Find(const std::string& strName)
{
    const std::string strPlain = PlainRemoteName(strName);
    const CList* pList = Nearest(strPlain);
    const std::string* pDigest =
        pList == nullptr ? nullptr
                         : pList->m_sums.Find(strPlain.substr(FolderPart(pList->m_strName).size()));
    if (pDigest == nullptr)
    {
        m_progress.CountNotVerified();
        m_progress.Fails(strName,
                         pList == nullptr ? "there is no list of SHA-256 sums to verify it by"
                                          : "it is not in " + PlainText(pList->m_strName),
                         false);
    }
    return pDigest;
}

std::vector<std::pair<std::string, std::string>> CSumFetch::Listed() const
{
    std::vector<std::pair<std::string, std::string>> listFiles;
    const CList& list = m_listLists.front();
    for (const auto& entry : list.m_sums.Entries())
    {
        listFiles.emplace_back(FolderPart(list.m_strName) + entry.first, entry.second);
    }
    return listFiles;
}

std::string CSumFetch::BelowList(const std::string& strName) const
{
    return strName.substr(FolderPart(m_listLists.front().m_strName).size());
}
