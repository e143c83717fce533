#ifndef OSPREY_TESTS_DEAFSERVER_H
#define OSPREY_TESTS_DEAFSERVER_H

// A listening socket whose queue is full: further connections are neither taken nor refused.
class CDeafServer
{
public:
    CDeafServer();
    ~CDeafServer();
    CDeafServer(const CDeafServer&) = delete;
    CDeafServer& operator=(const CDeafServer&) = delete;

    unsigned short GetPort() const;

private:
    int m_hListener;
    int m_hFillers[3];
};

#endif
