#ifndef OSPREY_TOOL_DESCRIPTOR_H
#define OSPREY_TOOL_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

// Owns a file descriptor, or none.
class CDescriptor final
{
public:
    explicit CDescriptor(int nDescriptor = -1) : m_nDescriptor(nDescriptor) {}
    ~CDescriptor()
    {
        Close();
    }
    CDescriptor(CDescriptor&& other) noexcept
        : m_nDescriptor(std::exchange(other.m_nDescriptor, -1))
    {
    }
    CDescriptor& operator=(CDescriptor&& other) noexcept
    {
        std::swap(m_nDescriptor, other.m_nDescriptor);
        other.Close();
        return *this;
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    bool IsValid() const
    {
        return m_nDescriptor >= 0;
    }
    int Get() const
    {
        return m_nDescriptor;
    }
    // Gives it away: the caller closes it.
    int Release()
    {
        return std::exchange(m_nDescriptor, -1);
    }
    // Keeps errno.
    void Close()
    {
        if (m_nDescriptor >= 0)
        {
            const int nError = errno;
            close(std::exchange(m_nDescriptor, -1));
            errno = nError;
        }
    }
    // A path under which everybody in this process finds the very same file, wherever it stands.
    std::string Path() const
    {
        return "/proc/self/fd/" + std::to_string(m_nDescriptor);
    }

private:
    int m_nDescriptor;
};

#endif
