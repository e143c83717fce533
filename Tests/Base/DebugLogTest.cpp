#include "DebugLog.h"

#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

#include <stdexcept>
#include <string>

#include "../Store/AllocationWatch.h"
#include "DebugRecords.h"

namespace
{

const char LOGGER[] = "Harbor.Libraries.LibOspreyClient";

class CThrowingAppender final : public log4cplus::Appender
{
public:
    ~CThrowingAppender() override
    {
        destructorImpl();
    }
    void close() override {}

    int m_nRecords = 0;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& /*event*/) override
    {
        ++m_nRecords;
        throw std::runtime_error("the disk of the records is full");
    }
};

TEST(DebugLog, AppenderThatThrowsHarmsNobody)
{
    const CDebugRecords enabled;
    log4cplus::Logger logger = log4cplus::Logger::getInstance(LOGGER);
    auto* pThrowing = new CThrowingAppender;
    const log4cplus::SharedAppenderPtr pAppender(pThrowing);
    logger.addAppender(pAppender);
    EXPECT_NO_THROW(WriteDebugRecord("lost", __FILE__, __LINE__, __func__));
    logger.removeAppender(pAppender);
    EXPECT_EQ(pThrowing->m_nRecords, 1);
    WriteDebugRecord("kept", __FILE__, __LINE__, __func__);
    EXPECT_EQ(enabled.GetTexts().back(), "kept");
}

// Without additivity what the parents' appenders take is none of this logger's records.
TEST(DebugLog, IsDisabledWhereNoAppenderIsReached)
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance(LOGGER);
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    const log4cplus::SharedAppenderPtr pAppender(new CThrowingAppender);
    const log4cplus::LogLevel levelBefore = logger.getLogLevel();
    logger.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    EXPECT_FALSE(DebugRecordsEnabled());
    root.addAppender(pAppender);
    EXPECT_TRUE(DebugRecordsEnabled());
    logger.setAdditivity(false);
    EXPECT_FALSE(DebugRecordsEnabled());
    logger.setAdditivity(true);
    root.removeAppender(pAppender);
    logger.setLogLevel(levelBefore);
}

TEST(DebugText, IsEmptyWhenMemoryRanOut)
{
    const std::string strLong(1000, 'x');
    CDebugText text;
    text << "begins";
    {
        const CNoMemory none;
        text << strLong.c_str();
    }
    EXPECT_EQ(static_cast<const std::string&>(text), "");
    text << "goes on " << 7U;
    EXPECT_EQ(static_cast<const std::string&>(text), "goes on 7");
}

}  // namespace
