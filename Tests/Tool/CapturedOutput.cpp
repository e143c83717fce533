#include "CapturedOutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

namespace
{

// What the descriptor was before.
int Divert(int nDescriptor, const std::string& strFile)
{
    const int nBefore = fcntl(nDescriptor, F_DUPFD_CLOEXEC, 3);
    const int nFile = open(strFile.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    dup2(nFile, nDescriptor);
    close(nFile);
    return nBefore;
}

void Restore(int nDescriptor, int nBefore)
{
    dup2(nBefore, nDescriptor);
    close(nBefore);
}

std::vector<std::string> LinesOf(const std::string& strFile)
{
    std::istringstream text(ReadFile(strFile));
    std::vector<std::string> listLines;
    for (std::string strLine; std::getline(text, strLine);)
    {
        listLines.push_back(strLine);
    }
    return listLines;
}

}  // namespace

CCapturedOutput::CCapturedOutput()
{
    fflush(stdout);
    const int nOutput = Divert(STDOUT_FILENO, m_folder.GetPath("out"));
    m_output.TakeStandardOutput();
    Restore(STDOUT_FILENO, nOutput);
    m_nErrorsBefore = Divert(STDERR_FILENO, m_folder.GetPath("err"));
}

CCapturedOutput::~CCapturedOutput()
{
    Restore(STDERR_FILENO, m_nErrorsBefore);
}

std::vector<std::string> CCapturedOutput::Lines() const
{
    return LinesOf(m_folder.GetPath("out"));
}

std::vector<std::string> CCapturedOutput::Errors() const
{
    return LinesOf(m_folder.GetPath("err"));
}
