#ifndef OSPREY_TOOLS_CUTS_H
#define OSPREY_TOOLS_CUTS_H

#include <chrono>
#include <vector>

// When the link is dead: from one time until another, more than one of which may be planned.
//
// Thread: one.
class CCuts
{
public:
    typedef std::chrono::steady_clock::time_point CTime;

    // Dead from timeFrom until timeTo, which is not part of it; CTime::max(): for good.
    void Add(CTime timeFrom, CTime timeTo);
    // Ends the cuts that have begun; later ones stay planned.
    void Join(CTime now);
    bool IsCut(CTime now) const;
    // When that changes next, by what is planned; CTime::max(): never.
    CTime GetNext(CTime now) const;

private:
    struct CCut
    {
        CTime m_timeFrom;
        CTime m_timeTo;
    };

    std::vector<CCut> m_cuts;
};

#endif
