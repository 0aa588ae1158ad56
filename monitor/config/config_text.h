// A configuration written out in full.
#ifndef MONITOR_CONFIG_TEXT_H
#define MONITOR_CONFIG_TEXT_H

#include <string>

#include "config/config.h"

// TOML that means the same: each watch as the instances that it stands for, each value in its plain
// unit, nothing included. Read again, it gives the same configuration but for files and lines.
std::string config_text(const Plan& config);

// A text in double quotes, with escapes where TOML wants them; the text must be UTF-8.
std::string toml_text(const std::string& text);

#endif
