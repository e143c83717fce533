#ifndef OSPREY_TOOL_SETTINGS_H
#define OSPREY_TOOL_SETTINGS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// What a command line leaves open: the environment says it, else a configuration file, else it
// stays at its default.
//
//   --jobs 4                             on the command line
//   OSPREY_JOBS=4                        the option's long name in capitals, "-" as "_"
//   jobs = 4                             in the file, under [submit], or above all sections for
//                                        every command that has the option
//
// The file is the one that --config or OSPREY_CONFIG names, which must be there, or
// $XDG_CONFIG_HOME/osprey/config.toml, ~/.config/osprey/config.toml. An option that may be repeated
// has an array there, a flag true or false.

// Adds such options behind the command that the arguments begin with. app has the definitions; it
// is parsed here, with nothing required, and of no use afterwards. Arguments that it cannot parse
// stay as they are: they are told when they count. False with a reason when the file cannot be
// read, or has what no command knows.
bool AddSettings(CLI::App& app, std::vector<std::string>& listArguments, std::string& strReason);

#endif
