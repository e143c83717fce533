#ifndef OSPREY_TOOL_SERVICENOTICE_H
#define OSPREY_TOOL_SERVICENOTICE_H

#include <string>

#include "Descriptor.h"

// Tells a service manager how far the tool is, as sd_notify(3) describes: datagrams to the socket
// that NOTIFY_SOCKET names. Without one, or when it is gone, nothing happens.
//
// Thread: any.
class CServiceNotice final
{
public:
    CServiceNotice();
    CServiceNotice(const CServiceNotice&) = delete;
    CServiceNotice& operator=(const CServiceNotice&) = delete;

    // It serves; strStatus is one line for people, without a line feed.
    void Ready(const std::string& strStatus) const;
    // It was asked to end.
    void Stopping() const;

private:
    void Send(const std::string& strText) const;

    CDescriptor m_socket;  // connected; or none
};

#endif
