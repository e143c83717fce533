#include "Publisher.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>

namespace
{

// By itself it would end a second after its sources, when a slow reader may not have everything
// yet.
std::vector<std::string> Arguments(const std::vector<std::string>& listArguments,
                                   unsigned short wPort)
{
    std::vector<std::string> listAll = {"publish", "--json", "--port", std::to_string(wPort)};
    if (std::find(listArguments.begin(), listArguments.end(), "--linger") == listArguments.end())
    {
        listAll.insert(listAll.end(), {"--linger", "3600"});
    }
    listAll.insert(listAll.end(), listArguments.begin(), listArguments.end());
    return listAll;
}

}  // namespace

CPublisher::CPublisher(const std::vector<std::string>& listArguments, unsigned short wPort,
                       const std::string& strInput)
    : m_tool(Arguments(listArguments, wPort), 0, std::string(), strInput)
{
    const CEvent event = m_tool.WaitForEvent("listening");
    m_wPort = event.IsNull() ? static_cast<unsigned short>(0) : event["port"].As<unsigned short>();
}

unsigned short CPublisher::GetUdpPort(unsigned int dwChannel) const
{
    for (const CEvent& event : m_tool.GetEvents())
    {
        if (event["event"] == "source" && event["channel"] == dwChannel)
        {
            // "udp:ADDR:PORT", then perhaps an interface or a sender.
            const std::string strSource = event["source"].As<std::string>();
            return static_cast<unsigned short>(
                std::stoi(strSource.substr(strSource.find(':', 4) + 1)));
        }
    }
    ADD_FAILURE() << "channel " << dwChannel << " has no source";
    return 0;
}

int CPublisher::Stop()
{
    m_tool.Signal(SIGINT);
    return m_tool.Wait();
}
