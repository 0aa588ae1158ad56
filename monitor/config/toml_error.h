// Describes a TOML syntax error in terms of the text, not of the parser.
#ifndef MONITOR_TOML_ERROR_H
#define MONITOR_TOML_ERROR_H

#include <toml++/toml.h>

#include <string>

#include "text/mistake.h"

// The mistake in `text` for this error of the parser.
Mistake toml_mistake(const std::string& text, const toml::parse_error& error);

#endif
