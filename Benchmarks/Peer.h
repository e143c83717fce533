#ifndef OSPREY_BENCHMARKS_PEER_H
#define OSPREY_BENCHMARKS_PEER_H

#include <memory>

#include "Shared.h"

// What is measured: one publisher in a process of its own, many subscribers in another. They last
// as long as their processes.

class IPublisher
{
public:
    virtual ~IPublisher() = default;
    // The port that it listens on, on loopback.
    virtual int GetPort() const = 0;
    // Never waits. False when the packet was not taken.
    virtual bool Publish(void* pData, unsigned int dwSize) = 0;
    // Has everything sent at once, where a system does not by itself.
    virtual void Flush() {}
};

// Subscribers that hand what they receive to TakePacket; a thread each.
class ISubscribers
{
public:
    virtual ~ISubscribers() = default;
};

class ISystem
{
public:
    virtual ~ISystem() = default;
    virtual const char* GetName() const = 0;
    virtual std::unique_ptr<IPublisher> MakePublisher() const = 0;
    virtual std::unique_ptr<ISubscribers> MakeSubscribers(CShared& shared, int nCount) const = 0;
};

const ISystem& Osprey();
const ISystem& ZeroMQ();
const ISystem& NNG();

#endif
