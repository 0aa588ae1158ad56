#include "status/value_metric.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "text/json_text.h"

namespace {

constexpr double kPercent = 0.01;
constexpr double kMebibyte = 1024.0 * 1024.0;

// Items that measure in percent of one core multiply by this number.
double processors() {
  static const long count = std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L);
  return static_cast<double>(count);
}

double scale_of(std::string_view unit) {
  if (unit == "%") return kPercent;
  if (unit == "% core") return kPercent / processors();
  return unit == "MiB" ? kMebibyte : 1.0;
}

}  // namespace

size_t value_metric_of(const ItemRow& item) {
  const std::string_view name = item.name;
  const auto begins_name = [&](std::string_view beginning) {
    return !beginning.empty() && name.substr(0, beginning.size()) == beginning;
  };
  const auto* const found = std::find_if(
      std::begin(kValueMetrics), std::end(kValueMetrics), [&](const ValueMetric& metric) {
        return begins_name(metric.items[0]) || begins_name(metric.items[1]);
      });
  return static_cast<size_t>(found - std::begin(kValueMetrics));
}

double metric_value(const ItemRow& item, double value) {
  const Json decimal = json_number(value);
  return decimal.is_null() ? value : decimal.get<double>() * scale_of(item.unit);
}
