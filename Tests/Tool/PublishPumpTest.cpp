// What the pump of publish asks of the server.

#include <gtest/gtest.h>

#include <string>

#include "EventLog.h"
#include "PublishPump.h"
#include "TempFolder.h"

namespace
{

class CCountingServer final : public IOspreyServer
{
public:
    Orb_BOOL Startup(unsigned int /*dwIP*/, unsigned short /*wPort*/) override
    {
        return Orb_TRUE;
    }
    Orb_BOOL Shutdown() override
    {
        return Orb_TRUE;
    }
    void Release() override {}
    Orb_BOOL TerminateTask(long /*lTask*/) override
    {
        return Orb_TRUE;
    }
    unsigned int PutChannelPacket(unsigned int dwChannel, void* pData, unsigned int dwSize) override
    {
        m_strCalls += "put " + std::to_string(dwChannel) + " " +
                      std::string(static_cast<const char*>(pData), dwSize) + ". ";
        return 0;
    }
    float GetChannelMaxBufferUsage() override
    {
        return 0.0F;
    }
    Orb_BOOL EndAllConnections(unsigned int /*dwTimeoutMs*/) override
    {
        return Orb_TRUE;
    }
    void FlushChannelPackets() override
    {
        m_strCalls += "flush. ";
    }
    Orb_BOOL SetConnectionFilter(IOspreyConnectionFilter* /*pFilter*/) override
    {
        return Orb_TRUE;
    }
    long GetCallbackTask() override
    {
        return 0;
    }
    Orb_BOOL SetTransferObserver(IOspreyTransferObserver* /*pObserver*/) override
    {
        return Orb_TRUE;
    }

    std::string m_strCalls;
};

std::string CallsOf(bool bLive)
{
    const CTempFolder folder;
    COptions options;
    CSourceSpec spec;
    spec.m_eKind = SOURCE_FILE;
    spec.m_dwChannel = 7;
    spec.m_strPath = folder.WriteFile("source", "abcde");
    options.m_listSources.push_back(spec);
    options.m_stream.m_nPacketSize = 2;
    options.m_stream.m_bLive = bLive;

    COutput output;
    CEventLog log(output, CEventLog::STYLE_QUIET);
    CPublishLog publishLog(log, output, false);
    CPublishPump pump(publishLog);
    EXPECT_EQ(pump.Open(options), EXIT_DONE);
    const CSignals signals;
    CCountingServer server;
    pump.RunToEnd(server, signals, 0);
    return server.m_strCalls;
}

}  // namespace

TEST(PublishPump, PutsThePacketsAndLeavesTheirTimeToTheReaders)
{
    EXPECT_EQ(CallsOf(false), "put 7 ab. put 7 cd. put 7 e. ");
}

TEST(PublishPump, FlushesEachPacketWhenLive)
{
    EXPECT_EQ(CallsOf(true), "put 7 ab. flush. put 7 cd. flush. put 7 e. flush. ");
}
