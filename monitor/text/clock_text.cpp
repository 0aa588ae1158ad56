#include "text/clock_text.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

struct LocalTime {
  std::tm fields;
  int milliseconds;
};

LocalTime local_time(WallTime time) {
  const auto since_epoch =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = static_cast<std::time_t>(since_epoch / 1000);
  LocalTime local{};
  localtime_r(&seconds, &local.fields);
  local.milliseconds = static_cast<int>(since_epoch % 1000);
  return local;
}

}  // namespace

std::string for_people(WallTime time) {
  const LocalTime local = local_time(time);
  char text[32];
  const size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local.fields);
  return std::string(text, length);
}

std::string iso8601(WallTime time) {
  const LocalTime local = local_time(time);
  char seconds[32], text[64];
  const size_t length = std::strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S", &local.fields);
  const long east_minutes = local.fields.tm_gmtoff / 60;
  std::snprintf(text, sizeof text, "%.*s.%03d%c%02ld:%02ld", static_cast<int>(length), seconds,
                local.milliseconds, east_minutes < 0 ? '-' : '+', std::labs(east_minutes) / 60,
                std::labs(east_minutes) % 60);
  return text;
}
