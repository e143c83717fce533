#ifndef OSPREY_TOOL_RATEMETER_H
#define OSPREY_TOOL_RATEMETER_H

#include <deque>

// How fast bytes have moved over the last seconds, from samples of a growing count.
//
// Time: seconds of any steady clock, given by the caller.
class CRateMeter final
{
public:
    // Takes a sample. A count below the last one begins anew.
    void Add(double dNow, unsigned long long ullBytes);

    // Bytes a second; negative while it is too early to tell.
    double Rate() const;

    // Seconds until ullLeft bytes have moved at that rate; negative when that is not known.
    double SecondsFor(unsigned long long ullLeft) const;

private:
    struct CSample
    {
        double m_dTime;
        unsigned long long m_ullBytes;
    };
    std::deque<CSample> m_listSamples;
};

#endif
