// The key "include": which other files belong to a configuration.
#ifndef MONITOR_CONFIG_INCLUDE_H
#define MONITOR_CONFIG_INCLUDE_H

#include <string>
#include <vector>

#include "config/toml_fields.h"

struct Included {
  std::string path;
  unsigned line;  // where it is included
};

// The files that are meant, in the order of the key's elements, those of one pattern sorted. A
// relative name is one in the folder of `path`, the file that includes. A pattern may stand for no
// file, while a plain name is given as it stands, whether there is such a file or not.
std::vector<Included> read_includes(TomlFields& fields, const std::string& path);

#endif
