#ifndef OSPREY_TESTS_DEBUGRECORDS_H
#define OSPREY_TESTS_DEBUGRECORDS_H

#include <log4cplus/logger.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

// Collects the library's debug records while it exists.
//
// Thread: records come from any; the rest is the test's.
class CDebugRecords
{
public:
    struct CRecord
    {
        std::string m_strText;
        std::string m_strFile;
        std::string m_strFunction;
    };

    CDebugRecords();
    ~CDebugRecords();
    CDebugRecords(const CDebugRecords&) = delete;
    CDebugRecords& operator=(const CDebugRecords&) = delete;

    std::vector<CRecord> Get() const;
    std::vector<std::string> GetTexts() const;
    // Called on the thread that writes a record, while it does.
    void Add(const CRecord& record);

    // To be set while nobody writes.
    std::function<void()> m_fnOnRecord;

private:
    log4cplus::Logger m_logger;
    log4cplus::SharedAppenderPtr m_pAppender;
    log4cplus::LogLevel m_levelBefore;
    mutable std::mutex m_mutex;
    std::vector<CRecord> m_records;
};

#endif
