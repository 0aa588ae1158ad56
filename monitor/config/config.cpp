#include "config/config.h"

#include <algorithm>
#include <set>
#include <utility>

#include "config/config_file.h"
#include "config/config_include.h"
#include "config/config_parts.h"
#include "config/toml_error.h"
#include "config/toml_fields.h"
#include "proc/spare_memory.h"
#include "text/wording.h"

namespace {

using Presence = TomlFields::Presence;

constexpr TomlFields::Range kWorkers{1.0, 1000.0, "a whole number"};

// Keys that are often written outside their table, and where they belong.
const std::vector<Misplaced> kMisplaced = {
    {"alarm", "as [instance.alarm] after its [[instance]]"},
    {"report", "in [instance.alarm] or [alert.NAME]"},
    {"name", "in [[process]], [[heartbeat]] or [[instance]]"},
    {"item", "in [[instance]]"},
    {"period", "in [[instance]]"},
    {"params", "in [[instance]]"},
    {"unit", "in [[instance]]"},
    {"exact", "in [[process]]"},
    {"prefix", "in [[process]]"},
    {"match", "in [[process]]"},
    {"running", "in [[process]]"},
    {"handles", "in [[process]]"},
    {"hung", "in [[process]]"},
    {"module", "in [[heartbeat]]"},
    {"cpu", "in [[process]] or [machine]"},
    {"memory", "in [[process]] or [machine]"},
    {"disk", "in [machine]"},
    {"severity", "in a watch or an alarm"},
    {"command", "in [alert.NAME] or [recovery]"},
    {"socket", "in [status]"},
    {"listen", "in [http]"},
    {"expose", "in [http]"}};

constexpr char kWatchesForm[] =
    "at least one [[process]], [[heartbeat]] or [[instance]], or [machine]";

// A parsed file. Its findings have no file name yet.
struct ParsedFile {
  std::string path;
  toml::table table;
  Findings findings;
};

class ConfigReader {
 public:
  explicit ConfigReader(Trust trust) : trust_(trust) {}

  ConfigReading read(const std::string& path);

 private:
  ParsedFile parse(const std::string& path);
  void parse_included(ParsedFile& main);
  void read_main_keys(TomlFields& fields);
  void refuse_main_keys(TomlFields& fields, const std::string& main);
  void read_file(ParsedFile& file);

  const Trust trust_;
  ConfigReading reading_;
  std::vector<ParsedFile> files_;  // the main one first
  std::set<std::pair<dev_t, ino_t>> seen_;
  FileScope defaults_;
  NameRegister names_, alert_names_;
};

// Parses the file. If it cannot be read or is not valid TOML, the result has a mistake and no
// table. Returns nothing for a file that was read before.
ParsedFile ConfigReader::parse(const std::string& path) {
  ParsedFile file{path, {}, {}};
  std::string error;
  const std::optional<ConfigFile> content = read_config_file(path, trust_, error);
  if (!content) {
    file.findings.mistakes.push_back({0, error});
    return file;
  }
  if (!seen_.insert(content->identity).second) return file;
  const NoFailure none;  // the library ends the program where an allocation fails
  try {
    file.table = toml::parse(content->text, path);
  } catch (const toml::parse_error& error_in_text) {
    file.findings.mistakes.push_back(toml_mistake(content->text, error_in_text));
  }
  return file;
}

void ConfigReader::parse_included(ParsedFile& main) {
  TomlFields fields(main.table, "the file", main.findings);
  std::vector<ParsedFile> included;
  for (const Included& file : read_includes(fields, main.path)) {
    included.push_back(parse(file.path));
  }
  for (ParsedFile& file : included) files_.push_back(std::move(file));
}

// Reads the keys that concern the whole program and are allowed in the main file only.
void ConfigReader::read_main_keys(TomlFields& fields) {
  fields.any("include");
  reading_.config.workers =
      fields.whole_number("workers", Presence::kOptional, kWorkers).value_or(0);
  reading_.config.recovery = read_recovery(fields);
  defaults_.command_recovers =
      reading_.config.recovery.redundancy == Recovery::Redundancy::kCommand;
  reading_.config.status_socket = read_status_socket(fields);
  reading_.config.http = read_http(fields);
  reading_.config.metrics_file = read_metrics(fields);
  const std::optional<std::string> state = fields.text("state", Presence::kOptional);
  if (!state) return;
  reading_.config.state_file = *state;
  if (state->empty() || state->front() != '/' || state->back() == '/') {
    fields.mistake(fields.line("state"),
                   "state is " + in_quotes(*state) + ", expected the absolute path of a file");
  }
}

void ConfigReader::refuse_main_keys(TomlFields& fields, const std::string& main) {
  for (const char* const key :
       {"include", "workers", "recovery", "state", "status", "http", "metrics"}) {
    if (!fields.any(key)) continue;
    fields.mistake(fields.line(key),
                   std::string(key) + " in an included file, expected it only in " + main);
  }
}

void ConfigReader::read_file(ParsedFile& file) {
  TomlFields fields(file.table, "the file", file.findings);
  const bool is_main = &file == &files_.front();
  if (is_main) read_main_keys(fields);
  if (!is_main) refuse_main_keys(fields, files_.front().path);
  FileScope scope = defaults_;
  scope.file = file.path;
  scope.every_s = read_seconds(fields, "every", Presence::kOptional).value_or(scope.every_s);
  scope.deadline_s =
      read_seconds(fields, "deadline", Presence::kOptional).value_or(scope.deadline_s);
  if (is_main) defaults_ = scope;
  for (Alert& alert : read_alerts(fields)) {
    alert.file = file.path;
    const auto taken = alert_names_.claim(alert.name, file.path, alert.line);
    if (taken) fields.mistake(alert.line, "alert: " + *taken);
    reading_.config.alerts.push_back(std::move(alert));
  }
  read_watches(fields, scope, names_, reading_.config.instances);
  read_instances(fields, scope, names_, reading_.config.instances);
  fields.refuse_other_keys(kMisplaced);
}

// Adds the findings of one file, with its name, to the findings of all files.
void move_findings(ParsedFile& file, Findings& all, const std::string& main) {
  const std::string name = file.path == main ? "" : file.path;
  const auto move_all = [&name](Mistakes& from, Mistakes& to) {
    for (Mistake& one : from) to.push_back({one.line, std::move(one.text), name});
  };
  move_all(file.findings.mistakes, all.mistakes);
  move_all(file.findings.warnings, all.warnings);
}

ConfigReading ConfigReader::read(const std::string& path) {
  files_.push_back(parse(path));
  if (files_.front().findings.mistakes.empty()) parse_included(files_.front());
  for (const ParsedFile& file : files_) {
    if (!file.findings.mistakes.empty()) defaults_.knows_all_alerts = false;
    for (std::string& name : names_of_alerts(file.table))
      defaults_.alert_names.push_back(std::move(name));
  }
  for (ParsedFile& file : files_) read_file(file);
  std::vector<Alert>& alerts = reading_.config.alerts;  // TOML does not keep their order
  std::sort(alerts.begin(), alerts.end(),
            [](const Alert& a, const Alert& b) { return a.name < b.name; });
  Findings& main = files_.front().findings;
  if (reading_.config.instances.empty() && main.mistakes.empty()) {
    main.mistakes.push_back({1, std::string("nothing to watch, expected ") + kWatchesForm});
  }
  for (ParsedFile& file : files_) move_findings(file, reading_.findings, path);
  sort_by_place(reading_.findings.mistakes);
  sort_by_place(reading_.findings.warnings);
  return std::move(reading_);
}

void make_mistakes_of_warnings(Findings& findings) {
  for (Mistake& warning : findings.warnings) findings.mistakes.push_back(std::move(warning));
  findings.warnings.clear();
  sort_by_place(findings.mistakes);
}

}  // namespace

ConfigReading read_config(const std::string& path, Warnings warnings, Trust trust) {
  ConfigReading reading = ConfigReader(trust).read(path);
  if (warnings == Warnings::kAreMistakes) make_mistakes_of_warnings(reading.findings);
  return reading;
}
