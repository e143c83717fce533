#ifndef OSPREY_TOOLS_COMMANDS_H
#define OSPREY_TOOLS_COMMANDS_H

#include <string>

#include "Cuts.h"
#include "Direction.h"
#include "LinkSettings.h"

// Obeys a line such as "delay 100", "cut", "cut 2.5" or "join". Returns false, and changes nothing,
// when it is no such command.
bool Obey(const std::string& strLine, CCuts::CTime now, CLinkSettings& settings, CCuts& cuts);

// "10:2.5", from 10 seconds after the start for 2.5 seconds; "10": from then on for good. Returns
// false, and changes nothing, when it is not that.
bool AddCut(const std::string& strText, CCuts::CTime timeStart, CCuts& cuts);
bool IsCutText(const std::string& strText);

// A line that tells what became of the packets of a direction.
std::string CountersLine(const std::string& strName, const CCounters& counters);

#endif
