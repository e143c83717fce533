#ifndef OSPREY_TESTS_CHANNELSFIXTURE_H
#define OSPREY_TESTS_CHANNELSFIXTURE_H

#include <memory>
#include <vector>

#include "Subscribers.h"
#include "TransferTest.h"

// A real server, and threads that put numbered packets into its channels.
class CChannelsTest : public CTransferTest
{
protected:
    ~CChannelsTest() override;

    // One a channel, from channel 1 on.
    void StartPutters(unsigned int dwChannels, std::chrono::microseconds pause,
                      unsigned int dwLimit = CPutter::NO_LIMIT);
    // They rest when each has put as many packets as this.
    void PutUpTo(unsigned int dwLimit);
    // Clients of these channels, one after the other: the queue of a listener is short, and one
    // that is turned away tries again after seconds. REQUIRES: putters.
    std::vector<std::unique_ptr<CSubscriber>> Subscribe(int nClients,
                                                        const std::vector<unsigned int>& channels);
    // How many packets every channel has stored at least.
    unsigned int GetStored() const;
    // Ends them; returns the last number that every channel has come to.
    unsigned int StopPutters();

    // Fails the test unless these are all channels, each without a gap.
    static void ExpectWhole(const CRecords& records, size_t nChannels);

    std::vector<std::unique_ptr<CPutter>> m_putters;
};

#endif
