#ifndef OSPREY_TESTS_FOLDER_H
#define OSPREY_TESTS_FOLDER_H

#include <string>

// A folder for what a run moves, usually "near" and "far"; removed with everything in it.
class CFolder
{
public:
    CFolder();
    ~CFolder();
    CFolder(const CFolder&) = delete;
    CFolder& operator=(const CFolder&) = delete;

    std::string Get(const std::string& strName) const
    {
        return m_strPath + "/" + strName;
    }

private:
    std::string m_strPath;
};

std::string RandomBytes(int nBytes, int nSeed);

std::string Contents(const std::string& strPath);

#endif
