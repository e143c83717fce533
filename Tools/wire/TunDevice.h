#ifndef OSPREY_TOOLS_TUNDEVICE_H
#define OSPREY_TOOLS_TUNDEVICE_H

#include <string>

// A network device in a network namespace: IP packets that the kernel there sends to it are read
// here, and what is written here arrives there. It vanishes with this object.
//
// Errors: throws std::runtime_error, with what the machine refused.
class CTunDevice
{
public:
    // strNetwork: path of the namespace, /run/netns/NAME or /proc/PID/ns/net. strAddress: its own
    // IPv4 address with the length of the network's part, 10.77.0.1/24. The calling thread is in
    // its own network again afterwards.
    CTunDevice(const std::string& strNetwork, const std::string& strName,
               const std::string& strAddress);
    ~CTunDevice();
    CTunDevice(const CTunDevice&) = delete;
    CTunDevice& operator=(const CTunDevice&) = delete;

    // False when there is no packet.
    bool Read(std::string& strPacket) const;
    // A packet that the kernel has no room for is dropped, as on any network.
    void Write(const std::string& strPacket) const;

    int GetHandle() const
    {
        return m_hDevice;
    }

private:
    void Open(const std::string& strName);

    int m_hDevice = -1;
};

#endif
