#ifndef OSPREY_TOOL_PACER_H
#define OSPREY_TOOL_PACER_H

// When the next packet of a steady stream is due. The times of a stream that keeps up follow from
// its first one alone, so they do not drift; a stream that falls far behind (it had nothing to send
// for a while) begins anew instead of catching up in a burst.
//
// Time: nanoseconds of any steady clock, given by the caller.
class CPacer final
{
public:
    // nRate: packets a second; 0: all are due at once.
    explicit CPacer(unsigned int dwRate) : m_dwRate(dwRate) {}

    // When the next packet is due; llNow when it is late or the first.
    long long Due(long long llNow) const;

    // A packet goes at llNow, which is not before Due.
    void Take(long long llNow);

private:
    long long Planned() const;

    const unsigned int m_dwRate;
    bool m_bBegun = false;
    long long m_llAnchor = 0;    // a packet was planned for then
    unsigned int m_dwTaken = 0;  // packets since, less than a second's
};

#endif
