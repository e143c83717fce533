#ifndef OSPREY_TESTS_EVENTS_H
#define OSPREY_TESTS_EVENTS_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>

typedef std::chrono::steady_clock::time_point CTime;

inline CTime Now()
{
    return std::chrono::steady_clock::now();
}

inline double SecondsBetween(CTime from, CTime to)
{
    return std::chrono::duration<double>(to - from).count();
}

// What the hosts of both sides were told, and when.
//
// Thread: any.
class CEvents
{
public:
    void Add(const std::string& strEvent);
    // Waits until the condition holds, which may look at these events; false at the deadline. A
    // condition over anything else is looked at ten times a second.
    bool WaitUntil(CTime deadline, const std::function<bool()>& fnCondition);

    int Count(const std::string& strEvent) const;
    bool Has(const std::string& strEvent) const
    {
        return Count(strEvent) > 0;
    }
    // When it came first. REQUIRES: it came.
    CTime GetTime(const std::string& strEvent) const;
    // The first event that begins so, "" without one.
    std::string Find(const std::string& strBegin) const;

private:
    struct CEvent
    {
        int m_nCount = 0;
        CTime m_timeFirst;
    };

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, CEvent> m_events;
};

#endif
