#include "DebugLog.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <cstdio>
#include <exception>

namespace
{

const char LOGGER_NAME[] = "Harbor.Libraries.LibOspreyClient";

bool ReachesAnAppender(log4cplus::Logger logger)
{
    while (logger.getAllAppenders().empty())
    {
        if (logger.getName() == "root" || !logger.getAdditivity())
        {
            return false;
        }
        logger = logger.getParent();
    }
    return true;
}

}  // namespace

bool DebugRecordsEnabled()
{
    try
    {
        const log4cplus::Logger logger = log4cplus::Logger::getInstance(LOGGER_NAME);
        return logger.isEnabledFor(log4cplus::DEBUG_LOG_LEVEL) && ReachesAnAppender(logger);
    }
    catch (const std::exception&)
    {
        return false;
    }
}

void WriteDebugRecord(const std::string& strRecord, const char* pszFile, int nLine,
                      const char* pszFunction)
{
    try
    {
        log4cplus::Logger::getInstance(LOGGER_NAME)
            .forcedLog(log4cplus::DEBUG_LOG_LEVEL, strRecord, pszFile, nLine, pszFunction);
    }
    catch (const std::exception&)
    {
        // A record is worth less than the connection that it speaks of.
        return;
    }
}

CDebugText& CDebugText::operator<<(const char* pszText)
{
    try
    {
        m_strText += pszText;
    }
    catch (const std::exception&)
    {
        m_strText.clear();
    }
    return *this;
}

CDebugText& CDebugText::operator<<(const void* pAddress)
{
    char szText[32];
    snprintf(szText, sizeof szText, "%p", pAddress);
    return *this << szText;
}

CDebugText& CDebugText::operator<<(unsigned int dwNumber)
{
    char szText[16];
    snprintf(szText, sizeof szText, "%u", dwNumber);
    return *this << szText;
}
