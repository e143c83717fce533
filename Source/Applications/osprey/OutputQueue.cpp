#include "OutputQueue.h"

#include <exception>

namespace
{

const size_t MOST_BYTES = 1048576;

}  // namespace

COutputQueue::COutputQueue(int nOutput, CWrite fnWrite, CGapLine fnGap)
    : m_nOutput(nOutput),
      m_fnWrite(std::move(fnWrite)),
      m_fnGap(std::move(fnGap)),
      m_thread([this] { Run(); })
{
}

COutputQueue::~COutputQueue()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        try
        {
            TellGap();
        }
        catch (const std::exception&)
        {
            m_ullLeftOut = 0;  // no memory for the line
        }
        m_bEnd = true;
    }
    m_changed.notify_one();
    m_thread.join();
}

void COutputQueue::Put(int nDescriptor, const std::string& strText)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const size_t nMost = m_ullLeftOut == 0 ? MOST_BYTES : MOST_BYTES / 2;
        if (m_nBytes + strText.size() > nMost)
        {
            ++m_ullLeftOut;
            return;
        }
        TellGap();
        Append(nDescriptor, strText);
    }
    m_changed.notify_one();
}

void COutputQueue::Append(int nDescriptor, const std::string& strText)
{
    m_listWaiting.emplace_back(nDescriptor, strText);
    m_nBytes += strText.size();
}

void COutputQueue::TellGap()
{
    const std::string strLine = m_ullLeftOut == 0 ? std::string() : m_fnGap(m_ullLeftOut);
    m_ullLeftOut = 0;
    if (!strLine.empty() && m_nOutput >= 0)
    {
        Append(m_nOutput, strLine + "\n");
    }
}

bool COutputQueue::IsEmpty() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_listWaiting.empty();
}

void COutputQueue::Run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;)
    {
        m_changed.wait(lock, [this] { return m_bEnd || !m_listWaiting.empty(); });
        if (m_listWaiting.empty())
        {
            return;
        }
        const auto& [nDescriptor, strText] = m_listWaiting.front();
        lock.unlock();
        m_fnWrite(nDescriptor, strText);
        lock.lock();
        m_nBytes -= strText.size();
        m_listWaiting.pop_front();
    }
}
