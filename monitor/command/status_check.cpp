#include "command/status_check.h"

#include <algorithm>
#include <array>

#include "command/monitor_client.h"
#include "command/status_text.h"
#include "item/placeholders.h"
#include "text/terminal_text.h"

namespace {

// "|" separates text and performance data.
std::string without_bars(std::string text) {
  std::replace(text.begin(), text.end(), '|', '/');
  return text;
}

// A label in single quotes, in which a quote is doubled and "=" is not allowed.
std::string label_of(const std::string& name) {
  std::string label = "'";
  for (const char letter : name) {
    label += letter == '=' ? '_' : letter;
    if (letter == '\'') label += letter;
  }
  return without_bars(label + "'");
}

// "'machine.cpu'=3.5%". Sizes are in bytes, because the convention has no unit for MiB.
std::string performance_of(const Json& watch) {
  const Json& value = member(watch, "value");
  if (!value.is_number()) return "";
  const std::string unit = shown(watch, "unit"), label = label_of(shown(watch, "name")) + "=";
  const auto number = value.get<double>();
  if (unit == "MiB") return label + value_text(number * 1048576.0) + "B";
  return label + value_text(number) + (unit.rfind('%', 0) == 0 ? "%" : "");
}

constexpr std::array<const char*, 4> kWords{"OK", "WARNING", "UNKNOWN", "CRITICAL"};
constexpr std::array<int, 4> kExitStatuses{kCheckOk, kCheckWarning, kCheckUnknown, kCheckCritical};

CheckResult result_of(Concern concern, const std::string& text, const std::string& performance) {
  const auto index = static_cast<size_t>(concern);
  std::string line = std::string(kWords[index]) + ": " + without_bars(text);
  if (!performance.empty()) line += " | " + performance;
  return {line, kExitStatuses[index]};
}

// "heart (critical: equals 0)"
std::string one_of(const Json& watch) {
  const std::string reason = reason_of(watch);
  return shown(watch, "name") + " (" + (reason.empty() ? shown(watch, "state") : reason) + ")";
}

// Collects the texts of the line. The most serious ones come first.
class Summary {
 public:
  void add(Concern concern, const std::string& text) {
    if (concern == Concern::kNone) return;
    texts_[static_cast<size_t>(concern)].push_back(text);
  }

  Concern worst() const {
    size_t worst = texts_.size() - 1;
    while (worst > 0 && texts_[worst].empty()) --worst;
    return static_cast<Concern>(worst);
  }

  // A line for a monitoring system must be short, so it has the first texts only.
  std::string text() const {
    constexpr size_t kMostTold = 5;
    std::string told;
    size_t count = 0;
    for (size_t concern = texts_.size(); concern-- > 0;) {
      for (const std::string& text : texts_[concern]) {
        if (++count <= kMostTold) told += (told.empty() ? "" : ", ") + text;
      }
    }
    if (count > kMostTold) told += ", and " + std::to_string(count - kMostTold) + " more";
    return told;
  }

 private:
  std::array<std::vector<std::string>, 4> texts_;  // by Concern
};

}  // namespace

CheckResult check_status(const Json& status) {
  Summary summary;
  for (const MonitorTrouble& trouble : troubles_of(status)) {
    summary.add(trouble.concern, trouble.text);
  }
  std::string performance;
  for (const Json& watch : member(status, "watches")) {
    summary.add(concern_of(watch), one_of(watch));
    const std::string one = performance_of(watch);
    performance += (performance.empty() || one.empty() ? "" : " ") + one;
  }
  const std::string counts = counts_text(member(status, "counts"));
  const std::string text = summary.text();
  return result_of(summary.worst(), text.empty() ? counts : text + "; " + counts, performance);
}

CheckResult check_watch(const Json& watch) {
  const std::string reason = reason_of(watch);
  return result_of(concern_of(watch),
                   shown(watch, "name") + " " + shown(watch, "state") + " " + value_of(watch) +
                       (reason.empty() ? "" : ", " + reason),
                   performance_of(watch));
}

CheckResult check_failed(const std::string& reason) {
  return result_of(Concern::kUnknown, printable(reason), "");
}
