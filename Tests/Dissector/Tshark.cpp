#include "Tshark.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "TempFolder.h"

namespace
{

std::string Quoted(const std::string& strText)
{
    return "'" + strText + "'";
}

std::string Output(const std::string& strCommand, int& nStatus)
{
    std::string strOutput;
    FILE* pPipe = popen(strCommand.c_str(), "r");
    if (pPipe == nullptr)
    {
        ADD_FAILURE() << "cannot start: " << strCommand;
        return strOutput;
    }
    std::array<char, 65536> szPart;
    for (size_t n = 0; (n = fread(szPart.data(), 1, szPart.size(), pPipe)) > 0;)
    {
        strOutput.append(szPart.data(), n);
    }
    nStatus = pclose(pPipe);
    return strOutput;
}

}  // namespace

std::string RunTshark(const std::string& strCapture, const std::vector<std::string>& listOptions)
{
    CTempFolder home;
    const std::string strFile = home.WriteFile("capture.pcap", strCapture);
    // Two passes: a request then knows its reply. Sequence numbers and zone as in every other run.
    std::string strCommand =
        "HOME=" + Quoted(home.GetPath()) +
        " XDG_CONFIG_HOME= " + "WIRESHARK_RUN_FROM_BUILD_DIRECTORY= LC_ALL=C.UTF-8 TZ=UTC " +
        "tshark -2 -n -X lua_script:" + Quoted(OSPREY_DISSECTOR) + " -r " + Quoted(strFile);
    for (const std::string& strOption : listOptions)
    {
        strCommand += " " + Quoted(strOption);
    }
    int nStatus = -1;
    std::string strOutput = Output(strCommand + " 2>&1", nStatus);
    EXPECT_EQ(nStatus, 0) << strOutput.substr(0, 4000);
    // What it says whenever root runs it.
    const std::string strRoot =
        "Running as user \"root\" and group \"root\". This could be dangerous.\n";
    if (strOutput.compare(0, strRoot.size(), strRoot) == 0)
    {
        strOutput.erase(0, strRoot.size());
    }
    return strOutput;
}

bool IsTsharkInstalled()
{
    int nStatus = -1;
    Output("tshark --version 2>&1", nStatus);
    return nStatus == 0;
}
