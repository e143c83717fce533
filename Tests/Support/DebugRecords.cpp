#include "DebugRecords.h"

#include <log4cplus/appender.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>

namespace
{

class CCollectingAppender final : public log4cplus::Appender
{
public:
    explicit CCollectingAppender(CDebugRecords* pRecords) : m_pRecords(pRecords) {}
    ~CCollectingAppender() override
    {
        destructorImpl();
    }
    void close() override {}

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        if (event.getLogLevel() == log4cplus::DEBUG_LOG_LEVEL)
        {
            m_pRecords->Add({event.getMessage(), event.getFile(), event.getFunction()});
        }
    }

private:
    CDebugRecords* m_pRecords;
};

}  // namespace

CDebugRecords::CDebugRecords()
    : m_logger(log4cplus::Logger::getInstance("Harbor.Libraries.LibOspreyClient")),
      m_pAppender(new CCollectingAppender(this)),
      m_levelBefore(m_logger.getLogLevel())
{
    m_logger.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    m_logger.addAppender(m_pAppender);
}

CDebugRecords::~CDebugRecords()
{
    m_logger.removeAppender(m_pAppender);
    m_logger.setLogLevel(m_levelBefore);
}

std::vector<CDebugRecords::CRecord> CDebugRecords::Get() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_records;
}

std::vector<std::string> CDebugRecords::GetTexts() const
{
    std::vector<std::string> texts;
    for (const CRecord& record : Get())
    {
        texts.push_back(record.m_strText);
    }
    return texts;
}

void CDebugRecords::Add(const CRecord& record)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_records.push_back(record);
    }
    if (m_fnOnRecord)
    {
        m_fnOnRecord();
    }
}
