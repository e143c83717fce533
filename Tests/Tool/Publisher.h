#ifndef OSPREY_TESTS_PUBLISHER_H
#define OSPREY_TESTS_PUBLISHER_H

#include <string>
#include <vector>

#include "ToolProcess.h"

// The real publisher, telling its events as JSON. It ends with a signal only, unless the arguments
// say how long it lingers.
class CPublisher
{
public:
    // wPort: 0: one that was free. strInput: file for its standard input.
    explicit CPublisher(const std::vector<std::string>& listArguments, unsigned short wPort = 0,
                        const std::string& strInput = "/dev/null");

    CToolProcess& Tool()
    {
        return m_tool;
    }
    unsigned short GetPort() const
    {
        return m_wPort;
    }
    // "127.0.0.1:PORT".
    std::string GetPeer() const
    {
        return "127.0.0.1:" + std::to_string(m_wPort);
    }
    // The port that the UDP source of a channel listens on.
    unsigned short GetUdpPort(unsigned int dwChannel) const;

    // Ends it with a signal; returns its exit code.
    int Stop();

private:
    CToolProcess m_tool;
    unsigned short m_wPort = 0;
};

#endif
