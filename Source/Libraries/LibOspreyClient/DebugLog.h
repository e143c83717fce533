#ifndef OSPREY_DEBUGLOG_H
#define OSPREY_DEBUGLOG_H

// Internal header. Debug records on the logger "Harbor.Libraries.LibOspreyClient". In a build
// without log4cplus (OSPREY_NO_LOG4CPLUS) there is the macro alone, and it does nothing.

#ifndef OSPREY_NO_LOG4CPLUS

#include <string>

// True when a record would reach somebody: the logger is enabled at DEBUG level and an appender is
// attached to it or to a parent. Without that second test a host that never heard of log4cplus
// would get its "no appenders" complaint on standard error. Does not throw.
bool DebugRecordsEnabled();

// Writes one record at DEBUG level. REQUIRES: DebugRecordsEnabled(). Does not throw.
void WriteDebugRecord(const std::string& strRecord, const char* pszFile, int nLine,
                      const char* pszFunction);

// Builds the text only when it will be written. `record` is what would follow `stream <<`;
// `function` is named as the one that writes it.
// clang-format off
#define OSPREY_DEBUG_RECORD_OF(function, record)                                        \
    do                                                                                  \
    {                                                                                   \
        if (DebugRecordsEnabled())                                                      \
        {                                                                               \
            CDebugText text;                                                            \
            text << record; /* NOLINT(bugprone-macro-parentheses): part of a chain */   \
            WriteDebugRecord(text, __FILE__, __LINE__, function);                       \
        }                                                                               \
    } while (false)
// clang-format on

// Text of a record put together piece by piece; empty when memory ran out.
class CDebugText
{
public:
    CDebugText& operator<<(const char* pszText);
    CDebugText& operator<<(const void* pAddress);
    CDebugText& operator<<(unsigned int dwNumber);
    operator const std::string&() const
    {
        return m_strText;
    }

private:
    std::string m_strText;
};

#else

// Still looked at by the compiler, so that a record cannot break one of the builds unnoticed.
class CDebugText
{
public:
    template <typename TPiece>
    CDebugText& operator<<(TPiece /*piece*/)
    {
        return *this;
    }
};

// clang-format off
#define OSPREY_DEBUG_RECORD_OF(function, record)                                        \
    do                                                                                  \
    {                                                                                   \
        if (false)                                                                      \
        {                                                                               \
            CDebugText text;                                                            \
            text << record; /* NOLINT(bugprone-macro-parentheses): part of a chain */   \
        }                                                                               \
    } while (false)
// clang-format on

#endif

#define OSPREY_DEBUG_RECORD(record) OSPREY_DEBUG_RECORD_OF(__PRETTY_FUNCTION__, record)

#endif
