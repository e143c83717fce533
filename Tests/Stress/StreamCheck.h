#ifndef OSPREY_TESTS_STREAMCHECK_H
#define OSPREY_TESTS_STREAMCHECK_H

#include <map>
#include <string>
#include <vector>

// Checks what one subscription gets of the server's stream: within a connection every packet after
// the first, in order and undamaged; in a later connection nothing older than what came before.
class CStreamCheck
{
public:
    explicit CStreamCheck(const std::vector<unsigned int>& channels);

    void BeginConnection();
    void Take(unsigned int dwChannel, const std::string& strData);
    // So many packets of every channel have come, or something wrong.
    bool IsOver(unsigned int dwPackets) const;

    std::string m_strFault;  // the first; empty while all is well
    unsigned long long m_ullPackets = 0;

private:
    struct CChannel
    {
        unsigned int m_dwNext = 0;
        bool m_bFirst = true;
        unsigned int m_dwPackets = 0;
    };

    std::map<unsigned int, CChannel> m_channels;
};

#endif
