#include "EventLines.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

bool CEventLines::CanJudge()
{
    return system("python3 -c 'import jsonschema' >/dev/null 2>&1") == 0;
}

void CEventLines::AddOutput(const std::string& strCommand, const std::string& strOutput)
{
    ASSERT_TRUE(strOutput.empty() || strOutput.back() == '\n') << strOutput;
    std::istringstream lines(strOutput);
    for (std::string strLine; std::getline(lines, strLine);)
    {
        EXPECT_FALSE(CEvent::Parse(strLine).IsNull()) << strCommand << " printed " << strLine;
        Add(strCommand, strLine);
    }
}

std::string CEventLines::Faults() const
{
    return Judge(false);
}

std::string CEventLines::Unseen() const
{
    return Judge(true);
}

std::string CEventLines::Judge(bool bUnseen) const
{
    const CTempFolder folder;
    folder.WriteFile("lines", m_strLines);
    const std::string strCommand = "'" OSPREY_VALIDATE_EVENTS "' '" OSPREY_EVENTS_SCHEMA "' <'" +
                                   folder.GetPath("lines") + "' >'" + folder.GetPath("out") + "'";
    EXPECT_EQ(system(strCommand.c_str()), 0) << strCommand;
    std::istringstream lines(ReadFile(folder.GetPath("out")));
    std::string strResult;
    for (std::string strLine; std::getline(lines, strLine);)
    {
        strResult += (strLine.compare(0, 7, "unseen:") == 0) == bUnseen ? strLine + "\n" : "";
    }
    return strResult;
}
