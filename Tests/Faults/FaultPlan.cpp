#include "FaultPlan.h"

#include <array>
#include <atomic>

namespace
{

thread_local bool t_bInside = false;

CFault g_fault{};
std::atomic<bool> g_bCounting{false};
std::atomic<bool> g_bArmed{false};
std::atomic<bool> g_bInjected{false};
std::array<std::atomic<int>, CALL_COUNT> g_calls{};

void Lay(bool bArmed)
{
    for (std::atomic<int>& nCalls : g_calls)
    {
        nCalls = 0;
    }
    g_bInjected = false;
    g_bArmed = bArmed;
    g_bCounting = true;
}

}  // namespace

const char* GetName(FAULT_CALL eCall)
{
    static const std::array<const char*, CALL_COUNT> names = {
        "Allocate", "Accept",      "Access",    "Bind",        "Chmod",         "Close",  "Connect",
        "EpollAdd", "EpollCreate", "EpollWait", "Eventfd",     "Fclose",        "Fcntl",  "Fopen",
        "Fread",    "Fseek",       "Fwrite",    "Getpeername", "Getsockname",   "Listen", "Lstat",
        "Mkdir",    "Mmap",        "Open",      "Pipe",        "PthreadCreate", "Recv",   "Remove",
        "Send",     "Setsockopt",  "Shutdown",  "Socket",      "SocketError",   "Stat",   "Write"};
    return names[eCall];
}

CFaultPlan::CFaultPlan(const CFault* pFault)
{
    if (pFault != nullptr)
    {
        g_fault = *pFault;
    }
    Lay(pFault != nullptr);
}

CFaultPlan::~CFaultPlan()
{
    Lift();
}

void CFaultPlan::Lift()
{
    g_bArmed = false;
    g_bCounting = false;
}

bool CFaultPlan::IsInjected()
{
    return g_bInjected;
}

bool CFaultPlan::IsInjected(FAULT_CALL eCall)
{
    return g_bInjected && g_fault.eCall == eCall;
}

int CFaultPlan::GetCalls(FAULT_CALL eCall)
{
    return g_calls[eCall];
}

CInside::CInside() : m_bBefore(t_bInside)
{
    t_bInside = true;
}

CInside::~CInside()
{
    t_bInside = m_bBefore;
}

COutside::COutside() : m_bBefore(t_bInside)
{
    t_bInside = false;
}

COutside::~COutside()
{
    t_bInside = m_bBefore;
}

bool IsInside()
{
    return t_bInside;
}

const CFault* MeetFault(FAULT_CALL eCall)
{
    if (!t_bInside || !g_bCounting)
    {
        return nullptr;
    }
    const int nCall = g_calls[eCall]++;
    if (!g_bArmed || g_fault.eCall != eCall || nCall < g_fault.nNth ||
        (nCall > g_fault.nNth && !g_fault.bOnward))
    {
        return nullptr;
    }
    g_bInjected = true;
    return &g_fault;
}
