#ifndef OSPREY_TOOLS_LINKSETTINGS_H
#define OSPREY_TOOLS_LINKSETTINGS_H

// What a link does to packets, the same in both directions. Chances are percent of the packets.
struct CLinkSettings
{
    double m_dDelayMs = 0;   // one way
    double m_dJitterMs = 0;  // up to this much more, chosen for each packet; order is kept
    double m_dLoss = 0;
    double m_dReorder = 0;     // held back, so that later packets overtake it ...
    double m_dReorderMs = 20;  // ... by this time
    double m_dDuplicate = 0;   // delivered twice
    double m_dCorrupt = 0;     // one bit behind the IP header flipped
    double m_dRateKbit = 0;    // 1,000 bits a second in each direction; 0: no limit
    double m_dQueueMs = 200;   // at a rate: a packet that would wait longer for its turn is dropped
};

#endif
