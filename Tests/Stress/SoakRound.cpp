#include "SoakRound.h"

CSoakRound::CSoakRound(CSoak& soak, CDice& dice) : m_soak(soak)
{
    m_soak.m_bStop = false;
    for (const char* pszName : {"a", "b", "c"})
    {
        Begin(std::make_shared<CSoakTransfers>(m_soak, pszName, dice.Seed()));
    }
    for (const bool bRaw : {false, false, true, true})
    {
        Begin(std::make_shared<CSoakReader>(m_soak, bRaw, dice.Seed()));
    }
    Begin(std::make_shared<CSoakEnemy>(m_soak, dice.Seed()));
}

CSoakRound::~CSoakRound()
{
    m_soak.m_bStop = true;
    for (std::thread& thread : m_threads)
    {
        thread.join();
    }
}
