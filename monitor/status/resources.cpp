#include "status/resources.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "status/api.h"
#include "status/metrics_text.h"

namespace {

// The number in the query "?recent=60"; 0 without it.
size_t recent_of(const httplib::Request& request) {
  const std::string text = request.get_param_value("recent");
  size_t count = 0;
  std::from_chars(text.data(), text.data() + text.size(), count);
  return std::min(count, History::kLeastKept);
}

std::string line_of(const Json& json) {
  return json_text(json) + "\n";
}

// In the order of docs/api.md.
constexpr Resource kResources[] = {
    {"/api/status", kJsonType,
     [](const Snapshot& snapshot, const httplib::Request& request) {
       return line_of(status_json(snapshot, recent_of(request)));
     }},
    {"/api/alarms", kJsonType,
     [](const Snapshot& snapshot, const httplib::Request&) {
       return line_of(alarms_json(snapshot));
     }},
    {"/api/hung", kJsonType,
     [](const Snapshot& snapshot, const httplib::Request&) {
       return line_of(hung_json(snapshot));
     }},
    {"/metrics", kMetricsType,
     [](const Snapshot& snapshot, const httplib::Request&) { return metrics_text(snapshot); },
     true},
};

}  // namespace

const Resource* find_resource(const std::string& path) {
  const auto* const found = std::find_if(std::begin(kResources), std::end(kResources),
                                         [&](const Resource& row) { return row.path == path; });
  return found == std::end(kResources) ? nullptr : found;
}
