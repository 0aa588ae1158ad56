// The key "include": further files of the configuration.
#ifndef MONITOR_CONFIG_INCLUDE_H
#define MONITOR_CONFIG_INCLUDE_H

#include <string>
#include <vector>

#include "config/toml_fields.h"

struct Included {
  std::string path;
  unsigned line;  // where it is included
};

// The included files in the order of the key's elements; the files of one pattern are sorted.
// Relative names start from the folder of the including file, `path`. A pattern may match no file.
// A name that is not a pattern is returned even if there is no such file.
std::vector<Included> read_includes(TomlFields& fields, const std::string& path);

#endif
