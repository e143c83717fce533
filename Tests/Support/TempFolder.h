#ifndef OSPREY_TESTS_TEMPFOLDER_H
#define OSPREY_TESTS_TEMPFOLDER_H

#include <string>

// A folder of its own for a test, removed with everything in it.
class CTempFolder
{
public:
    CTempFolder();
    // Below another folder than the system's.
    explicit CTempFolder(const std::string& strParent);
    ~CTempFolder();
    CTempFolder(const CTempFolder&) = delete;
    CTempFolder& operator=(const CTempFolder&) = delete;

    const std::string& GetPath() const
    {
        return m_strPath;
    }
    // Path of an entry, which need not exist.
    std::string GetPath(const std::string& strName) const
    {
        return m_strPath + "/" + strName;
    }
    // Creates the file; returns its path.
    std::string WriteFile(const std::string& strName, const std::string& strContents) const;

private:
    std::string m_strPath;
};

bool FileExists(const std::string& strPath);
// Contents of a file; fails the test when it cannot be read.
std::string ReadFile(const std::string& strPath);

#endif
