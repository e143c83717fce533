// The programs of Examples/, each run against another one.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "Hex.h"
#include "RawSocket.h"
#include "TempFolder.h"
#include "ToolProcess.h"

namespace
{

// A running example, and a keyboard for it.
class CExample
{
public:
    explicit CExample(const char* pszName, const std::vector<std::string>& listArguments = {})
    {
        const std::string strKeys = m_folder.GetPath("keys");
        EXPECT_EQ(mkfifo(strKeys.c_str(), 0600), 0);
        m_hKeys = open(strKeys.c_str(), O_RDWR | O_CLOEXEC);
        std::vector<std::string> listCommand = {std::string(OSPREY_EXAMPLES) + "/" + pszName};
        listCommand.insert(listCommand.end(), listArguments.begin(), listArguments.end());
        m_pProcess = std::make_unique<CToolProcess>(listCommand, 0, std::string(), strKeys);
    }
    ~CExample()
    {
        CloseKeys();
    }
    CExample(const CExample&) = delete;
    CExample& operator=(const CExample&) = delete;

    void Type(const std::string& strKeys) const
    {
        EXPECT_EQ(write(m_hKeys, strKeys.data(), strKeys.size()),
                  static_cast<ssize_t>(strKeys.size()));
    }
    // Its input ends once the example has it open, and has read what was typed.
    void CloseKeys()
    {
        if (m_hKeys >= 0)
        {
            close(m_hKeys);
            m_hKeys = -1;
        }
    }
    bool WaitFor(const std::string& strText) const
    {
        return m_pProcess->WaitUntil(
            strText, [&] { return m_pProcess->GetErrors().find(strText) != std::string::npos; });
    }
    int Wait() const
    {
        return m_pProcess->Wait();
    }

private:
    CTempFolder m_folder;
    int m_hKeys = -1;
    std::unique_ptr<CToolProcess> m_pProcess;
};

int ExitCode(const char* pszName, const std::vector<std::string>& listArguments)
{
    return CExample(pszName, listArguments).Wait();
}

// A folder that the example server serves.
class CExamples : public ::testing::Test
{
protected:
    CExamples()
        : m_strPort(std::to_string(FreePort())),
          m_server("FileServer", {m_around.GetPath("served"), m_strPort})
    {
        EXPECT_EQ(mkdir(m_around.GetPath("served").c_str(), 0700), 0);
        m_server.WaitFor("Serving");
    }

    void EndServer() const
    {
        m_server.Type("\n");
        EXPECT_EQ(m_server.Wait(), 0);
    }

    CTempFolder m_around;
    CTempFolder m_local;
    const std::string m_strPort;
    CExample m_server;
};
using Examples = CExamples;

TEST_F(Examples, SubmitSendsAFileToTheFileServer)
{
    const std::string strFile = m_local.WriteFile("film.ts", Pattern(300000));
    EXPECT_EQ(ExitCode("Submit", {"127.0.0.1", m_strPort, strFile}), 0);
    EXPECT_TRUE(ReadFile(m_around.GetPath("served/film.ts")) == Pattern(300000));
    EXPECT_EQ(ExitCode("Submit", {"127.0.0.1", m_strPort, m_local.GetPath("none")}), 1);
    EndServer();
}

TEST_F(Examples, DownloadFetchesAFileFromTheFileServer)
{
    m_around.WriteFile("served/film.ts", Pattern(300000));
    const std::string strHere = m_local.GetPath("here.ts");
    EXPECT_EQ(ExitCode("Download", {"127.0.0.1", m_strPort, "film.ts", strHere}), 0);
    EXPECT_TRUE(ReadFile(strHere) == Pattern(300000));
    EXPECT_FALSE(FileExists(strHere + ".part"));
    EXPECT_EQ(ExitCode("Download", {"127.0.0.1", m_strPort, "none", m_local.GetPath("none")}), 1);
    EXPECT_FALSE(FileExists(m_local.GetPath("none")));
    EndServer();
}

TEST_F(Examples, TheFileServerRefusesWhatIsNoPlainName)
{
    m_around.WriteFile("secret", "secret");
    m_around.WriteFile("served/.hidden", "secret");
    EXPECT_EQ(mkdir(m_around.GetPath("served/folder").c_str(), 0700), 0);
    const std::string strStolen = m_local.GetPath("stolen");
    for (const char* pszName : {"../secret", "folder/../../secret", ".hidden", ""})
    {
        EXPECT_EQ(ExitCode("Download", {"127.0.0.1", m_strPort, pszName, strStolen}), 1) << pszName;
        EXPECT_FALSE(FileExists(strStolen)) << pszName;
    }
    EndServer();
}

TEST(ExamplePrograms, ALineThatIsPublishedReachesTheSubscriber)
{
    const std::string strPort = std::to_string(FreePort());
    CExample publisher("Publish", {strPort});
    CExample subscriber("Subscribe", {"127.0.0.1", strPort});
    subscriber.WaitFor("Connected");
    // What is put before the channel is open reaches nobody: lines go on until the last has come.
    std::atomic<bool> bCame{false};
    std::thread typist(
        [&]
        {
            while (!bCame)
            {
                publisher.Type("a line\n");
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        });
    EXPECT_TRUE(subscriber.WaitFor("a line\n"));
    bCame = true;
    typist.join();
    publisher.CloseKeys();
    EXPECT_EQ(publisher.Wait(), 0);
    subscriber.WaitFor("Connection lost");
    subscriber.Type("\n");
    EXPECT_EQ(subscriber.Wait(), 0);
}

TEST(ExamplePrograms, SayThatTheyWereCalledWrongly)
{
    for (const char* pszName : {"FileServer", "Submit", "Download", "Publish", "Subscribe"})
    {
        EXPECT_EQ(ExitCode(pszName, {}), 2) << pszName;
    }
}

}  // namespace
