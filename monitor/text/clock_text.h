// Times as text, in local time.
#ifndef MONITOR_CLOCK_TEXT_H
#define MONITOR_CLOCK_TEXT_H

#include <chrono>
#include <optional>
#include <string>

using WallTime = std::chrono::system_clock::time_point;

// "2026-03-01 08:15:30"
std::string for_people(WallTime time);

// "2026-03-01T08:15:30.250+01:00"
std::string iso8601(WallTime time);

// The time in a text that iso8601() has written. Nothing if the text has another form, or the year
// is not between 1970 and 2200.
std::optional<WallTime> read_iso8601(const std::string& text);

#endif
