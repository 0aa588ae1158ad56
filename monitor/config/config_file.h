// A file of the configuration, as text.
#ifndef MONITOR_CONFIG_FILE_H
#define MONITOR_CONFIG_FILE_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>

#include "config/config_trust.h"

struct ConfigFile {
  std::string text;
  std::pair<dev_t, ino_t> identity;  // the same under every name
};

// True where a pipe is meant: standard input, and what a shell puts in the place of <(command).
// Whoever starts the program has opened it, and answers for it.
bool names_descriptor(const std::string& path);

// Reads a regular file, or a descriptor that `path` names: any other pipe or device could keep the
// reader waiting for ever. Nothing, and `error` says why, if it cannot or must not be read.
std::optional<ConfigFile> read_config_file(const std::string& path, Trust trust,
                                           std::string& error);

#endif
