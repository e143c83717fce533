#ifndef OSPREY_TOOL_QUEUEDSINK_H
#define OSPREY_TOOL_QUEUEDSINK_H

#include <memory>
#include <mutex>
#include <thread>

#include "ChannelSink.h"
#include "PacketQueue.h"

// Writes packets somewhere; may block.
class IBatchWriter
{
public:
    virtual ~IBatchWriter() = default;

    // False with a plain reason when it cannot be written; not called again then.
    virtual bool Write(const CPacketBatch& batch, std::string& strReason) = 0;

    // All has been written. False with a plain reason when it was not.
    virtual bool Close(std::string& strReason) = 0;
};

// A sink whose packets wait in a queue for a thread of their own, which writes them.
class CQueuedSink final : public IChannelSink
{
public:
    // fnWake: called, on that thread, when the sink has failed.
    CQueuedSink(const CSinkSpec& spec, std::unique_ptr<IBatchWriter> pWriter,
                const std::function<void()>& fnWake);
    ~CQueuedSink() override;
    CQueuedSink(const CQueuedSink&) = delete;
    CQueuedSink& operator=(const CQueuedSink&) = delete;

    // Throws std::system_error.
    void Start() override;
    void Put(const char* pData, size_t nSize) override;
    void Finish() override;
    Orb_U64 Dropped() const override;
    std::string Failure() const override;

private:
    void Run();
    void Fail(const std::string& strReason);

    CPacketQueue m_queue;
    const std::unique_ptr<IBatchWriter> m_pWriter;
    const std::function<void()> m_fnWake;
    mutable std::mutex m_mutex;
    std::string m_strFailure;  // under m_mutex
    std::thread m_thread;
};

#endif
