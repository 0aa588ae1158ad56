// Checks who can change a configuration.
#ifndef MONITOR_CONFIG_TRUST_H
#define MONITOR_CONFIG_TRUST_H

#include <sys/stat.h>

#include <string>

enum class Trust {
  kChecked,     // only root and the user of this process may be able to change it
  kEverything,  // no check, for trials
};

// A configuration contains commands, so nobody else may change it. Returns why users other than
// root and the user of this process can change the open file or replace it: by the owner or mode of
// the file or of a folder above it. Empty if they cannot.
//
// A folder that everybody can write to is accepted if its sticky bit is set, because users then
// cannot replace files of others.
std::string distrust(const struct stat& file, const std::string& path);

#endif
