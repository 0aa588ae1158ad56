// Writes a configuration in full.
#ifndef MONITOR_CONFIG_TEXT_H
#define MONITOR_CONFIG_TEXT_H

#include <string>

#include "item/plan.h"

// TOML with the same meaning: instances instead of watches, values without units, no includes.
// Reading it gives the same configuration, except for file names and lines.
std::string config_text(const Plan& config);

// The text in double quotes, with the escapes that TOML needs. The text must be UTF-8.
std::string toml_text(const std::string& text);

#endif
