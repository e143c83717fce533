#include "QueuedSink.h"

namespace
{

const size_t QUEUE_BYTES = size_t{16} * 1024 * 1024;

}  // namespace

CQueuedSink::CQueuedSink(const CSinkSpec& spec, std::unique_ptr<IBatchWriter> pWriter,
                         const std::function<void()>& fnWake)
    : IChannelSink(spec), m_queue(QUEUE_BYTES), m_pWriter(std::move(pWriter)), m_fnWake(fnWake)
{
}

CQueuedSink::~CQueuedSink()
{
    Finish();
}

void CQueuedSink::Start()
{
    m_thread = std::thread([this] { Run(); });
}

void CQueuedSink::Put(const char* pData, size_t nSize)
{
    m_queue.Put(Spec().m_dwChannel, pData, nSize);
}

void CQueuedSink::Finish()
{
    m_queue.End();
    if (m_thread.joinable())
    {
        m_thread.join();
    }
}

Orb_U64 CQueuedSink::Dropped() const
{
    return m_queue.Dropped();
}

std::string CQueuedSink::Failure() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_strFailure;
}

void CQueuedSink::Run()
{
    CPacketBatch batch;
    std::string strReason;
    while (m_queue.Take(batch))
    {
        if (!m_pWriter->Write(batch, strReason))
        {
            Fail(strReason);
            return;
        }
    }
    if (!m_pWriter->Close(strReason))
    {
        Fail(strReason);
    }
}

void CQueuedSink::Fail(const std::string& strReason)
{
    m_queue.End();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_strFailure = strReason;
    }
    m_fnWake();
}
