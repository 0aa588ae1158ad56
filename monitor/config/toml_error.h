// What is wrong with a file that is no TOML, in words of somebody who writes TOML.
#ifndef MONITOR_TOML_ERROR_H
#define MONITOR_TOML_ERROR_H

#include <toml++/toml.h>

#include <string>

#include "text/mistake.h"

// The mistake in `text`, for which the parser gave this error.
Mistake toml_mistake(const std::string& text, const toml::parse_error& error);

#endif
