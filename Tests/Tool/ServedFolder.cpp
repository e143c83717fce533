#include "ServedFolder.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>

#include "WireRecords.h"

CServedFolder::CServedFolder(const std::vector<std::string>& listOptions)
{
    std::filesystem::create_directory(GetRoot());
    std::vector<std::string> listArguments = {"serve",  "--root", GetRoot(),
                                              "--port", "0",      "--json"};
    listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
    m_pTool = std::make_unique<CToolProcess>(listArguments);
    const CEvent event = m_pTool->WaitForEvent("listening");
    m_wPort = event.IsNull() ? static_cast<unsigned short>(0) : event["port"].As<unsigned short>();
}

std::vector<std::string> CServedFolder::List() const
{
    return ListFolder(GetRoot());
}

CRawSocket CServedFolder::ConnectUnnamed() const
{
    CRawSocket peer;
    EXPECT_TRUE(peer.Connect(m_wPort));
    peer.Send(Wire::Brow());
    return peer;
}

CRawSocket CServedFolder::Connect(const std::u16string& strName)
{
    CRawSocket peer = ConnectUnnamed();
    peer.Send(Wire::Namc(1, strName));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    m_pTool->WaitForEvent("connected");
    return peer;
}

int CServedFolder::Stop()
{
    m_pTool->Signal(SIGINT);
    return m_pTool->Wait();
}

std::vector<std::string> ListFolder(const std::string& strPath)
{
    std::vector<std::string> listNames;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(strPath))
    {
        const bool bFolder = !entry.is_symlink() && entry.is_directory();
        listNames.push_back(entry.path().lexically_relative(strPath).string() +
                            (bFolder ? "/" : ""));
    }
    std::sort(listNames.begin(), listNames.end());
    return listNames;
}

std::vector<std::string> ListVisible(const std::string& strPath)
{
    std::vector<std::string> listNames = ListFolder(strPath);
    listNames.erase(std::remove_if(listNames.begin(), listNames.end(),
                                   [](const std::string& strName)
                                   { return strName.find(".osprey-") != std::string::npos; }),
                    listNames.end());
    return listNames;
}
