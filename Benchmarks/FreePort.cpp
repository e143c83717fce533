#include "FreePort.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

unsigned short FreePort()
{
    const int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t nSize = sizeof address;
    if (bind(s, reinterpret_cast<sockaddr*>(&address), nSize) != 0 ||
        getsockname(s, reinterpret_cast<sockaddr*>(&address), &nSize) != 0)
    {
        perror("bind");
        exit(1);
    }
    close(s);
    return ntohs(address.sin_port);
}
