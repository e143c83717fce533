#ifndef OSPREY_TESTS_WATCHED_H
#define OSPREY_TESTS_WATCHED_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

// A condition over something that other threads change, and a deadline.
class CWatched
{
public:
    // Waits until the condition, looked at under the lock, holds; else fails the test with strFor.
    bool WaitFor(const std::string& strFor, const std::function<bool()>& fnCondition) const;
    // Runs under the lock.
    void Look(const std::function<void()>& fnLook) const;

protected:
    void Change(const std::function<void()>& fnChange);

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
};

#endif
