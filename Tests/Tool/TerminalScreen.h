#ifndef OSPREY_TESTS_TERMINALSCREEN_H
#define OSPREY_TESTS_TERMINALSCREEN_H

#include <functional>
#include <string>
#include <vector>

#include "TempFolder.h"

// A real terminal, tmux on a socket of its own, in which the tool runs.
class CTerminalScreen
{
public:
    static bool IsInstalled();

    // Runs the tool in it; the screen stays when the tool has ended.
    CTerminalScreen(const std::vector<std::string>& listArguments, int nColumns);
    ~CTerminalScreen();
    CTerminalScreen(const CTerminalScreen&) = delete;
    CTerminalScreen& operator=(const CTerminalScreen&) = delete;

    void Resize(int nColumns) const;

    // The rows as they are shown, without blanks at their ends and empty ones at the end.
    std::vector<std::string> Rows() const;

    // Waits until the rows are as they should be; fails the test with what they are.
    bool WaitUntil(const std::string& strFor,
                   const std::function<bool(const std::vector<std::string>&)>& fnIs) const;

private:
    void Run(const std::string& strCommand, const std::string& strOutput = "/dev/null") const;

    CTempFolder m_folder;
};

#endif
