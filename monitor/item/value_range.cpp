#include "item/value_range.h"

#include <sys/sysinfo.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

#include "text/number_text.h"

namespace {

using Condition = AlarmRule::Condition;

constexpr double kNoLimit = std::numeric_limits<double>::infinity();
constexpr double kMostMib = 2097152.0;  // a process's memory is counted in a signed 32-bit kB

struct ValueRange {
  double least;
  double usual_most;  // higher values occur only after a limit was lowered, or by rounding
  double most;        // no value is higher
  bool whole;         // no value has a fraction
};

bool begins_with(std::string_view name, std::string_view beginning) {
  return name.compare(0, beginning.size(), beginning) == 0;
}

ValueRange percent_range(std::string_view name) {
  if (name == "GetDiskUsage") return {0.0, 101.0, 101.0, true};  // rounded up twice
  if (begins_with(name, "GetProcessHandle")) return {0.0, 100.0, kNoLimit, true};
  if (begins_with(name, "GetProcess") || name == "GetSysUsrCPU") return {0.0, 100.0, 101.0, false};
  return {0.0, 100.0, 100.0, false};
}

ValueRange range_of(const ItemRow& item) {
  const std::string_view name = item.name, unit = item.unit;
  if (unit == "%") return percent_range(name);
  if (unit == "% core") return {0.0, 100.0 * get_nprocs(), kNoLimit, false};
  if (unit == "MiB") return {0.0, kNoLimit, name == "GetSysFreeMemory" ? kNoLimit : kMostMib, true};
  return {name == "RebootAppData" ? -1.0 : 0.0, 1.0, 1.0, true};
}

// "a bound for values from 0 to 100 %"
std::string expected(const ItemRow& item, const ValueRange& range) {
  std::string text = "a bound for values ";
  if (range.whole && range.least == 0.0 && range.most == 1.0) return text + "0 and 1";
  text += "from " + number_text(range.least);
  const double most = std::min(range.usual_most, range.most);
  if (most != kNoLimit) text += " to " + number_text(most);
  if (*item.unit) text += std::string(" ") + item.unit;
  return range.whole ? text + ", without fractions" : text;
}

enum class Holds { kNever, kHardly, kSometimes, kAlways };

Holds above(const ValueRange& range, double bound) {
  if (bound >= range.most) return Holds::kNever;
  if (bound < range.least) return Holds::kAlways;
  return bound >= range.usual_most ? Holds::kHardly : Holds::kSometimes;
}

Holds below(const ValueRange& range, double bound) {
  if (bound <= range.least) return Holds::kNever;
  return bound > range.most ? Holds::kAlways : Holds::kSometimes;
}

Holds equals(const ValueRange& range, double bound) {
  const bool has_fraction = bound != std::trunc(bound);
  if (bound < range.least || bound > range.most) return Holds::kNever;
  if (has_fraction && range.whole) return Holds::kNever;
  return has_fraction || bound > range.usual_most ? Holds::kHardly : Holds::kSometimes;
}

Holds judge(const ValueRange& range, Condition condition, double bound) {
  switch (condition) {
    case Condition::kAbove:
      return above(range, bound);
    case Condition::kBelow:
      return below(range, bound);
    default:
      return equals(range, bound);
  }
}

}  // namespace

std::optional<BoundFault> check_bound(const ItemRow& item, Condition condition, double bound) {
  const ValueRange range = range_of(item);
  const Holds holds = judge(range, condition, bound);
  if (holds == Holds::kSometimes) return std::nullopt;
  const char* const how_often = holds == Holds::kNever    ? "never"
                                : holds == Holds::kHardly ? "rarely"
                                                          : "always";
  return BoundFault{holds == Holds::kNever, holds == Holds::kAlways,
                    "is " + number_text(bound) + ", which is " + how_often + " true for " +
                        item.name + ", expected " + expected(item, range)};
}
