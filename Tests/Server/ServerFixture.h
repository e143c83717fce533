#ifndef OSPREY_TESTS_SERVERFIXTURE_H
#define OSPREY_TESTS_SERVERFIXTURE_H

// A running server on a free port, its host, and peers that speak to it byte by byte.

#include <gtest/gtest.h>

#include <string>

#include "Hex.h"
#include "LibOsprey.h"
#include "RawSocket.h"
#include "RecordingHost.h"
#include "TempFolder.h"
#include "TestClock.h"
#include "WireRecords.h"

std::u16string Widen(const std::string& strASCII);

class CServerTest : public ::testing::Test
{
protected:
    // Paths of peers are used as they come unless the host maps them.
    CServerTest();
    ~CServerTest() override;

    void Start();
    // Ends every connection, stops the worker and deletes the server.
    void Stop();
    // A connection that nothing was sent on.
    CRawSocket Connect() const;
    // One that browses.
    CRawSocket Browse() const;
    // One that browses and has a name.
    CRawSocket Named(const std::u16string& strName) const;
    // Sends a request and expects this reply, but for the version word.
    void Exchange(CRawSocket& peer, const std::string& strRequest,
                  const std::string& strReply) const;
    // Fails the test unless requests are still answered on the connection.
    void ExpectAlive(CRawSocket& peer) const;
    // Fails the test unless the connection was refused: half-closed, and nothing before that.
    static void ExpectRefused(CRawSocket& peer);
    // The task of the connection that was named last.
    long GetTask() const;

    CTempFolder m_folder;
    CRecordingHost m_host;
    IOspreyServer* m_pServer;
    unsigned short m_wPort = 0;
};

// The same with a clock that stands still: nobody is silent for too long, however slow the machine.
class CUntimedServerTest : public CServerTest
{
protected:
    ~CUntimedServerTest() override
    {
        Stop();  // before its clock goes
    }

    CTestClock m_clock;
};

#endif
