#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

namespace
{

// Names in the dynamic symbol table that the library itself defines.
std::set<std::string> ReadExports()
{
    std::set<std::string> names;
    FILE* pPipe = popen("nm -D --defined-only -C '" OSPREY_CLIENT_LIBRARY "'", "r");
    char szLine[4096];
    while (pPipe != nullptr && fgets(szLine, sizeof szLine, pPipe) != nullptr)
    {
        // "<address> <type> <name>[@@<version>]"
        std::string strName(szLine);
        strName.erase(strName.find_last_not_of('\n') + 1);
        strName.erase(0, 19);
        names.insert(strName.substr(0, strName.find('@')));
    }
    EXPECT_EQ(pclose(pPipe), 0);
    return names;
}

const char* const INTERFACES[] = {
    "IOspreyServer",           "IOspreyServerCallback",
    "IOspreyProgress",         "IFileClientCallback",
    "ISubmitFileClient",       "ISubmitFileClientCallback",
    "IDownloadFileClient",     "IDownloadFileClientCallback",
    "IWXSPChannelClient",      "IWXSPChannelClientCallback",
    "IOspreyConnectionFilter", "IOspreyTransferObserver",
};

TEST(ExportedSymbols, AreTheFunctionsAndTheTypesOfTheInterfaces)
{
    std::set<std::string> allowed = {"OSPREY_1"};
    std::set<std::string> required = {
        "CreateOspreyServer(IOspreyServerCallback*)",
        "CreateSubmitFileClient(ISubmitFileClientCallback*)",
        "CreateDownloadFileClient(IDownloadFileClientCallback*)",
        "CreateWXSPChannelClient(IWXSPChannelClientCallback*, unsigned int)",
    };
    for (const char* pszInterface : INTERFACES)
    {
        allowed.insert(std::string("typeinfo for ") + pszInterface);
        allowed.insert(std::string("typeinfo name for ") + pszInterface);
    }
    bool bVersion = false;
    for (const std::string& strName : ReadExports())
    {
        if (strName.rfind("OrbComponent::GetVerisonString", 0) == 0)
        {
            bVersion = true;  // followed by the ABI tag of its result
            continue;
        }
        EXPECT_TRUE(required.erase(strName) == 1 || allowed.count(strName) == 1) << strName;
    }
    EXPECT_TRUE(bVersion);
    EXPECT_TRUE(required.empty()) << *required.begin();
}

}  // namespace
