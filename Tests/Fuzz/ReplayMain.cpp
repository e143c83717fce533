// Stands in for libFuzzer where a build has none: runs every file of a corpus through the target.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FuzzInput.h"

namespace
{

std::vector<std::filesystem::path> ListFiles(const char* pszFolder)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(pszFolder))
    {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

void Replay(const std::filesystem::path& file)
{
    // The last line of a test that aborts names the input.
    fprintf(stderr, "%s\n", file.c_str());
    std::ifstream stream(file, std::ios::binary);
    const std::string strInput(std::istreambuf_iterator<char>(stream), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(strInput.data()), strInput.size());
}

}  // namespace

int main(int nArguments, char* pszArguments[])
{
    if (nArguments != 2)
    {
        fprintf(stderr, "usage: %s FOLDER\n", pszArguments[0]);
        return 2;
    }
    const std::vector<std::filesystem::path> files = ListFiles(pszArguments[1]);
    for (const std::filesystem::path& file : files)
    {
        Replay(file);
    }
    fprintf(stderr, "%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}
