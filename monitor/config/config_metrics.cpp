// Reads [metrics]: the file for the node exporter.
#include "config/config_parts.h"
#include "text/wording.h"

namespace {

constexpr double kLeastEveryS = 1.0;

// The collector reads only files with this end.
bool is_good_path(const std::string& path) {
  constexpr std::string_view kEnd = ".prom";
  return path.size() > kEnd.size() + 1 && path.front() == '/' &&
         path.compare(path.size() - kEnd.size(), kEnd.size(), kEnd) == 0;
}

}  // namespace

std::optional<MetricsFilePlan> read_metrics(TomlFields& fields) {
  const toml::table* const table = fields.table("metrics", "a table [metrics]");
  if (!table) return std::nullopt;
  TomlFields own = fields.within(*table, "[metrics]");
  MetricsFilePlan plan;
  plan.path = own.text("textfile", TomlFields::Presence::kRequired).value_or("");
  if (own.has("textfile") && !is_good_path(plan.path)) {
    own.mistake(own.line("textfile"), "textfile is " + in_quotes(plan.path) +
                                          ", expected an absolute path that ends in .prom");
  }
  plan.every_s = read_seconds(own, "every", TomlFields::Presence::kOptional).value_or(plan.every_s);
  if (plan.every_s < kLeastEveryS) {
    own.mistake(own.line("every"), "every is less than a second, expected at least 1 s");
  }
  own.refuse_other_keys();
  return plan;
}
