#ifndef OSPREY_TOOL_COMMANDLINE_H
#define OSPREY_TOOL_COMMANDLINE_H

#include <string>
#include <vector>

#include "Address.h"
#include "ChannelSpec.h"

// What the tool's exit code says. Signals.h has the one for an interruption, 130.
enum EExitCode
{
    EXIT_DONE = 0,
    EXIT_FILE_FAILED = 1,  // publish, subscribe: a source or sink failed
    EXIT_USAGE = 2,
    EXIT_NOT_CONNECTED = 3,  // serve, publish: could not listen
    EXIT_CONNECTION_LOST = 4,
    EXIT_NOT_VERIFIED =
        24,  // --verify: a file has not the digest that it should have, or none is known
    EXIT_TIMED_OUT = 30,  // --timeout
};

enum ECommand
{
    COMMAND_NONE,
    COMMAND_SERVE,
    COMMAND_SUBMIT,
    COMMAND_DOWNLOAD,
    COMMAND_WATCH,
    COMMAND_PUBLISH,
    COMMAND_SUBSCRIBE,
    COMMAND_VERSION,
};

// Whom a server takes connections from, and how many at once.
struct CAdmission
{
    unsigned int m_dwMostConnections = 0;      // 0: any number
    std::vector<CAddressRange> m_listAllowed;  // empty: everybody
};

struct COptions
{
    ECommand m_eCommand = COMMAND_NONE;
    bool m_bJson = false;
    bool m_bQuiet = false;
    std::string m_strConfig;  // file with further options; empty: the user's own
    std::string m_strTrace;   // file for the library's trace lines; empty: nowhere

    std::string m_strRoot;                         // serve
    unsigned short m_wPort = OSPREY_DEFAULT_PORT;  // serve, publish
    bool m_bReadOnly = false;
    Orb_U64 m_ullMaxFile = 0;   // serve; 0: no limit
    Orb_U64 m_ullMaxTotal = 0;  // serve; 0: no limit
    CAdmission m_admission;     // serve, publish

    CPeer m_peer;                          // submit, download, subscribe
    std::vector<std::string> m_listNames;  // local paths, or names at the peer
    std::string m_strTo;                   // submit: remote root
    std::string m_strFolder = ".";         // download: where the files go; watch: where they appear
    std::string m_strConnection;           // name of the connection
    unsigned int m_dwJobs = 1;             // connections side by side
    unsigned int m_dwConnectSeconds = 10;
    unsigned int m_dwStallSeconds = 60;   // 0: wait for ever
    unsigned int m_dwTimeoutSeconds = 0;  // of the whole run; 0: no end
    bool m_bRestart = false;              // take no notice of what an earlier run finished
    bool m_bVerify = false;
    std::string m_strManifest;  // list of digests at the server; empty: SHA256SUMS

    std::vector<CSourceSpec> m_listSources;  // publish, serve
    CStreamOptions m_stream;
    unsigned int m_dwLingerSeconds = 1;

    std::vector<CSinkSpec> m_listSinks;  // subscribe
    Orb_U64 m_ullCount = 0;              // packets; 0: no end
    unsigned int m_dwForSeconds = 0;     // 0: no end
};

// Result of reading the command line.
struct CParsed
{
    bool m_bRun = false;          // options hold a command to run
    int m_nExitCode = EXIT_DONE;  // otherwise: what to end with
    std::string m_strOutput;      // for standard output: a help text, with its line feed
    std::string m_strError;       // for standard error, without a line feed
};

CParsed ParseCommandLine(int nArguments, const char* const* ppszArguments, COptions& options);

#endif
