/// Stands in for the shell: what system() is given is noted, and stands in the debug log between the lines around it as
/// "system: <command>". The test executable links with --wrap=system.
#pragma once

#include <string>
#include <vector>

#include "debug_log.h"

inline std::vector<std::string> noted_commands;
inline int status_of_commands;  // what system() returns

extern "C" [[gnu::used]] inline int __wrap_system(const char *command) {
    noted_commands.emplace_back(command);
    WL_LOG_AS("system", 2, "%s", command);
    return status_of_commands;
}
