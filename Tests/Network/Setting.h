#ifndef OSPREY_TESTS_SETTING_H
#define OSPREY_TESTS_SETTING_H

#include <string>
#include <vector>

// One run: what goes over the link, and what the link does.
//
//   upload delay=10 loss=5 cut=20
struct CSetting
{
    // Reads the words; false when one is not understood.
    bool Parse(const std::vector<std::string>& words);
    // The link's faults besides delay, loss and cut: "reorder=25", "-" without any.
    std::string GetOthers() const;
    bool IsCut() const
    {
        return m_nCutSeconds != 0;
    }
    // The link does not come back.
    bool IsForGood() const
    {
        return m_nCutSeconds < 0;
    }
    // Longer than any transfer must survive: one side may give the other up.
    bool MayBreak() const
    {
        return IsForGood() || m_nCutSeconds > 5;
    }

    std::string m_strKind;  // upload, download, channel; uploads, downloads: many files
    int m_nDelayMs = 0;     // one way
    int m_nJitterMs = 0;
    int m_nLoss = 0;  // this and the next three in percent
    int m_nReorder = 0;
    int m_nDuplicate = 0;
    int m_nCorrupt = 0;
    int m_nCutSeconds = 0;   // in the middle of the run; -1: for good
    int m_nRateKbit = 4000;  // so that a transfer takes seconds
    int m_nBytes = 1000003;  // of a file
    int m_nFiles = 50;       // of many: for each connection
    int m_nSeed = 1;
    int m_nSlackSeconds = 0;  // by which packets may be back later: the machine has others to serve
};

#endif
