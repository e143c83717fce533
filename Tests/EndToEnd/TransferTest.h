#ifndef OSPREY_TESTS_TRANSFERTEST_H
#define OSPREY_TESTS_TRANSFERTEST_H

#include <gtest/gtest.h>

#include <memory>

#include "FileHost.h"
#include "LibOsprey.h"
#include "RecordingHost.h"
#include "TempFolder.h"

// A real server on a free port that serves a folder: "FILESUBMIT|root|a\b" is <folder>/root/a/b,
// any other name is <folder>/name.
class CTransferTest : public ::testing::Test
{
protected:
    CTransferTest();
    ~CTransferTest() override;

    void StartServer();
    // Ends every connection and the server with them.
    void EndServer();

    // Uploads files of the temp folder `m_local` with their paths below it; every one must arrive.
    void Upload(const std::vector<std::string>& names);
    // Downloads names of the server's folder to the same names below `m_local`.
    void Download(const std::vector<std::string>& names);

    std::string ServerPath(const std::string& strName) const
    {
        return m_served.GetPath("root/" + strName);
    }

    CTempFolder m_served;
    CTempFolder m_local;
    CRecordingHost m_host;
    IOspreyServer* m_pServer = nullptr;
    unsigned short m_wPort = 0;
};

#endif
