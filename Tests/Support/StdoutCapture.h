#ifndef OSPREY_TESTS_STDOUTCAPTURE_H
#define OSPREY_TESTS_STDOUTCAPTURE_H

#include <cstdio>
#include <string>

// Collects what the process prints to standard output while it exists. Later output goes where it
// went before.
class CStdoutCapture
{
public:
    CStdoutCapture();
    ~CStdoutCapture();
    CStdoutCapture(const CStdoutCapture&) = delete;
    CStdoutCapture& operator=(const CStdoutCapture&) = delete;

    // Everything printed since construction.
    std::string GetText() const;
    // How often a text, usually a whole line with its ends, occurs in it.
    int Count(const std::string& strText) const;

private:
    FILE* m_pFile;
    int m_hOriginal;
};

#endif
