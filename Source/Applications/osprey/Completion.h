#ifndef OSPREY_TOOL_COMPLETION_H
#define OSPREY_TOOL_COMPLETION_H

#include <CLI/CLI.hpp>
#include <string>

// The script that makes a shell complete the commands and options that app defines, and files and
// folders where an option or a command wants them. The shell is bash, zsh or fish.
std::string Completion(const CLI::App& app, const std::string& strShell);

#endif
