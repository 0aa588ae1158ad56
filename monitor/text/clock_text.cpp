#include "text/clock_text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>

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

// True if the text equals the form, where "0" in the form stands for any digit.
bool has_form(std::string_view text, std::string_view form) {
  const auto fits = [](char letter, char wanted) {
    return wanted == '0' ? letter >= '0' && letter <= '9' : letter == wanted;
  };
  return std::equal(text.begin(), text.end(), form.begin(), form.end(), fits);
}

int digits_at(const std::string& text, size_t position, size_t count) {
  return std::atoi(text.substr(position, count).c_str());
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

std::optional<WallTime> read_iso8601(const std::string& text) {
  const bool is_east = has_form(text, "0000-00-00T00:00:00.000+00:00");
  if (!is_east && !has_form(text, "0000-00-00T00:00:00.000-00:00")) return std::nullopt;
  const int year = digits_at(text, 0, 4), month = digits_at(text, 5, 2);
  const int day = digits_at(text, 8, 2), hour = digits_at(text, 11, 2);
  const int minute = digits_at(text, 14, 2), second = digits_at(text, 17, 2);
  const int zone_hour = digits_at(text, 24, 2), zone_minute = digits_at(text, 27, 2);
  const bool can_be = year >= 1970 && year <= 2200 && month >= 1 && month <= 12 && day >= 1 &&
                      day <= 31 && hour <= 23 && minute <= 59 && second <= 60 && zone_hour <= 23 &&
                      zone_minute <= 59;
  if (!can_be) return std::nullopt;
  std::tm fields{};
  fields.tm_year = year - 1900;
  fields.tm_mon = month - 1;
  fields.tm_mday = day;
  fields.tm_hour = hour;
  fields.tm_min = minute;
  fields.tm_sec = second;
  const auto zone = std::chrono::hours(zone_hour) + std::chrono::minutes(zone_minute);
  const auto local = std::chrono::system_clock::from_time_t(timegm(&fields)) +
                     std::chrono::milliseconds(digits_at(text, 20, 3));
  return is_east ? local - zone : local + zone;
}
