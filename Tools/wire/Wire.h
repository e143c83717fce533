#ifndef OSPREY_TOOLS_WIRE_H
#define OSPREY_TOOLS_WIRE_H

#include <signal.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Cuts.h"
#include "Direction.h"
#include "TunDevice.h"

struct CWireOptions
{
    CLinkSettings m_settings;
    std::string m_strNear;
    std::string m_strFar;
    std::string m_strNearAddress = "10.77.0.1/24";
    std::string m_strFarAddress = "10.77.0.2/24";
    std::vector<std::string> m_cuts;
    std::uint64_t m_ullSeed = 1;
    bool m_bEndWithInput = false;
};

// The cable between two devices. Obeys lines on standard input and answers each with one line on
// standard output.
//
// Thread: one.
// Errors: throws std::runtime_error, with what the machine refused.
class CWire
{
public:
    explicit CWire(const CWireOptions& options);

    // Until SIGINT, SIGTERM, the command "quit" or, if asked for, the end of the input.
    void Run();
    void PrintCounters() const;

private:
    typedef std::chrono::steady_clock::time_point CTime;

    void Wait(const sigset_t& signals);
    void Move(const CTunDevice& from, const CTunDevice& to, CDirection& direction);
    void CheckCuts();
    void ReadInput();
    void ObeyLine(const std::string& strLine);

    CLinkSettings m_settings;
    CTunDevice m_deviceNear;
    CTunDevice m_deviceFar;
    CDirection m_there;
    CDirection m_back;
    CCuts m_cuts;
    bool m_bCut = false;
    bool m_bInput = true;
    bool m_bEndWithInput;
    bool m_bEnd = false;
    std::string m_strInput;
    std::string m_strPacket;
};

#endif
