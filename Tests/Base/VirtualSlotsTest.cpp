#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "LibOsprey.h"

// A host that was compiled against an earlier header calls through slot numbers: a slot that moves
// breaks it without a word from the linker. New operations go behind the last one.

namespace
{

// The slot of a virtual operation, as compilers store it in a pointer to member: the offset in the
// table, plus 1 where the low bit of the pointer tells a virtual operation from others, or with the
// low bit of the adjustment set (Itanium C++ ABI 2.3, C++ ABI for the Arm 64-bit
// architecture 3.2.1).
template <typename TOperation>
size_t SlotOf(TOperation pOperation)
{
    struct
    {
        std::uintptr_t m_nPointer;
        std::ptrdiff_t m_nAdjustment;
    } parts;
    static_assert(sizeof parts == sizeof pOperation, "a pointer to member has two words");
    memcpy(&parts, &pOperation, sizeof parts);
#ifdef __aarch64__
    EXPECT_EQ(parts.m_nAdjustment, 1);
    return parts.m_nPointer / sizeof(void*);
#else
    EXPECT_EQ(parts.m_nPointer % sizeof(void*), 1U);
    return (parts.m_nPointer - 1) / sizeof(void*);
#endif
}

TEST(VirtualSlots, OfTheServerStay)
{
    EXPECT_EQ(SlotOf(&IOspreyServer::Startup), 0U);
    EXPECT_EQ(SlotOf(&IOspreyServer::Shutdown), 1U);
    EXPECT_EQ(SlotOf(&IOspreyServer::Release), 2U);
    EXPECT_EQ(SlotOf(&IOspreyServer::TerminateTask), 3U);
    EXPECT_EQ(SlotOf(&IOspreyServer::PutChannelPacket), 4U);
    EXPECT_EQ(SlotOf(&IOspreyServer::GetChannelMaxBufferUsage), 5U);
    // 6 and 7: the destructors.
    EXPECT_EQ(SlotOf(&IOspreyServer::EndAllConnections), 8U);
    EXPECT_EQ(SlotOf(&IOspreyServer::FlushChannelPackets), 9U);
    EXPECT_EQ(SlotOf(&IOspreyServer::SetConnectionFilter), 10U);
    EXPECT_EQ(SlotOf(&IOspreyServer::GetCallbackTask), 11U);
    EXPECT_EQ(SlotOf(&IOspreyServer::SetTransferObserver), 12U);
}

TEST(VirtualSlots, OfTheServersCallbacksStay)
{
    EXPECT_EQ(SlotOf(&IOspreyServerCallback::OnRequest), 0U);
    EXPECT_EQ(SlotOf(&IOspreyServerCallback::OnDisconnect), 1U);
    EXPECT_EQ(SlotOf(&IOspreyProgress::OnProgress), 0U);
    EXPECT_EQ(SlotOf(&IOspreyConnectionFilter::OnAccept), 0U);
    EXPECT_EQ(SlotOf(&IOspreyTransferObserver::OnTransferEnded), 0U);
}

TEST(VirtualSlots, OfTheFileClientsStay)
{
    EXPECT_EQ(SlotOf(&ISubmitFileClient::StartFileSubmit), 0U);
    EXPECT_EQ(SlotOf(&ISubmitFileClient::StopFileSubmit), 1U);
    EXPECT_EQ(SlotOf(&ISubmitFileClient::Release), 2U);
    EXPECT_EQ(SlotOf(&IDownloadFileClient::StartFileDownload), 0U);
    EXPECT_EQ(SlotOf(&IDownloadFileClient::StopFileDownload), 1U);
    EXPECT_EQ(SlotOf(&IDownloadFileClient::Release), 2U);
    EXPECT_EQ(SlotOf(&IDownloadFileClient::GetAnnouncedSize), 3U);
}

TEST(VirtualSlots, OfTheFileClientsCallbacksStay)
{
    EXPECT_EQ(SlotOf(&IFileClientCallback::OnConnected), 0U);
    EXPECT_EQ(SlotOf(&IFileClientCallback::OnStartFailed), 1U);
    EXPECT_EQ(SlotOf(&IFileClientCallback::OnDisconnected), 2U);
    EXPECT_EQ(SlotOf(&IFileClientCallback::GetNextFile), 3U);
    EXPECT_EQ(SlotOf(&IFileClientCallback::OnProgress), 4U);
    EXPECT_EQ(SlotOf(&IFileClientCallback::OnFileCompleted), 5U);
    EXPECT_EQ(SlotOf(&IFileClientCallback::OnFileFailed), 6U);
}

TEST(VirtualSlots, OfTheChannelClientAndItsCallbacksStay)
{
    EXPECT_EQ(SlotOf(&IWXSPChannelClient::Connect), 0U);
    EXPECT_EQ(SlotOf(&IWXSPChannelClient::Release), 1U);
    EXPECT_EQ(SlotOf(&IWXSPChannelClientCallback::OnConnected), 0U);
    EXPECT_EQ(SlotOf(&IWXSPChannelClientCallback::OnConnectFailed), 1U);
    EXPECT_EQ(SlotOf(&IWXSPChannelClientCallback::OnDisconnected), 2U);
    EXPECT_EQ(SlotOf(&IWXSPChannelClientCallback::OnChannelPacket), 3U);
}

}  // namespace
