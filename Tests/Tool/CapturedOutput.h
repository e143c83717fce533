#ifndef OSPREY_TESTS_CAPTUREDOUTPUT_H
#define OSPREY_TESTS_CAPTUREDOUTPUT_H

#include <string>
#include <vector>

#include "Output.h"
#include "TempFolder.h"

// An output of the tool in this process, whose lines go to files. While it lives, so does what this
// process prints to standard error.
class CCapturedOutput
{
public:
    CCapturedOutput();
    ~CCapturedOutput();
    CCapturedOutput(const CCapturedOutput&) = delete;
    CCapturedOutput& operator=(const CCapturedOutput&) = delete;

    COutput& Output()
    {
        return m_output;
    }
    std::vector<std::string> Lines() const;
    std::vector<std::string> Errors() const;

private:
    CTempFolder m_folder;
    COutput m_output;
    int m_nErrorsBefore = -1;
};

#endif
