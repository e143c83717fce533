// Many small files over a link, by the tool: what several connections gain over one.

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "Events.h"
#include "FarServer.h"
#include "Folder.h"
#include "Runs.h"

extern char** environ;

namespace
{

const int JOBS = 8;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const double LEAST_GAIN = 2;  // eight sanitized connections may need more than the processor has
#else
const double LEAST_GAIN = 6;
#endif
const int ROUNDS = 3;

// Serves a folder to a peer that is trusted.
class CFolderHost final : public IOspreyServerCallback
{
public:
    explicit CFolderHost(std::string strFolder) : m_strFolder(std::move(strFolder)) {}

    int OnRequest(KS_REQUEST eRequest, void* pRecord) override
    {
        switch (eRequest)
        {
            case KS_REQUEST_UPLOAD_FILE:
                Resolve(static_cast<KS_UPLOAD_FILE*>(pRecord)->pszName,
                        static_cast<KS_UPLOAD_FILE*>(pRecord)->strResolvedPath);
                break;
            case KS_REQUEST_DOWNLOAD_FILE:
                Resolve(static_cast<KS_DOWNLOAD_FILE*>(pRecord)->pszName,
                        static_cast<KS_DOWNLOAD_FILE*>(pRecord)->strResolvedPath);
                break;
            case KS_REQUEST_CREATE_DIR:
                Resolve(static_cast<KS_CREATE_DIR*>(pRecord)->pszPath,
                        static_cast<KS_CREATE_DIR*>(pRecord)->strResolvedPath);
                break;
            default:
                break;
        }
        return 0;
    }
    void OnDisconnect(const char* /*pszName*/) override {}

private:
    // "FILESUBMIT||folder\\name", or "folder/name".
    void Resolve(const std::string& strName, std::string& strPath) const
    {
        strPath = m_strFolder + "/" + strName.substr(strName.rfind('|') + 1);
        std::replace(strPath.begin(), strPath.end(), '\\', '/');
    }

    std::string m_strFolder;
};

// Its exit code; what it says on standard error comes out here.
int RunTool(std::vector<std::string> words)
{
    words.insert(words.begin(), OSPREY_TOOL);
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& strWord : words)
    {
        pointers.push_back(strWord.data());
    }
    pointers.push_back(nullptr);
    pid_t nProcess = -1;
    int nStatus = 0;
    const bool bEnded =
        posix_spawn(&nProcess, OSPREY_TOOL, nullptr, nullptr, pointers.data(), environ) == 0 &&
        waitpid(nProcess, &nStatus, 0) == nProcess && WIFEXITED(nStatus);
    return bEnded ? WEXITSTATUS(nStatus) : -1;
}

// As many times the connections, as many times the files: both take about as long. What else runs
// on the machine only ever adds time, so of several rounds in turn the shortest times count.
class CJobsRun
{
public:
    CJobsRun(const CSetting& setting, CLink& link)
        : m_setting(setting), m_link(link), m_bUpload(setting.m_strKind == "uploads")
    {
        std::filesystem::create_directory(m_folder.Get("near"));
        std::filesystem::create_directory(m_folder.Get("far"));
    }

    COutcome Run()
    {
        CFolderHost host(m_folder.Get("far"));
        const CFarServer server(m_link, &host);
        MakeFiles(1);
        MakeFiles(JOBS);
        double dOne = Seconds(1);
        double dSeveral = Seconds(JOBS);
        for (int i = 1; i < ROUNDS; ++i)
        {
            dOne = std::min(dOne, Seconds(1));
            dSeveral = std::min(dSeveral, Seconds(JOBS));
        }
        Compare(1);
        Compare(JOBS);
        const double dGain = dOne / dSeveral * JOBS;
        char szText[128];
        snprintf(szText, sizeof szText, "%.1f times", dGain);
        m_outcome.m_strEnd = szText;
        m_outcome.m_dSeconds = dSeveral;
        snprintf(szText, sizeof szText, "%d connections: %.1f files a second; one: %.1f", JOBS,
                 m_setting.m_nFiles * JOBS / dSeveral, m_setting.m_nFiles / dOne);
        m_outcome.Forbid(dGain < LEAST_GAIN, szText);
        return m_outcome;
    }

private:
    static std::string Name(int nJobs)
    {
        return "jobs" + std::to_string(nJobs);
    }
    std::string From(int nJobs) const
    {
        return m_folder.Get((m_bUpload ? "near/" : "far/") + Name(nJobs));
    }
    std::string To(int nJobs) const
    {
        return m_folder.Get((m_bUpload ? "far/" : "near/") + Name(nJobs));
    }
    // "/0", "/1", ...
    std::vector<std::string> Files(int nJobs) const
    {
        std::vector<std::string> files;
        files.reserve(static_cast<size_t>(m_setting.m_nFiles) * static_cast<size_t>(nJobs));
        for (int i = 0; i < m_setting.m_nFiles * nJobs; ++i)
        {
            files.push_back("/" + std::to_string(i));
        }
        return files;
    }

    void MakeFiles(int nJobs) const
    {
        std::filesystem::create_directory(From(nJobs));
        int nSeed = m_setting.m_nSeed;
        for (const std::string& strFile : Files(nJobs))
        {
            std::ofstream(From(nJobs) + strFile, std::ios::binary)
                << RandomBytes(m_setting.m_nBytes, nSeed++);
        }
    }

    // That one run of the tool takes, from its start to its end.
    double Seconds(int nJobs)
    {
        std::filesystem::remove_all(To(nJobs));
        std::vector<std::string> words = {m_bUpload ? "submit" : "download", "10.77.0.2:7070",
                                          "--quiet", "--jobs", std::to_string(nJobs)};
        if (m_bUpload)
        {
            words.push_back(From(nJobs));
        }
        else
        {
            words.push_back("--output=" + To(nJobs));
            for (const std::string& strFile : Files(nJobs))
            {
                words.push_back(Name(nJobs) + strFile);
            }
        }
        const CTime start = Now();
        m_outcome.Forbid(RunTool(words) != 0, "the tool failed");
        return SecondsBetween(start, Now());
    }

    // After the last round.
    void Compare(int nJobs)
    {
        for (const std::string& strFile : Files(nJobs))
        {
            const std::string strBytes = Contents(To(nJobs) + strFile);
            m_outcome.Forbid(strBytes.size() != static_cast<size_t>(m_setting.m_nBytes) ||
                                 strBytes != Contents(From(nJobs) + strFile),
                             To(nJobs) + strFile + " differs");
        }
    }

    const CSetting& m_setting;
    CLink& m_link;
    bool m_bUpload;
    CFolder m_folder;
    COutcome m_outcome;
};

}  // namespace

COutcome RunJobs(const CSetting& setting, CLink& link)
{
    return CJobsRun(setting, link).Run();
}
