#ifndef OSPREY_TESTS_NAMESPACES_H
#define OSPREY_TESTS_NAMESPACES_H

#include <stdexcept>

// Networks that nothing else is in. They vanish with the last process or descriptor that holds
// them.

// What the machine does not allow.
class CNetworkRefused final : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Takes this thread into a new network. Without the right to one, takes the process, which must not
// have other threads then, into a user namespace first in which it has it. Throws CNetworkRefused.
void LeaveNetwork();
// The network that this thread is in, as a descriptor for EnterNetwork; the caller closes it.
// Throws CNetworkRefused.
int OpenNetwork();
// Takes this thread there. Throws CNetworkRefused.
void EnterNetwork(int hNetwork);

// Writes to a file of the system. Throws CNetworkRefused.
void WriteLine(const char* pszPath, const char* pszLine);

#endif
