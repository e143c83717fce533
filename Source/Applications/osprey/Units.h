#ifndef OSPREY_TOOL_UNITS_H
#define OSPREY_TOOL_UNITS_H

#include <string>
#include <vector>

#include "LibOsprey.h"

// Sizes, rates and times as people read them.

// "0 B", "999 B", "1.0 KiB", "256.0 MiB", "1023.9 GiB", "16.0 EiB"; at most 10 characters.
std::string FormatBytes(Orb_U64 ullBytes);

// "500", "500K", "10M", "2G", "1T", of either case and also as "10MiB": units of 1024. False for
// anything else, and for more than 64 bits hold.
bool ParseSize(const std::string& strText, Orb_U64& ullBytes);

// "12.3 MiB/s"; at most 12 characters. Empty when nothing moved, or the time is too short to tell.
std::string FormatRate(Orb_U64 ullBytes, double dSeconds);

// "0:07", "12:34", "1:02:03", "5d 03h"; at most 8 characters, "--:--" when unknown (negative).
std::string FormatDuration(double dSeconds);

// "0.3 ms", "250 ms", "1.5 s", "2:05": the time that something took.
std::string FormatTaken(double dSeconds);

// "1 file", "2 files".
std::string FormatCount(Orb_U64 ullCount, const char* pszThing);

// "channel 1", "channels 1, 2".
std::string FormatChannels(const std::vector<Orb_U32>& listChannels);

#endif
