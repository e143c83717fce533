#ifndef OSPREY_TOOL_COMMANDOPTIONS_H
#define OSPREY_TOOL_COMMANDOPTIONS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "CommandLine.h"

// What the definitions of commands share. For CommandLine.cpp and the
// files that define some of them only.

// What the command line gives as text and is checked afterwards.
struct CRaw
{
    std::string m_strPort;
    std::string m_strPeer;
    std::vector<std::string> m_listChannels;
    std::string m_strShell;  // that completions are asked for
    std::vector<std::string> m_listAllow;
    std::string m_strMaxFile;
    std::string m_strMaxTotal;
    bool m_bStream = false;  // how streams are cut or paced was said
};

// A number of seconds from a lowest one on; the help text says so in words.
CLI::Validator Seconds(unsigned int dwLowest);

void AddCommon(CLI::App& command, COptions& options);
void AddPort(CLI::App& command, CRaw& raw);
void AddPeer(CLI::App& command, CRaw& raw);
void AddConnectTimeout(CLI::App& command, COptions& options);

// The end of every help text: the exit codes, and where the manual is.
std::string HelpEnd(const std::string& strCommand);

#endif
