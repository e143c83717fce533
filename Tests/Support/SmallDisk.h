#ifndef OSPREY_TESTS_SMALLDISK_H
#define OSPREY_TESTS_SMALLDISK_H

#include <functional>
#include <string>

// Runs the body on a thread of its own that sees small disks where everybody else sees none; what
// it starts sees them too. Without the right to that, runs this test again as a process that has
// it. Returns why it could not, empty when it could.
std::string RunWithSmallDisks(const std::function<void()>& fnBody);

// A disk of so many bytes over a folder, for the length of a block inside of that.
class CSmallDisk
{
public:
    CSmallDisk(const std::string& strFolder, size_t nSize);
    ~CSmallDisk();
    CSmallDisk(const CSmallDisk&) = delete;
    CSmallDisk& operator=(const CSmallDisk&) = delete;

private:
    const std::string m_strFolder;
};

#endif
