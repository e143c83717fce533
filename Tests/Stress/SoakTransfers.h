#ifndef OSPREY_TESTS_SOAKTRANSFERS_H
#define OSPREY_TESTS_SOAKTRANSFERS_H

#include <string>
#include <vector>

#include "FileHost.h"
#include "Soak.h"

// One participant who sends files and a directory up with the real client, looks at them where the
// server stored them, fetches them back with the other client, and has them deleted; again and
// again until the stop.
class CSoakTransfers
{
public:
    // The name begins the names of its files.
    CSoakTransfers(CSoak& soak, const std::string& strName, unsigned int dwSeed);

    void Run();

private:
    void MakeFiles();
    bool TryUpload();
    bool TryDownload();
    bool TryDelete();
    void RemoveHere();
    void ExpectServed(size_t nFiles) const;

    CSoak& m_soak;
    std::string m_strName;
    CDice m_dice;
    unsigned int m_dwNext = 0;         // number of the next file
    std::vector<std::string> m_names;  // of the files at hand ...
    std::vector<std::string> m_contents;
    std::string m_strDirectory;  // ... and of the directory that goes up behind them, if any
};

#endif
