#include "clock_text.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

struct Broken {
  std::tm local;
  int milliseconds;
};

Broken break_down(WallTime time) {
  const auto since_epoch =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = static_cast<std::time_t>(since_epoch / 1000);
  Broken broken{};
  localtime_r(&seconds, &broken.local);
  broken.milliseconds = static_cast<int>(since_epoch % 1000);
  return broken;
}

}  // namespace

std::string for_people(WallTime time) {
  const Broken broken = break_down(time);
  char text[32];
  const size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &broken.local);
  return std::string(text, length);
}

std::string iso8601(WallTime time) {
  const Broken broken = break_down(time);
  char seconds[32], text[64];
  const size_t length = std::strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S", &broken.local);
  const long east_minutes = broken.local.tm_gmtoff / 60;
  std::snprintf(text, sizeof text, "%.*s.%03d%c%02ld:%02ld", static_cast<int>(length), seconds,
                broken.milliseconds, east_minutes < 0 ? '-' : '+', std::labs(east_minutes) / 60,
                std::labs(east_minutes) % 60);
  return text;
}

std::string seconds_text(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", seconds);
  return text;
}
