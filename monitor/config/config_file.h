// Reads a file of the configuration.
#ifndef MONITOR_CONFIG_FILE_H
#define MONITOR_CONFIG_FILE_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>

#include "config/config_trust.h"

struct ConfigFile {
  std::string text;
  std::pair<dev_t, ino_t> identity;  // the same for all names of the file
};

// True if the path names an open descriptor: standard input, or what a shell substitutes for
// <(command). The caller of the program opened it and is responsible for it.
bool names_descriptor(const std::string& path);

// Reads a regular file or an open descriptor. Other pipes and devices are refused, because reading
// them could wait for ever. Nothing, with the reason in `error`, if the file cannot or must not be
// read.
std::optional<ConfigFile> read_config_file(const std::string& path, Trust trust,
                                           std::string& error);

#endif
