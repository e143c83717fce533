#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>

namespace
{

// A host's translation unit that includes nothing but one public header.
class CPublicHeaders : public ::testing::TestWithParam<std::tuple<const char*, const char*>>
{
};
using PublicHeaders = CPublicHeaders;

TEST_P(PublicHeaders, CompileAlone)
{
    const std::string strCommand =
        std::string("echo '#include \"") + std::get<0>(GetParam()) + "\"' | '" + OSPREY_COMPILER +
        "' -x c++ -std=" + std::get<1>(GetParam()) +
        " -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Werror"
        " -I '" OSPREY_CLIENT_DIR "' -";
    EXPECT_EQ(system(strCommand.c_str()), 0) << strCommand;
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, PublicHeaders,
    ::testing::Combine(::testing::Values("LibOsprey.h", "OspreyChannelClient.h", "OspreyClient.h",
                                         "OspreyExport.h", "OspreyServer.h", "OspreyTypes.h",
                                         "versionx.h"),
                       ::testing::Values("c++11", "c++17")),
    [](const auto& test)
    {
        const std::string strHeader = std::get<0>(test.param);
        const std::string strStandard = std::get<1>(test.param);
        return strHeader.substr(0, strHeader.find('.')) + "AsCxx" + strStandard.substr(3);
    });

}  // namespace
