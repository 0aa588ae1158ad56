// Who else could change what a configuration says.
#ifndef MONITOR_CONFIG_TRUST_H
#define MONITOR_CONFIG_TRUST_H

#include <sys/stat.h>

#include <string>

enum class Trust {
  kChecked,     // a configuration is code: only root and who runs it may be able to write it
  kEverything,  // for trials
};

// Why somebody else than root and the user of this process could change the open file, or put
// another in its place: who owns it and the folders that lead to it, and who may write there. Empty
// if nobody can.
//
// A folder that everybody can write is no danger if its sticky bit is set: nobody can take away
// what others have put there.
std::string distrust(const struct stat& file, const std::string& path);

#endif
