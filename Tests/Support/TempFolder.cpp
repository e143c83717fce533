#include "TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

CTempFolder::CTempFolder() : CTempFolder(std::filesystem::temp_directory_path().string()) {}

CTempFolder::CTempFolder(const std::string& strParent)
{
    std::string strTemplate = strParent + "/osprey-test-XXXXXX";
    EXPECT_NE(mkdtemp(strTemplate.data()), nullptr);
    m_strPath = strTemplate;
}

CTempFolder::~CTempFolder()
{
    std::error_code error;
    std::filesystem::remove_all(m_strPath, error);
    EXPECT_FALSE(error) << m_strPath << ": " << error.message();
}

std::string CTempFolder::WriteFile(const std::string& strName, const std::string& strContents) const
{
    std::string strPath = GetPath(strName);
    std::ofstream file(strPath, std::ios::binary);
    file << strContents;
    file.close();
    EXPECT_TRUE(file.good()) << strPath;
    return strPath;
}

bool FileExists(const std::string& strPath)
{
    std::error_code error;
    return std::filesystem::exists(strPath, error);
}

std::string ReadFile(const std::string& strPath)
{
    std::ifstream file(strPath, std::ios::binary);
    EXPECT_TRUE(file.good()) << strPath;
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}
