#include "TerminalScreen.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <cstdlib>
#include <sstream>

#include "RawSocket.h"

bool CTerminalScreen::IsInstalled()
{
    return system("tmux -V >/dev/null 2>&1") == 0;
}

namespace
{

const int ROWS = 12;

}  // namespace

CTerminalScreen::CTerminalScreen(const std::vector<std::string>& listArguments, int nColumns)
{
    std::string strScript = "'" OSPREY_TOOL "'";
    for (const std::string& strArgument : listArguments)
    {
        strScript += " '" + strArgument + "'";
    }
    // Whoever runs the tests has options of his own, perhaps; the screen is looked at afterwards.
    const std::string strPath =
        m_folder.WriteFile("script", "exec 9>'" + m_folder.GetPath("running") +
                                         "'\nflock 9\nexport OSPREY_CONFIG=/dev/null\n" +
                                         strScript + "\nexec sleep 3600\n");
    Run("new-session -d -x " + std::to_string(nColumns) + " -y " + std::to_string(ROWS) + " 'sh " +
        strPath + "' ';' set -g status off");
}

CTerminalScreen::~CTerminalScreen()
{
    Run("kill-server");
    // The tool ends a moment later, and cleans up in folders of the test: it has the lock until
    // then.
    const std::string strWait = "flock -w 30 '" + m_folder.GetPath("running") + "' true";
    EXPECT_EQ(system(strWait.c_str()), 0);
    // It removes its socket a moment later, which must not be amid the removal of the folder.
    const std::string strAsk =
        "tmux -S '" + m_folder.GetPath("socket") + "' has-session >/dev/null 2>&1";
    for (int i = 0; i < 250 && system(strAsk.c_str()) == 0; ++i)
    {
        poll(nullptr, 0, 20);
    }
}

void CTerminalScreen::Run(const std::string& strCommand, const std::string& strOutput) const
{
    const std::string strLine = "TMUX= LC_ALL=C.UTF-8 tmux -f /dev/null -S '" +
                                m_folder.GetPath("socket") + "' " + strCommand + " >'" + strOutput +
                                "' </dev/null";
    EXPECT_EQ(system(strLine.c_str()), 0) << strLine;
}

void CTerminalScreen::Resize(int nColumns) const
{
    Run("resize-window -x " + std::to_string(nColumns));
}

std::vector<std::string> CTerminalScreen::Rows() const
{
    const std::string strFile = m_folder.GetPath("screen");
    Run("capture-pane -p", strFile);
    std::istringstream text(ReadFile(strFile));
    std::vector<std::string> listRows;
    for (std::string strRow; std::getline(text, strRow);)
    {
        listRows.push_back(strRow.substr(0, strRow.find_last_not_of(' ') + 1));
    }
    while (!listRows.empty() && listRows.back().empty())
    {
        listRows.pop_back();
    }
    return listRows;
}

bool CTerminalScreen::WaitUntil(
    const std::string& strFor,
    const std::function<bool(const std::vector<std::string>&)>& fnIs) const
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(WAIT_MS);
    std::vector<std::string> listRows = Rows();
    while (!fnIs(listRows))
    {
        if (std::chrono::steady_clock::now() > deadline || testing::Test::HasFailure())
        {
            ADD_FAILURE() << "waited for " << strFor << "; the screen shows\n"
                          << testing::PrintToString(listRows);
            return false;
        }
        poll(nullptr, 0, 20);
        listRows = Rows();
    }
    return true;
}
