#ifndef OSPREY_TOOL_PROGRESSBAR_H
#define OSPREY_TOOL_PROGRESSBAR_H

#include <string>

// What a bar shows.
struct CBar
{
    std::string m_strLabel;        // printable, as PlainText gives it
    unsigned int m_dwPercent = 0;  // 0 to 100
    std::string m_strRate;         // as FormatRate gives it; may be empty
    std::string m_strLeft;         // as FormatDuration gives it; may be empty
    bool m_bStalled = false;       // nothing moves: said in the place of the rate
};

// A bar on one line of at most nColumns columns:
//
//   photos/a.jpg      [##########..............]  42%    12.3 MiB/s     0:07
//
// Where room is short, the time left goes first, then the rate, then the bar itself; the label
// keeps its end, and the percentage stays to the last. "stalled" stands for it where there is no
// rate.
std::string RenderBar(const CBar& bar, int nColumns);

// done of total in percent, 0 to 100; 100 only when all is done. An empty total is done.
unsigned int Percent(unsigned long long ullDone, unsigned long long ullTotal);

#endif
